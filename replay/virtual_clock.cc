#include "replay/virtual_clock.h"

#include <algorithm>

namespace replay {

void VirtualClock::PostDelayed(int64_t delayUs, std::function<void()> task) {
  tasks_.emplace(std::pair(nowUs_ + std::max<int64_t>(delayUs, 0), posted_++), std::move(task));
}

void VirtualClock::Run() {
  while (!tasks_.empty()) {
    const auto next = tasks_.extract(tasks_.begin());
    nowUs_ = next.key().first;
    next.mapped()();
  }
}

void VirtualClock::AdvanceTo(int64_t timeUs) {
  nowUs_ = std::max(nowUs_, timeUs);
}

}  // namespace replay
