// What the host remembers of pages between visits: for each page URL its resources in order, how often they
// were seen, and the last responses. It is in memory and bounded; an observer may keep a copy elsewhere.
// Executor's thread.
#ifndef HOST_PAGE_DATABASE_H_
#define HOST_PAGE_DATABASE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/recency_map.h"
#include "host/resource_kind.h"
#include "host/settings.h"
#include "net/http/http_response_headers.h"

namespace host {

struct KnownResource {
  std::string url;
  ResourceKind kind = ResourceKind::Other;
  bool get = true;              // requested with GET
  bool withCredentials = true;  // its requests may carry cookies
  bool carriedCookies = false;  // its last request did
  bool afterLoad = false;    // requested after LoadEvent of its last visit; false where nobody reports that
  bool beforePaint = false;  // requested before FirstPaint of that visit; true where nobody reports that
  int64_t askedUs = 0;       // after the page's request, on that visit
  int64_t waitedUs = 0;      // from then to its response, on the last visit that had a response
  std::string headersToRepeat;  // of its last request: see host/reuse_rules.h
  uint32_t visitsSeen = 0;      // on how many visits of the page
  uint32_t lastVisit = 0;       // the number of the last one of them
  int status = -1;              // of the last response; -1 when none came
  int64_t declaredLength = -1;
  bool html = false;  // the header block mentions text/html, which the plugin does not serve
};

// A group of connections that the page's resources use.
struct KnownGroup {
  uint32_t visitsSeen = 0;  // on how many visits of the page
  uint32_t lastVisit = 0;   // the number of the last one of them
};

struct KnownPage {
  uint32_t visits = 0;
  std::string redirectsTo;  // another server's URL, to which the page's last request was redirected; or empty
  // In the order of the last visit on which each was seen. A resource that was not seen on ten consecutive
  // visits is forgotten.
  std::vector<KnownResource> resources;
  // By host::ConnectionGroup. Addresses that are new on every visit often lead to the same servers.
  std::map<std::string, KnownGroup> groups;
};

// A request for a resource, as the browser makes it.
struct SeenResource {
  std::string url;
  ResourceKind kind = ResourceKind::Other;
  std::string method = "GET";
  std::string headers;  // header lines as text; empty when unknown
  bool withCredentials = true;
};

// What was seen on one visit until now.
class PageVisit {
 public:
  PageVisit(std::string pageUrl, const HostSettings& settings);

  const std::string& PageUrl() const { return pageUrl_; }

  // May be called in any order and repeatedly. The page itself is not a resource. Of a page with too many
  // resources, the first ones are kept. `afterUs` is microseconds since the page was requested.
  void ResourceSeen(const SeenResource& resource, int64_t afterUs = 0);
  void ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers, int64_t afterUs = 0);
  void FirstPaint() { painted_ = true; }
  void LoadEvent() { loaded_ = true; }

 private:
  friend class PageDatabase;

  void FollowRedirect(const std::string& url, const net::HttpResponseHeaders& headers);

  std::string pageUrl_;
  size_t maxResources_;
  size_t maxHeaderBytes_;
  std::string redirectsTo_;
  bool painted_ = false;
  bool loaded_ = false;
  std::vector<KnownResource> seen_;
  std::map<std::string, size_t> places_;  // URL to index in seen_
};

// Hears of each change, after it. Must not change the database.
struct PageDatabaseObserver {
  std::function<void(const std::string& pageUrl, const KnownPage& page)> onLearnt;
  std::function<void(const std::string& pageUrl)> onForgotten;  // there were too many
};

class PageDatabase {
 public:
  explicit PageDatabase(const HostSettings& settings) : pages_(settings.maxPages), settings_(settings) {}

  // The page, or null before the end of its first visit. Valid until the next change.
  const KnownPage* Find(const std::string& pageUrl) const { return pages_.Peek(pageUrl); }

  // Adds a visit, and forgets the least recently visited page if there are too many.
  void Remember(PageVisit visit);

  // One observer at a time; both functions may be empty.
  void Observe(PageDatabaseObserver observer) { observer_ = std::move(observer); }

  // These two are not told to the observer. Makes a page known as an earlier run knew it, within the bounds;
  // the one restored last counts as visited last.
  void Restore(const std::string& pageUrl, KnownPage page);
  void Forget(const std::string& pageUrl) { pages_.Erase(pageUrl); }

  size_t PageCount() const { return pages_.Size(); }

 private:
  PageDatabaseObserver observer_;
  RecencyMap<std::string, KnownPage> pages_;
  const HostSettings settings_;
};

}  // namespace host

#endif  // HOST_PAGE_DATABASE_H_
