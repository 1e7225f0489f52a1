// What a resource is to a page, as far as the host tells kinds apart. Any thread.
#ifndef HOST_RESOURCE_KIND_H_
#define HOST_RESOURCE_KIND_H_

namespace host {

enum class ResourceKind { Document, Stylesheet, Script, Font, Image, Media, Data, Other };

}  // namespace host

#endif  // HOST_RESOURCE_KIND_H_
