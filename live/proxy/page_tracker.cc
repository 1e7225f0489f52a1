#include "live/proxy/page_tracker.h"

#include <algorithm>
#include <utility>

#include "host/http/header_block.h"
#include "net/http/header_text.h"
#include "url/gurl.h"

namespace live {
namespace {

using host::ResourceKind;
using host::TabId;

std::string HeaderOf(std::string_view headers, std::string_view name) {
  return std::string(http::FindHeader(headers, name).value_or(""));
}

bool AsksForHtml(std::string_view headers) {
  return HeaderOf(headers, "Accept").starts_with("text/html");
}

ResourceKind KindOf(const std::string& url, std::string_view headers) {
  const ResourceKind byDestination = host::KindByDestination(HeaderOf(headers, "Sec-Fetch-Dest"));
  if (byDestination != ResourceKind::Other) return byDestination;
  const std::string accept = HeaderOf(headers, "Accept");
  if (accept.starts_with("text/html")) return ResourceKind::Document;
  if (accept.starts_with("text/css")) return ResourceKind::Stylesheet;
  if (accept.starts_with("image/")) return ResourceKind::Image;
  return host::KindBySuffix(url);
}

}  // namespace

std::string OriginOf(const std::string& url) {
  const GURL parsed(url);
  if (parsed.host().empty()) return {};
  return url.substr(0, url.find(':')) + "://" + parsed.host() + ":" +
         std::to_string(parsed.EffectiveIntPort());
}

PageTracker::PageTracker(const TrackerSettings& settings, Knows knows)
    : settings_(settings), knows_(std::move(knows)) {}

Placement PageTracker::Place(const std::string& method, const std::string& url, std::string_view headers,
                             int64_t nowUs) {
  if (HeaderOf(headers, "Sec-Purpose").starts_with("prefetch") || HeaderOf(headers, "Purpose") == "prefetch")
    return {};
  const std::string destination = HeaderOf(headers, "Sec-Fetch-Dest");
  const TabId parent = FindByReferer(url, headers, nowUs);
  const bool isNavigation =
      destination.empty() ? AsksForHtml(headers) && !IsFrame(url, parent, nowUs) : destination == "document";
  if (isNavigation) {
    for (auto& [id, page] : pages_) {
      if (page.over || page.redirectTarget != url || nowUs - page.activeUs > settings_.loadingUs) continue;
      page.redirectTarget.clear();
      page.navigation = url;
      page.activeUs = nowUs;
      AddReferer(page, url);
      return {Role::Continuation, id, ResourceKind::Document};
    }
    if (method != "GET") return {};
    return {Role::Page, Begin(url, nowUs), ResourceKind::Document};
  }
  if (parent == 0) return {};
  Page& page = pages_.at(parent);
  page.activeUs = nowUs;
  const ResourceKind kind = KindOf(url, headers);
  if (kind == ResourceKind::Document || kind == ResourceKind::Stylesheet || kind == ResourceKind::Script) {
    AddReferer(page, url);
  }
  return {Role::Resource, parent, kind};
}

TabId PageTracker::Begin(const std::string& url, int64_t nowUs) {
  for (auto& [id, page] : pages_) page.over = page.over || page.url == url;
  const TabId id = ++lastPage_;
  Page& page = pages_[id];
  page.url = page.navigation = url;
  page.begunUs = page.activeUs = nowUs;
  AddReferer(page, url);
  return id;
}

void PageTracker::AddReferer(Page& page, const std::string& url) const {
  if (page.referers.size() >= settings_.maxReferers) return;
  page.referers.insert(url);
  page.origins.insert(OriginOf(url));
}

// Of the pages that a request may belong to, the one that it does; 0 when that cannot be told.
TabId PageTracker::Choose(const std::vector<TabId>& candidates, const std::string& url, int64_t nowUs) const {
  if (candidates.size() == 1) return candidates.front();
  for (auto candidate = candidates.rbegin(); candidate != candidates.rend(); ++candidate) {
    if (knows_(pages_.at(*candidate).url, url)) return *candidate;
  }
  if (candidates.empty()) return 0;
  const TabId latest = candidates.back();
  return nowUs - pages_.at(latest).begunUs < settings_.loadingUs ? latest : 0;
}

TabId PageTracker::FindByReferer(const std::string& url, std::string_view headers, int64_t nowUs) const {
  std::string referer = HeaderOf(headers, "Referer");
  if (referer.empty()) referer = HeaderOf(headers, "Origin");
  std::string origin = OriginOf(referer);
  // Nothing is said of the page, but that it is of the same origin.
  if (origin.empty() && HeaderOf(headers, "Sec-Fetch-Site") == "same-origin") origin = OriginOf(url);
  if (origin.empty()) return 0;
  // Requests to other origins often name the origin alone, which looks like the URL of its first page.
  const bool namesPage = !GURL(referer).spec().empty() &&
                         referer.find('/', referer.find("//") + 2) + 1 < referer.size() &&
                         referer.find('/', referer.find("//") + 2) != std::string::npos;
  std::vector<TabId> candidates;
  for (const auto& [id, page] : pages_) {
    if (page.over) continue;
    if (namesPage ? page.referers.contains(referer) : page.origins.contains(origin)) candidates.push_back(id);
  }
  return Choose(candidates, url, nowUs);
}

// Over plain http, a frame asks for its document as a page does.
bool PageTracker::IsFrame(const std::string& url, TabId parent, int64_t nowUs) const {
  if (parent == 0) return false;
  const Page& page = pages_.at(parent);
  if (nowUs - page.begunUs > settings_.loadingUs) return false;
  return knows_(page.url, url) || page.openLoads > 0;
}

void PageTracker::Answered(TabId id, const std::string& url, const std::string& target, int64_t nowUs) {
  const auto found = pages_.find(id);
  if (found == pages_.end()) return;
  Page& page = found->second;
  page.activeUs = nowUs;
  if (target.empty()) return;
  if (url == page.navigation) page.redirectTarget = target;
  // What is asked for from there names the target.
  if (page.referers.contains(url)) AddReferer(page, target);
}

void PageTracker::LoadBegins(TabId id) {
  const auto found = pages_.find(id);
  if (found != pages_.end()) ++found->second.openLoads;
}

void PageTracker::LoadEnds(TabId id, int64_t nowUs) {
  const auto found = pages_.find(id);
  if (found == pages_.end()) return;
  --found->second.openLoads;
  found->second.activeUs = nowUs;
}

std::vector<TabId> PageTracker::TakeSettled(int64_t nowUs) {
  std::vector<TabId> settled;
  for (auto place = pages_.begin(); place != pages_.end();) {
    const Page& page = place->second;
    const bool quiet = page.openLoads == 0 && nowUs - page.activeUs >= settings_.quietUs;
    const bool old = nowUs - page.begunUs >= settings_.longestUs || pages_.size() > settings_.maxPages;
    if (quiet || old || page.over) {
      settled.push_back(place->first);
      place = pages_.erase(place);
    } else {
      ++place;
    }
  }
  return settled;
}

std::string PageTracker::NavigationOf(TabId id) const {
  const auto found = pages_.find(id);
  return found != pages_.end() ? found->second.navigation : std::string();
}

std::string PageTracker::UrlOf(TabId id) const {
  const auto found = pages_.find(id);
  return found != pages_.end() ? found->second.url : std::string();
}

}  // namespace live
