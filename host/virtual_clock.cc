#include "host/virtual_clock.h"

#include <algorithm>
#include <utility>

namespace host {

TaskId VirtualClock::PostDelayed(int64_t delayUs, std::function<void()> task) {
  return tasks_.Add(nowUs_ + std::max<int64_t>(delayUs, 0), std::move(task));
}

void VirtualClock::Run() {
  while (const auto dueUs = tasks_.NextDueUs()) {
    nowUs_ = *dueUs;
    tasks_.TakeNext()();
  }
}

void VirtualClock::RunFor(int64_t durationUs) {
  const int64_t endUs = nowUs_ + durationUs;
  for (auto dueUs = tasks_.NextDueUs(); dueUs && *dueUs <= endUs; dueUs = tasks_.NextDueUs()) {
    nowUs_ = *dueUs;
    tasks_.TakeNext()();
  }
  nowUs_ = endUs;
}

void VirtualClock::AdvanceTo(int64_t timeUs) {
  nowUs_ = std::max(nowUs_, timeUs);
}

}  // namespace host
