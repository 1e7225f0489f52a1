// Which cookies the browser would send now, as far as this is known from its own requests and the servers'
// answers. Values are kept only in memory. A preload is sent with these cookies, and a request gets its
// response only if its cookies are the same. A wrong guess therefore costs a request, but never gives anybody
// a response that is not theirs. One thread.
#ifndef LIVE_PROXY_COOKIE_VIEW_H_
#define LIVE_PROXY_COOKIE_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/recency_map.h"

namespace live {

class CookieView {
 public:
  // `maxHosts` is the number of pairs of site and host name to remember, `maxUrls` that of URLs.
  CookieView(size_t maxHosts, size_t maxUrls) : hosts_(maxHosts), urls_(maxUrls) {}

  // The browser has sent these request headers to the URL, for a page of the site.
  void Sent(const std::string& site, const std::string& url, std::string_view requestHeaders);
  // The server has answered; `nowMs` counts from 1970.
  void Answered(const std::string& site, const std::string& url, const std::string& responseBlock,
                double nowMs);

  // The value of the Cookie header; empty for none. Nothing if it is unknown: neither the URL nor its host
  // was requested since the program started, and `carriedCookies` (from an earlier run) is true.
  std::optional<std::string> For(const std::string& site, const std::string& url, bool carriedCookies) const;

 private:
  using Cookies =
      std::vector<std::pair<std::string, std::string>>;  // by name, in the order in which they are sent
  struct Host {
    Cookies cookies;              // of its last requests, changed by its answers since
    std::set<std::string> added;  // names that answers have set since they were last sent
  };
  using Key = std::pair<std::string, std::string>;

  host::RecencyMap<Key, Host> hosts_;  // by site, and scheme and name of the host
  host::RecencyMap<Key, std::set<std::string>>
      urls_;  // by site and URL: the names that its last request carried
};

}  // namespace live

#endif  // LIVE_PROXY_COOKIE_VIEW_H_
