#include "host/preconnect_policy.h"

#include <algorithm>
#include <map>
#include <utility>

#include "host/connection_group.h"
#include "host/order_policy.h"

namespace host {
namespace {

// Two are enough to begin with. Every unused connection costs the server and the link a set-up.
constexpr size_t kMostPerGroup = 2;

struct Group {
  std::string url;                                 // of the resource that is needed first
  std::vector<std::pair<int64_t, int64_t>> waits;  // from when until when, after the page's request
};

// Whether the next visit is likely to request the resource, or a similar one.
bool IsExpected(const KnownPage& page, const KnownResource& resource, const HostSettings& settings) {
  return resource.lastVisit == page.visits || IsSeenOften(page, resource.visitsSeen, settings);
}

// The largest number of them that wait at the same time.
size_t Peak(const std::vector<std::pair<int64_t, int64_t>>& waits) {
  std::vector<std::pair<int64_t, int>> changes;
  for (const auto& [from, until] : waits) {
    changes.emplace_back(from, 1);
    changes.emplace_back(std::max(until, from + 1), -1);
  }
  std::sort(changes.begin(), changes.end());  // at the same time, ends come first
  int now = 0, most = 0;
  for (const auto& [at, change] : changes) most = std::max(most, now += change);
  return static_cast<size_t>(most);
}

}  // namespace

std::vector<ConnectionNeed> DecidePreconnects(const KnownPage& page, const std::vector<bool>& covered,
                                              const HostSettings& settings) {
  std::map<std::string, Group> groups;
  for (size_t index = 0; index < page.resources.size(); ++index) {
    const KnownResource& resource = page.resources[index];
    if (covered[index] || resource.afterLoad || !IsExpected(page, resource, settings)) continue;
    Group& group = groups[ConnectionGroup(resource.url)];
    const bool isFirst = group.waits.empty() ||
                         resource.askedUs < std::min_element(group.waits.begin(), group.waits.end())->first;
    if (isFirst) group.url = resource.url;
    group.waits.emplace_back(resource.askedUs, resource.askedUs + resource.waitedUs);
  }
  std::vector<ConnectionNeed> needs;
  if (!page.redirectsTo.empty()) needs.push_back({.url = page.redirectsTo, .count = 1});
  for (const auto& [key, group] : groups) {
    const auto known = page.groups.find(key);
    if (known == page.groups.end() || !IsSeenOften(page, known->second.visitsSeen, settings)) continue;
    const int64_t firstUs = std::min_element(group.waits.begin(), group.waits.end())->first;
    needs.push_back({.atUs = std::max<int64_t>(firstUs - settings.preconnectLeadMs * 1000, 0),
                     .url = group.url,
                     .count = std::min(Peak(group.waits), kMostPerGroup)});
  }
  std::stable_sort(needs.begin(), needs.end(),
                   [](const ConnectionNeed& a, const ConnectionNeed& b) { return a.atUs < b.atUs; });
  return needs;
}

}  // namespace host
