// What the host remembers of pages between visits: per page URL its sub-resources, in order, how often they
// were seen and what came back for them. In memory; executor's thread.
#ifndef HOST_PAGE_DATABASE_H_
#define HOST_PAGE_DATABASE_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/resource_kind.h"
#include "net/http/http_response_headers.h"

namespace host {

struct KnownResource {
  std::string url;
  ResourceKind kind = ResourceKind::Other;
  bool get = true;          // asked for with GET
  uint32_t visitsSeen = 0;  // on how many visits of the page
  uint32_t lastVisit = 0;   // the number of the last one of them
  int status = -1;          // of the last response; -1 when none came
  int64_t declaredLength = -1;
  bool html = false;  // the header block mentions text/html, which the plugin does not serve
};

struct KnownPage {
  uint32_t visits = 0;
  // In the order of the last visit on which each was seen. What ten visits in a row have not shown is
  // forgotten.
  std::vector<KnownResource> resources;
};

class PageDatabase {
 public:
  // The page, or null before the end of its first visit. Valid until the next call of EndVisit.
  const KnownPage* Find(const std::string& pageUrl) const;

  // One visit: BeginVisit, then what is seen and what comes back in any order, then EndVisit, which makes it
  // known.
  void BeginVisit(const std::string& pageUrl);
  void ResourceSeen(const std::string& url, ResourceKind kind, bool get);
  void ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers);
  void EndVisit();

 private:
  std::map<std::string, KnownPage> pages_;
  std::string pageUrl_;                   // of the visit under way; empty between visits
  std::vector<KnownResource> seen_;       // on the visit under way
  std::map<std::string, size_t> places_;  // URL to index in seen_
};

}  // namespace host

#endif  // HOST_PAGE_DATABASE_H_
