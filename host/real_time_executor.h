// An executor in real time. The thread that calls Run is the command thread. Any thread may post tasks.
#ifndef HOST_REAL_TIME_EXECUTOR_H_
#define HOST_REAL_TIME_EXECUTOR_H_

#include <condition_variable>
#include <functional>
#include <mutex>

#include "host/executor.h"
#include "host/task_queue.h"

namespace host {

class RealTimeExecutor final : public Executor {
 public:
  // Microseconds of the system's monotonic clock.
  base::Time Now() const override;
  TaskId PostDelayed(int64_t delayUs, std::function<void()> task) override;
  void CancelTask(TaskId id) override;

  // Runs tasks when they are due, until Stop. The remaining tasks are kept for the next call.
  void Run();
  // Makes Run return after its current task, or the next Run return at once. Any thread.
  void Stop();

 private:
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  TaskQueue tasks_;
  bool stopping_ = false;
};

}  // namespace host

#endif  // HOST_REAL_TIME_EXECUTOR_H_
