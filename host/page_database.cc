#include "host/page_database.h"

#include <utility>

namespace host {
namespace {

// Addresses that are new on every load would pile up otherwise.
constexpr uint32_t kForgetAfterVisits = 10;

}  // namespace

const KnownPage* PageDatabase::Find(const std::string& pageUrl) const {
  const auto found = pages_.find(pageUrl);
  return found != pages_.end() ? &found->second : nullptr;
}

void PageDatabase::BeginVisit(const std::string& pageUrl) {
  EndVisit();
  pageUrl_ = pageUrl;
}

void PageDatabase::ResourceSeen(const std::string& url, ResourceKind kind, bool get) {
  if (pageUrl_.empty() || url == pageUrl_) return;
  const auto [place, isNew] = places_.try_emplace(url, seen_.size());
  if (isNew) seen_.push_back({.url = url, .kind = kind, .get = get});
}

void PageDatabase::ResponseSeen(const std::string& url, const net::HttpResponseHeaders& headers) {
  const auto place = places_.find(url);
  if (place == places_.end()) return;
  KnownResource& resource = seen_[place->second];
  if (resource.status == 200) return;  // asked for twice: the complete answer counts
  resource.status = headers.response_code();
  resource.declaredLength = headers.GetContentLength();
  resource.html = headers.raw_headers().find("text/html") != std::string::npos;
}

void PageDatabase::EndVisit() {
  if (pageUrl_.empty()) return;
  KnownPage& page = pages_[pageUrl_];
  ++page.visits;
  for (KnownResource& resource : seen_) {
    resource.visitsSeen = 1;
    resource.lastVisit = page.visits;
  }
  // This visit's order first; what it did not show keeps its order behind.
  for (KnownResource& known : page.resources) {
    const auto place = places_.find(known.url);
    if (place == places_.end()) {
      if (page.visits - known.lastVisit <= kForgetAfterVisits) seen_.push_back(std::move(known));
      continue;
    }
    KnownResource& resource = seen_[place->second];
    resource.visitsSeen += known.visitsSeen;
    if (resource.status < 0) {  // it came from a cache this time
      resource.status = known.status;
      resource.declaredLength = known.declaredLength;
      resource.html = known.html;
    }
  }
  page.resources = std::move(seen_);
  seen_.clear();
  places_.clear();
  pageUrl_.clear();
}

}  // namespace host
