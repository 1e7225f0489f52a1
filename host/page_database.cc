#include "host/page_database.h"

#include <set>
#include <utility>

#include "cache/html_check.h"
#include "host/connection_group.h"
#include "host/http/header_block.h"
#include "host/reuse_rules.h"
#include "url/gurl.h"

namespace host {
namespace {

// Otherwise URLs that are new on every load would accumulate.
constexpr uint32_t kForgetAfterVisits = 10;

bool IsRecent(uint32_t lastVisit, const KnownPage& page) {
  return page.visits - lastVisit <= kForgetAfterVisits;
}

// After a visit whose resources are known. When there are too many groups, those of this visit are kept.
void RememberGroups(KnownPage& page, size_t most) {
  std::set<std::string> seen;
  for (const KnownResource& resource : page.resources) {
    if (resource.lastVisit == page.visits) seen.insert(ConnectionGroup(resource.url));
  }
  for (const std::string& group : seen) {
    KnownGroup& known = page.groups[group];
    ++known.visitsSeen;
    known.lastVisit = page.visits;
  }
  const bool tooMany = page.groups.size() > most;
  std::erase_if(page.groups, [&](const auto& group) {
    return tooMany ? group.second.lastVisit != page.visits : !IsRecent(group.second.lastVisit, page);
  });
}

}  // namespace

PageVisit::PageVisit(std::string pageUrl, const HostSettings& settings)
    : pageUrl_(std::move(pageUrl)),
      maxResources_(settings.maxResourcesPerPage),
      maxHeaderBytes_(settings.maxRequestHeaderBytes) {}

void PageVisit::ResourceSeen(const SeenResource& resource, int64_t afterUs) {
  if (resource.url == pageUrl_ || places_.contains(resource.url) || seen_.size() >= maxResources_) return;
  places_.emplace(resource.url, seen_.size());
  std::string headers = HeadersToRepeat(resource.headers);
  if (headers.size() > maxHeaderBytes_) headers.clear();
  seen_.push_back({.url = resource.url,
                   .kind = resource.kind,
                   .get = resource.method == "GET",
                   .withCredentials = resource.withCredentials,
                   .carriedCookies = http::HasHeader(resource.headers, "Cookie"),
                   .afterLoad = loaded_,
                   .beforePaint = !painted_,
                   .askedUs = afterUs,
                   .headersToRepeat = std::move(headers)});
}

void PageVisit::FollowRedirect(const std::string& url, const net::HttpResponseHeaders& headers) {
  if (headers.response_code() / 100 != 3) return;
  const auto location = http::FindHeader(headers.raw_headers(), "Location");
  if (!location) return;
  const GURL target = GURL(url).Resolve(std::string(*location));
  if (target.is_valid() && target.spec().starts_with("http")) redirectsTo_ = target.spec();
}

void PageVisit::ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers,
                             int64_t afterUs) {
  if (url == (redirectsTo_.empty() ? pageUrl_ : redirectsTo_)) FollowRedirect(url, headers);
  const auto place = places_.find(url);
  if (place == places_.end()) return;
  KnownResource& resource = seen_[place->second];
  // If it was requested twice, the complete response counts. A 304 confirms the known response.
  if (resource.status == 200 || headers.response_code() == 304) return;
  if (resource.status < 0) resource.waitedUs = afterUs - resource.askedUs;
  resource.status = headers.response_code();
  resource.declaredLength = headers.GetContentLength();
  resource.html = kiv::MentionsHtml(headers.raw_headers());
}

void PageDatabase::Remember(PageVisit visit) {
  KnownPage& page = pages_.Use(visit.pageUrl_);
  std::vector<KnownResource>& seen = visit.seen_;
  ++page.visits;
  const bool leaves = ConnectionGroup(visit.redirectsTo_) != ConnectionGroup(visit.pageUrl_);
  page.redirectsTo = leaves ? std::move(visit.redirectsTo_) : std::string();
  for (KnownResource& resource : seen) {
    resource.visitsSeen = 1;
    resource.lastVisit = page.visits;
  }
  // First this visit's resources in their order, then the others in their previous order.
  for (KnownResource& known : page.resources) {
    const auto place = visit.places_.find(known.url);
    if (place == visit.places_.end()) {
      if (IsRecent(known.lastVisit, page) && seen.size() < settings_.maxResourcesPerPage)
        seen.push_back(std::move(known));
      continue;
    }
    KnownResource& resource = seen[place->second];
    resource.visitsSeen += known.visitsSeen;
    if (resource.status < 0) {  // it came from a cache this time
      resource.status = known.status;
      resource.declaredLength = known.declaredLength;
      resource.html = known.html;
      resource.waitedUs = known.waitedUs;
    }
  }
  page.resources = std::move(seen);
  RememberGroups(page, settings_.maxResourcesPerPage);
  if (observer_.onLearnt) observer_.onLearnt(visit.pageUrl_, page);
  const auto forgotten = pages_.DropExcess();
  if (forgotten && observer_.onForgotten) observer_.onForgotten(*forgotten);
}

void PageDatabase::Restore(const std::string& pageUrl, KnownPage page) {
  if (page.resources.size() > settings_.maxResourcesPerPage) {
    page.resources.resize(settings_.maxResourcesPerPage);
  }
  if (page.groups.size() > settings_.maxResourcesPerPage) page.groups.clear();
  pages_.Use(pageUrl) = std::move(page);
  pages_.DropExcess();
}

}  // namespace host
