// Time and tasks as the host needs them: a live host gives it a thread and a clock, a simulation a queue of
// events.
#ifndef HOST_EXECUTOR_H_
#define HOST_EXECUTOR_H_

#include <cstdint>
#include <functional>

#include "base/time/time.h"

namespace host {

// Runs tasks one at a time, in the order of their times and, at one time, in the order in which they were
// posted. That thread is the plugin's command thread.
class Executor {
 public:
  virtual ~Executor() = default;

  virtual base::Time Now() const = 0;
  // Runs the task `delayUs` microseconds (0 or more) from now, never inside this call.
  virtual void PostDelayed(int64_t delayUs, std::function<void()> task) = 0;
};

}  // namespace host

#endif  // HOST_EXECUTOR_H_
