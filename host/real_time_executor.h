// An executor on the wall clock: the thread that calls Run is the command thread. Posting is for any thread.
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

  // Runs tasks as they come due, until Stop. What is left then stays for the next call.
  void Run();
  // Makes Run return after the task that it is running, or the next Run return at once. Any thread.
  void Stop();

 private:
  std::mutex mutex_;  // for everything below
  std::condition_variable changed_;
  TaskQueue tasks_;
  bool stopping_ = false;
};

}  // namespace host

#endif  // HOST_REAL_TIME_EXECUTOR_H_
