// The browser's state that a request uses (cookies, cache, sockets). Opaque to the plugin.
#ifndef NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_
#define NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_

#include <string>

namespace net {

// The base class has no cookies.
class URLRequestContext {
 public:
  virtual ~URLRequestContext() = default;

  // Returns the value of the Cookie header that a request for the URL would have now; empty for none.
  virtual std::string CookiesFor(const std::string& /*url*/) { return {}; }
};

}  // namespace net

#endif  // NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_
