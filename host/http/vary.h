// Whether a response that was given to one request may be given to another: the Vary header. Any thread.
#ifndef HOST_HTTP_VARY_H_
#define HOST_HTTP_VARY_H_

#include <string_view>

namespace http {

// Whether each header that the response's Vary names has the same value in the request as in the headers that
// were sent when the response came. Values are compared as lists of items: neither the blanks around commas
// nor how a list is spread over lines makes a difference. A header that is missing equals only one that is
// missing. Never for "*".
bool VaryAllows(std::string_view responseBlock, std::string_view requestHeaders,
                std::string_view sentHeaders);

}  // namespace http

#endif  // HOST_HTTP_VARY_H_
