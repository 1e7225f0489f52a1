// Time and tasks as the host needs them: a program gives it a thread and a clock, a simulation a queue of
// events.
#ifndef HOST_EXECUTOR_H_
#define HOST_EXECUTOR_H_

#include <cstdint>
#include <functional>

#include "base/time/time.h"

namespace host {

// Names a task that waits to be run; never 0, and never used again.
using TaskId = uint64_t;

// Runs tasks one at a time, in the order of their times and, at one time, in the order in which they were
// posted. That thread is the plugin's command thread, and everything in host/ that takes an Executor is used
// on it.
class Executor {
 public:
  virtual ~Executor() = default;

  virtual base::Time Now() const = 0;
  // Runs the task `delayUs` microseconds (0 or more) from now, never inside this call.
  virtual TaskId PostDelayed(int64_t delayUs, std::function<void()> task) = 0;
  // Drops a task that has not begun. Any other id is ignored.
  virtual void CancelTask(TaskId id) = 0;
};

}  // namespace host

#endif  // HOST_EXECUTOR_H_
