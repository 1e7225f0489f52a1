#include "replay/model/page_plan.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

#include "replay/recording/redirects.h"

namespace replay {
namespace {

int64_t ToUs(double ms) {
  return static_cast<int64_t>(ms * 1000);
}

double FirstByteMs(const Request& request) {
  return std::max(request.startMs, request.endMs - request.receiveMs);
}

// The load event cannot have waited for a request that was still running after it.
bool BlocksLoad(const Page& page, const Request& request) {
  if (page.onLoadMs < 0) return true;
  return request.startMs < page.onLoadMs && request.endMs <= page.onLoadMs + kEventSlackMs;
}

// The latest request of each URL so far, and the redirects that lead to it.
struct Seen {
  std::map<std::string_view, size_t> byUrl;
  std::map<std::string, size_t> redirectsTo;
};

// What initiated a request: a redirect to it, its recorded initiator, its referrer, or else the document. For
// a request before the document, it is the previous request.
size_t FindParent(const Page& page, size_t index, const Seen& seen) {
  const Request& request = page.requests[index];
  if (const auto redirect = seen.redirectsTo.find(request.url); redirect != seen.redirectsTo.end()) {
    return redirect->second;
  }
  if (index <= page.document) return index == 0 ? kPageStart : index - 1;
  for (const std::string_view url :
       {std::string_view(request.initiatorUrl), std::string_view(request.referer)}) {
    const auto found = url.empty() ? seen.byUrl.end() : seen.byUrl.find(url);
    if (found != seen.byUrl.end()) return found->second;
  }
  return page.document;
}

PlannedRequest Plan(const Page& page, size_t index, const Seen& seen) {
  const Request& request = page.requests[index];
  PlannedRequest planned;
  planned.parent = FindParent(page, index, seen);
  if (planned.parent != kPageStart) {
    const Request* parent = &page.requests[planned.parent];
    if (request.startMs < FirstByteMs(*parent) && planned.parent > page.document) {
      planned.parent = page.document;  // that parent cannot have initiated it
      parent = &page.requests[page.document];
    }
    if (request.startMs >= parent->endMs) {
      planned.thinkUs = ToUs(request.startMs - parent->endMs);
      return planned;
    }
    const bool streams = parent->kind == host::ResourceKind::Document && !IsRedirect(*parent);
    if (streams && request.startMs >= FirstByteMs(*parent)) {
      planned.fromFirstByte = true;
      planned.thinkUs = ToUs(request.startMs - FirstByteMs(*parent));
      return planned;
    }
    if (index > page.document) return planned;  // as soon as the parent is complete
    planned.parent = kPageStart;
  }
  planned.thinkUs = ToUs(request.startMs);
  return planned;
}

// Requests whose responses may have made the browser send others, by their ends.
using Ends = std::multimap<double, size_t>;

bool MayAskForMore(const Request& request) {
  using Kind = host::ResourceKind;
  return !IsRedirect(request) && (request.kind == Kind::Script || request.kind == Kind::Stylesheet ||
                                  request.kind == Kind::Data || request.kind == Kind::Document);
}

void InferParent(const Page& page, size_t index, const Ends& ends, PlannedRequest& planned) {
  constexpr int64_t kMomentUs = 100'000;
  const bool isLate = planned.parent != kPageStart && index > page.document && !planned.fromFirstByte &&
                      planned.thinkUs > kMomentUs && !IsRedirect(page.requests[planned.parent]);
  if (!isLate) return;
  const double startMs = page.requests[index].startMs;
  const auto after = ends.upper_bound(startMs);
  if (after == ends.begin()) return;
  const auto& [endMs, last] = *std::prev(after);
  const int64_t thinkUs = ToUs(startMs - endMs);
  if (thinkUs > kMomentUs) return;
  planned.parent = last;
  planned.thinkUs = thinkUs;
}

}  // namespace

double ReleaseMs(const PlannedRequest& planned, const Request& parent) {
  return planned.fromFirstByte ? FirstByteMs(parent) : parent.endMs;
}

PagePlan MakePlan(const Page& page, ParentRule rule) {
  PagePlan plan = {.document = page.document};
  Seen seen;
  Ends ends;
  double lastEndMs = 0;
  for (size_t index = 0; index < page.requests.size(); ++index) {
    const Request& request = page.requests[index];
    PlannedRequest planned = Plan(page, index, seen);
    if (rule == ParentRule::Inferred) InferParent(page, index, ends, planned);
    if (index >= page.document && MayAskForMore(request)) ends.emplace(request.endMs, index);
    planned.blocksLoad = index <= page.document || BlocksLoad(page, request);
    if (planned.blocksLoad) lastEndMs = std::max(lastEndMs, request.endMs);
    plan.requests.push_back(planned);
    seen.byUrl[request.url] = index;
    if (IsRedirect(request)) seen.redirectsTo[RedirectTarget(request)] = index;
  }
  if (page.onLoadMs > lastEndMs) plan.restUs = ToUs(page.onLoadMs - lastEndMs);
  return plan;
}

}  // namespace replay
