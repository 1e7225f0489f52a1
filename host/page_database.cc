#include "host/page_database.h"

#include <utility>

#include "cache/html_check.h"
#include "host/http/header_block.h"
#include "host/reuse_rules.h"

namespace host {
namespace {

// Addresses that are new on every load would pile up otherwise.
constexpr uint32_t kForgetAfterVisits = 10;

}  // namespace

PageVisit::PageVisit(std::string pageUrl, const HostSettings& settings)
    : pageUrl_(std::move(pageUrl)),
      maxResources_(settings.maxResourcesPerPage),
      maxHeaderBytes_(settings.maxRequestHeaderBytes) {}

void PageVisit::ResourceSeen(const SeenResource& resource) {
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
                   .headersToRepeat = std::move(headers)});
}

void PageVisit::ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers) {
  const auto place = places_.find(url);
  if (place == places_.end()) return;
  KnownResource& resource = seen_[place->second];
  // Asked for twice: the complete answer counts. A 304 confirms the answer that is known.
  if (resource.status == 200 || headers.response_code() == 304) return;
  resource.status = headers.response_code();
  resource.declaredLength = headers.GetContentLength();
  resource.html = kiv::MentionsHtml(headers.raw_headers());
}

void PageDatabase::Remember(PageVisit visit) {
  KnownPage& page = pages_.Use(visit.pageUrl_);
  std::vector<KnownResource>& seen = visit.seen_;
  ++page.visits;
  for (KnownResource& resource : seen) {
    resource.visitsSeen = 1;
    resource.lastVisit = page.visits;
  }
  // This visit's order first; what it did not show keeps its order behind.
  for (KnownResource& known : page.resources) {
    const auto place = visit.places_.find(known.url);
    if (place == visit.places_.end()) {
      const bool isRecent = page.visits - known.lastVisit <= kForgetAfterVisits;
      if (isRecent && seen.size() < settings_.maxResourcesPerPage) seen.push_back(std::move(known));
      continue;
    }
    KnownResource& resource = seen[place->second];
    resource.visitsSeen += known.visitsSeen;
    if (resource.status < 0) {  // it came from a cache this time
      resource.status = known.status;
      resource.declaredLength = known.declaredLength;
      resource.html = known.html;
    }
  }
  page.resources = std::move(seen);
  if (observer_.onLearnt) observer_.onLearnt(visit.pageUrl_, page);
  const auto forgotten = pages_.DropExcess();
  if (forgotten && observer_.onForgotten) observer_.onForgotten(*forgotten);
}

void PageDatabase::Restore(const std::string& pageUrl, KnownPage page) {
  if (page.resources.size() > settings_.maxResourcesPerPage) {
    page.resources.resize(settings_.maxResourcesPerPage);
  }
  pages_.Use(pageUrl) = std::move(page);
  pages_.DropExcess();
}

}  // namespace host
