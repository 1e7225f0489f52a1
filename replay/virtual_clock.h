// The clock and event queue of a simulation: time stands still while a task runs and jumps to the next one.
// One thread.
#ifndef REPLAY_VIRTUAL_CLOCK_H_
#define REPLAY_VIRTUAL_CLOCK_H_

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "host/executor.h"

namespace replay {

class VirtualClock final : public host::Executor {
 public:
  // Microseconds since the clock was made.
  int64_t NowUs() const { return nowUs_; }

  base::Time Now() const override { return base::Time::FromInternalValue(nowUs_); }
  void PostDelayed(int64_t delayUs, std::function<void()> task) override;

  // Runs every task, and those that they post, until none is left.
  void Run();

  // Moves the time on, to `timeUs` at least. Only while no task waits.
  void AdvanceTo(int64_t timeUs);

 private:
  int64_t nowUs_ = 0;
  uint64_t posted_ = 0;
  std::map<std::pair<int64_t, uint64_t>, std::function<void()>> tasks_;  // by time, then by order of posting
};

}  // namespace replay

#endif  // REPLAY_VIRTUAL_CLOCK_H_
