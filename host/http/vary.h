// Whether a response that was given to one request may be given to another: the Vary header. Any thread.
#ifndef HOST_HTTP_VARY_H_
#define HOST_HTTP_VARY_H_

#include <string_view>

namespace http {

// Whether each header that the response's Vary names has the same value in the request as in the headers of
// the request that fetched the response. Values are compared as lists of items, so blanks around commas and
// the distribution of a list over lines make no difference. A missing header equals only a missing header.
// Returns false for "*".
bool VaryAllows(std::string_view responseBlock, std::string_view requestHeaders,
                std::string_view sentHeaders);

}  // namespace http

#endif  // HOST_HTTP_VARY_H_
