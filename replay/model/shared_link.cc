#include "replay/model/shared_link.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/link_policy.h"

namespace replay {
namespace {

constexpr std::array<host::Urgency, 2> kUrgencies = {host::Urgency::Browser, host::Urgency::Preload};

// How many bytes may be left over because times are rounded to whole microseconds.
constexpr double kRest = 1e-3;

}  // namespace

SharedLink::SharedLink(host::VirtualClock& clock, double bytesPerUs, const host::HostSettings& settings)
    : clock_(clock),
      bytesPerUs_(bytesPerUs),
      settings_(settings),
      settledUs_(clock.NowUs()),
      wakeUp_(clock) {}

double SharedLink::RateOf(host::Urgency urgency) const {
  const size_t browser = classes_[static_cast<size_t>(host::Urgency::Browser)].ends.size();
  const size_t preloads = classes_[static_cast<size_t>(host::Urgency::Preload)].ends.size();
  const double share = preloads > 0 ? host::PreloadsShareOfLink(settings_, browser) : 0;
  if (urgency == host::Urgency::Preload) return bytesPerUs_ * share / static_cast<double>(preloads);
  return bytesPerUs_ * (1 - share) / static_cast<double>(browser);
}

// Resets a class without transfers, so that equal transfers take equal time whatever was rounded before.
void SharedLink::StartOver(Class& flows) {
  if (flows.ends.empty()) flows.progress = 0;
}

// Updates the progress of both classes.
void SharedLink::Settle() {
  const auto elapsedUs = static_cast<double>(clock_.NowUs() - std::exchange(settledUs_, clock_.NowUs()));
  if (elapsedUs == 0) return;
  std::array<double, 2> rates = {};
  for (const host::Urgency urgency : kUrgencies) {
    if (!ClassOf(urgency).ends.empty()) rates[static_cast<size_t>(urgency)] = RateOf(urgency);
  }
  for (const host::Urgency urgency : kUrgencies) {
    ClassOf(urgency).progress += rates[static_cast<size_t>(urgency)] * elapsedUs;
  }
}

// Wakes up when the next transfer is complete, and not before.
void SharedLink::Schedule() {
  double waitUs = -1;
  for (const host::Urgency urgency : kUrgencies) {
    const Class& flows = ClassOf(urgency);
    const double rate = flows.ends.empty() ? 0 : RateOf(urgency);
    if (rate <= 0) continue;
    const double neededUs = std::max(0.0, flows.ends.begin()->first - flows.progress) / rate;
    if (waitUs < 0 || neededUs < waitUs) waitUs = neededUs;
  }
  if (waitUs < 0) return wakeUp_.Stop();
  wakeUp_.Start(static_cast<int64_t>(std::ceil(waitUs)), [this] { Finish(); });
}

void SharedLink::Finish() {
  Settle();
  std::vector<std::function<void()>> done;
  for (const host::Urgency urgency : kUrgencies) {
    Class& flows = ClassOf(urgency);
    while (!flows.ends.empty() && flows.ends.begin()->first <= flows.progress + kRest) {
      const auto flow = flows_.find(flows.ends.begin()->second);
      done.push_back(std::move(flow->second.done));
      flows_.erase(flow);
      flows.ends.erase(flows.ends.begin());
    }
  }
  Schedule();
  for (const auto& call : done) call();
}

void SharedLink::Add(uint64_t id, int64_t bytes, host::Urgency urgency, std::function<void()> done) {
  Settle();
  Class& flows = ClassOf(urgency);
  StartOver(flows);
  const double end = flows.progress + static_cast<double>(bytes);
  flows.ends.emplace(end, id);
  flows_[id] = {urgency, static_cast<double>(bytes), end, std::move(done)};
  Schedule();
}

void SharedLink::SetUrgency(uint64_t id, host::Urgency urgency) {
  const auto found = flows_.find(id);
  if (found == flows_.end() || found->second.urgency == urgency) return;
  Settle();
  Flow& flow = found->second;
  Class& from = ClassOf(flow.urgency);
  Class& to = ClassOf(urgency);
  const double left = std::max(0.0, flow.end - from.progress);
  StartOver(to);
  from.ends.erase({flow.end, id});
  flow.urgency = urgency;
  flow.end = to.progress + left;
  to.ends.emplace(flow.end, id);
  Schedule();
}

int64_t SharedLink::Remove(uint64_t id) {
  const auto found = flows_.find(id);
  if (found == flows_.end()) return 0;
  Settle();
  const Flow& flow = found->second;
  Class& flows = ClassOf(flow.urgency);
  const double left = std::max(0.0, flow.end - flows.progress);
  const double came = flow.bytes - left;
  flows.ends.erase({flow.end, id});
  flows_.erase(found);
  Schedule();
  return static_cast<int64_t>(came);
}

}  // namespace replay
