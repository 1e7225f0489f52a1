// Which cookies the browser would send now, as far as its own requests and the servers' answers tell. Values
// are kept in memory only. A preload is sent with them, and a request gets its response only when its cookies
// are the same, so a wrong guess costs a request and never gives anybody something that is not theirs. One
// thread.
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
  // `maxHosts`: pairs of site and host name that are remembered; `maxUrls`: URLs.
  CookieView(size_t maxHosts, size_t maxUrls) : hosts_(maxHosts), urls_(maxUrls) {}

  // The browser has sent these request headers to the URL, for a page of the site.
  void Sent(const std::string& site, const std::string& url, std::string_view requestHeaders);
  // The server has answered; `nowMs` counts from 1970.
  void Answered(const std::string& site, const std::string& url, const std::string& responseBlock,
                double nowMs);

  // The value of the Cookie header; empty for none. Nothing when it cannot be told: neither the URL nor,
  // since the program began, its host has been asked for, and `carriedCookies` (as an earlier run remembers
  // it) is true.
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
