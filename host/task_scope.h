// Tasks that belong to an object: they do nothing once it is gone. Executor's thread.
#ifndef HOST_TASK_SCOPE_H_
#define HOST_TASK_SCOPE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "host/executor.h"

namespace host {

// A member of the object whose tasks it posts. The executor must outlive it.
class TaskScope {
 public:
  explicit TaskScope(Executor& executor) : executor_(executor) {}
  TaskScope(const TaskScope&) = delete;
  TaskScope& operator=(const TaskScope&) = delete;

  void Post(std::function<void()> task, int64_t delayUs = 0) {
    executor_.PostDelayed(delayUs, [alive = std::weak_ptr<bool>(alive_), task = std::move(task)] {
      if (!alive.expired()) task();
    });
  }

 private:
  Executor& executor_;
  const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// One task at a time, which can be cancelled. The executor must outlive it.
class Timer {
 public:
  explicit Timer(Executor& executor) : executor_(executor) {}
  ~Timer() { Stop(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Replaces the waiting task, if there is one.
  void Start(int64_t delayUs, std::function<void()> task) {
    Stop();
    waiting_ = executor_.PostDelayed(delayUs, [this, task = std::move(task)] {
      waiting_ = 0;
      task();  // may destroy the timer
    });
  }
  void Stop() {
    if (const TaskId id = std::exchange(waiting_, 0); id != 0) executor_.CancelTask(id);
  }

 private:
  Executor& executor_;
  TaskId waiting_ = 0;
};

}  // namespace host

#endif  // HOST_TASK_SCOPE_H_
