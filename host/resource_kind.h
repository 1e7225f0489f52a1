// The kinds of resources that the host distinguishes, and how it determines them. Any thread.
#ifndef HOST_RESOURCE_KIND_H_
#define HOST_RESOURCE_KIND_H_

#include <string_view>

namespace host {

enum class ResourceKind { Document, Stylesheet, Script, Font, Image, Media, Data, Other };

// By what the browser fetches it for, as Sec-Fetch-Dest and recorders name it ("style", "stylesheet",
// "iframe", "empty", "xhr"); Other for what is not known.
ResourceKind KindByDestination(std::string_view name);
// The name of the kind in recordings; "other" for Other. A literal.
const char* NameOfKind(ResourceKind kind);
// Determined by the type of the response ("text/css", without parameters, lower case).
ResourceKind KindByMimeType(std::string_view type);
// Determined by the extension in the URL's path.
ResourceKind KindBySuffix(std::string_view url);

}  // namespace host

#endif  // HOST_RESOURCE_KIND_H_
