// Tells which connections a request can use. Any thread.
#ifndef HOST_CONNECTION_GROUP_H_
#define HOST_CONNECTION_GROUP_H_

#include <string>

namespace host {

// The group of connections to the URL's server: "https://a.test:8443", with scheme and host in lower case,
// and with the port even if the URL has none.
std::string ConnectionGroup(const std::string& url);

}  // namespace host

#endif  // HOST_CONNECTION_GROUP_H_
