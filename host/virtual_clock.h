// The clock and event queue of a simulation: time stands still while a task runs and jumps to the next one.
// One thread.
#ifndef HOST_VIRTUAL_CLOCK_H_
#define HOST_VIRTUAL_CLOCK_H_

#include <cstdint>
#include <functional>

#include "host/executor.h"
#include "host/task_queue.h"

namespace host {

class VirtualClock final : public Executor {
 public:
  // Microseconds since the clock was made.
  int64_t NowUs() const { return nowUs_; }

  base::Time Now() const override { return base::Time::FromInternalValue(nowUs_); }
  TaskId PostDelayed(int64_t delayUs, std::function<void()> task) override;
  void CancelTask(TaskId id) override { tasks_.Remove(id); }

  // Runs every task, and those that they post, until none is left.
  void Run();
  // The same for the tasks that are due within `durationUs`; the time is then that much later.
  void RunFor(int64_t durationUs);

  // Moves the time on, to `timeUs` at least. Only while no task waits.
  void AdvanceTo(int64_t timeUs);

 private:
  int64_t nowUs_ = 0;
  TaskQueue tasks_;
};

}  // namespace host

#endif  // HOST_VIRTUAL_CLOCK_H_
