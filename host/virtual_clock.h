// The clock and the event queue of a simulation: time stands still while a task runs and then jumps to the
// next task. One thread.
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

  // Runs every task, including those that tasks post, until none is left.
  void Run();
  // Does the same for the tasks that are due within `durationUs`, and advances the time by that much.
  void RunFor(int64_t durationUs);

  // Advances the time to at least `timeUs`. Only while no task waits.
  void AdvanceTo(int64_t timeUs);

 private:
  int64_t nowUs_ = 0;
  TaskQueue tasks_;
};

}  // namespace host

#endif  // HOST_VIRTUAL_CLOCK_H_
