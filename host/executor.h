// The time and the tasks of the host. A program implements it with a thread and a clock, a simulation with a
// queue of events.
#ifndef HOST_EXECUTOR_H_
#define HOST_EXECUTOR_H_

#include <cstdint>
#include <functional>

#include "base/time/time.h"

namespace host {

// Identifies a task that waits to be run. Never 0, and never used twice.
using TaskId = uint64_t;

// Runs tasks one at a time, ordered by their times; tasks with the same time run in the order in which they
// were posted. Its thread is the plugin's command thread, and everything in host/ that takes an Executor must
// be used on it.
class Executor {
 public:
  virtual ~Executor() = default;

  virtual base::Time Now() const = 0;
  // Runs the task after `delayUs` microseconds (0 or more), never inside this call.
  virtual TaskId PostDelayed(int64_t delayUs, std::function<void()> task) = 0;
  // Cancels a task that has not begun. Other ids are ignored.
  virtual void CancelTask(TaskId id) = 0;
};

}  // namespace host

#endif  // HOST_EXECUTOR_H_
