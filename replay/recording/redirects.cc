#include "replay/recording/redirects.h"

#include "host/http/header_block.h"
#include "url/gurl.h"

namespace replay {

bool IsRedirect(const Request& request) {
  return request.status >= 300 && request.status < 400 && request.status != 304;
}

std::string RedirectTarget(const Request& request) {
  const std::string location(http::FindHeader(request.responseHeaders, "Location").value_or(""));
  return location.empty() ? std::string() : GURL(request.url).Resolve(location).spec();
}

}  // namespace replay
