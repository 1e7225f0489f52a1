// The headers that belong to one connection and not to the message that it carries. Any thread.
#ifndef HOST_HTTP_CONNECTION_HEADERS_H_
#define HOST_HTTP_CONNECTION_HEADERS_H_

#include <string_view>

namespace http {

// Whether a header with that name is for this connection only (hop-by-hop), in requests or in responses,
// whether or not a Connection header names it.
bool IsOfOneConnection(std::string_view name);

}  // namespace http

#endif  // HOST_HTTP_CONNECTION_HEADERS_H_
