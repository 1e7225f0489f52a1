// Determines which page a request belongs to from its headers: Sec-Fetch-Dest and -Mode, Referer and Origin.
// Over plain http, where the first two are missing, it uses Referer and Accept. A request that cannot be
// placed belongs to no page and teaches nothing. One thread.
#ifndef LIVE_PROXY_PAGE_TRACKER_H_
#define LIVE_PROXY_PAGE_TRACKER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/corvane_runtime.h"
#include "host/resource_kind.h"

namespace live {

enum class Role {
  Page,          // a page begins
  Continuation,  // of a page's navigation, after a redirect
  Resource,
  Unplaced,
};

struct Placement {
  Role role = Role::Unplaced;
  host::TabId page = 0;  // 0: none
  host::ResourceKind kind = host::ResourceKind::Other;
};

struct TrackerSettings {
  // A page has settled if nothing was requested for it for `quietUs` and nothing is running, or in any case
  // after the second time, because a page that polls is never quiet.
  int64_t quietUs = 3'000'000;
  int64_t longestUs = 60'000'000;
  // For this long after a page has begun, a request that could belong to several pages, and a frame that
  // could be a page, is assumed to belong to that page.
  int64_t loadingUs = 10'000'000;
  size_t maxPages = 64;      // that are open at a time; the oldest one settles
  size_t maxReferers = 300;  // URLs of one page that others may refer to
};

class PageTracker {
 public:
  // Whether earlier visits of a page have asked for a resource.
  using Knows = std::function<bool(const std::string& pageUrl, const std::string& url)>;
  PageTracker(const TrackerSettings& settings, Knows knows);

  // Each page that begins is a new one, and ends an older one with the same URL.
  Placement Place(const std::string& method, const std::string& url, std::string_view headers, int64_t nowUs);
  // A request of the page was answered. `target` is the target of a redirect, else empty.
  void Answered(host::TabId page, const std::string& url, const std::string& target, int64_t nowUs);
  // A load of the page begins, or has ended.
  void LoadBegins(host::TabId page);
  void LoadEnds(host::TabId page, int64_t nowUs);

  // Returns the pages that have settled, and forgets them.
  std::vector<host::TabId> TakeSettled(int64_t nowUs);
  // The URL of an open page; empty for others.
  std::string UrlOf(host::TabId page) const;
  // The URL that its redirects have led to until now.
  std::string NavigationOf(host::TabId page) const;

 private:
  struct Page {
    std::string url;
    int64_t begunUs = 0;
    int64_t activeUs = 0;  // the last request or answer
    int openLoads = 0;
    bool over = false;               // another page has taken its place
    std::string navigation;          // the URL that its navigation has come to
    std::string redirectTarget;      // where that leads, if it does
    std::set<std::string> referers;  // URLs of its documents, stylesheets and scripts
    std::set<std::string> origins;   // of these
  };

  host::TabId Begin(const std::string& url, int64_t nowUs);
  host::TabId FindByReferer(const std::string& url, std::string_view headers, int64_t nowUs) const;
  host::TabId Choose(const std::vector<host::TabId>& candidates, const std::string& url, int64_t nowUs) const;
  bool IsFrame(const std::string& url, host::TabId parent, int64_t nowUs) const;
  void AddReferer(Page& page, const std::string& url) const;

  const TrackerSettings settings_;
  const Knows knows_;
  host::TabId lastPage_ = 0;
  std::map<host::TabId, Page> pages_;
};

// "https://a.test:443"; empty for what has no host.
std::string OriginOf(const std::string& url);

}  // namespace live

#endif  // LIVE_PROXY_PAGE_TRACKER_H_
