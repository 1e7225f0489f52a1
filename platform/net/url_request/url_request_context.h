// The browser's bundle of what a request runs with (cookies, cache, sockets). Opaque to the plugin.
#ifndef NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_
#define NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_

namespace net {

class URLRequestContext {};

}  // namespace net

#endif  // NET_URL_REQUEST_URL_REQUEST_CONTEXT_H_
