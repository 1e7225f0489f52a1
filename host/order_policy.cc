#include "host/order_policy.h"

#include <algorithm>

#include "host/volatile_address.h"

namespace host {
namespace {

// Most urgent first: what holds up rendering and brings more resources, then what fills in.
uint32_t Rank(ResourceKind kind) {
  switch (kind) {
    case ResourceKind::Stylesheet:
    case ResourceKind::Script:
    case ResourceKind::Font:
    case ResourceKind::Document:
      return 0;
    case ResourceKind::Data:
    case ResourceKind::Other:
      return 1;
    case ResourceKind::Image:
    case ResourceKind::Media:
      return 2;
  }
  return 2;
}

// The kind decides, then the position on the page.
uint32_t Priority(ResourceKind kind, size_t position) {
  constexpr uint32_t kPositions = 10000;
  return Rank(kind) * kPositions + static_cast<uint32_t>(std::min<size_t>(position, kPositions - 1));
}

// The kinds that hold up the first paint. Digits in their addresses are versions, which change with the site
// and not with the load, so that they are no sign of a volatile address.
bool HoldsUpPaint(ResourceKind kind) {
  return kind == ResourceKind::Stylesheet || kind == ResourceKind::Font;
}

NotServed WhyNotOrder(const KnownPage& page, const KnownResource& resource, const OrderFacts& facts,
                      const HostSettings& settings) {
  if (!facts.pluginTakesOrders) return NotServed::SwitchedOff;
  if (!resource.get) return NotServed::NotGet;
  if (facts.isFresh(resource.url)) return NotServed::FreshInDiskCache;
  if (!IsSeenOften(page, resource.visitsSeen, settings)) return NotServed::SeenTooSeldom;
  if (resource.visitsSeen < settings.minVolatileSeen && !HoldsUpPaint(resource.kind) &&
      LooksVolatile(resource.url)) {
    return NotServed::Volatile;
  }
  if (resource.afterLoad) return NotServed::AfterLoad;
  if (const NotServed why = WhyNotHoldable(resource, facts.sizeLimit); why != NotServed::None) return why;
  if (!facts.hasContext) return NotServed::NoContext;
  return facts.whyNot ? facts.whyNot(resource) : NotServed::None;
}

}  // namespace

bool IsSeenOften(const KnownPage& page, uint32_t visitsSeen, const HostSettings& settings) {
  return visitsSeen > settings.minSeenShare * page.visits;
}

NotServed WhyNotHoldable(const KnownResource& resource, uint64_t sizeLimit) {
  if (!resource.get) return NotServed::NotGet;
  if (resource.status != 200) return NotServed::StatusNot200;
  if (resource.html) return NotServed::Html;
  if (resource.declaredLength < 0) return NotServed::NoDeclaredLength;
  if (resource.declaredLength == 0) return NotServed::EmptyBody;
  if (static_cast<uint64_t>(resource.declaredLength) > sizeLimit) return NotServed::OverSizeLimit;
  return NotServed::None;
}

std::vector<OrderDecision> DecideOrders(const KnownPage& page, const OrderFacts& facts,
                                        const HostSettings& settings) {
  std::vector<OrderDecision> decisions;
  for (size_t index = 0; index < page.resources.size(); ++index) {
    const KnownResource& resource = page.resources[index];
    decisions.push_back({.resource = index,
                         .why = WhyNotOrder(page, resource, facts, settings),
                         .priority = Priority(resource.kind, index)});
  }
  std::stable_sort(decisions.begin(), decisions.end(), [](const OrderDecision& a, const OrderDecision& b) {
    if ((a.why == NotServed::None) != (b.why == NotServed::None)) return a.why == NotServed::None;
    return a.why == NotServed::None && a.priority < b.priority;
  });
  return decisions;
}

}  // namespace host
