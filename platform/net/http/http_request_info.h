// The description of a request for the network stack.
#ifndef NET_HTTP_HTTP_REQUEST_INFO_H_
#define NET_HTTP_HTTP_REQUEST_INFO_H_

#include <string>

#include "net/base/request_priority.h"
#include "net/http/http_request_headers.h"
#include "url/gurl.h"

namespace net {

struct HttpRequestInfo {
  // Why the request is made.
  enum RequestMotivation {
    PREFETCH_MOTIVATED = 0,
    OMNIBOX_MOTIVATED = 1,
    NORMAL_MOTIVATION = 2,
    EARLY_LOAD_MOTIVATED = 3,
  };

  HttpRequestInfo();
  ~HttpRequestInfo();

  GURL url;
  std::string method;
  HttpRequestHeaders extra_headers;
  int load_flags = 0;
  RequestPriority priority = LOWEST;
  RequestMotivation motivation = NORMAL_MOTIVATION;
};

}  // namespace net

#endif  // NET_HTTP_HTTP_REQUEST_INFO_H_
