// The waiting tasks of an executor, ordered by time and then by order of posting. Used by every Executor. One
// thread at a time.
#ifndef HOST_TASK_QUEUE_H_
#define HOST_TASK_QUEUE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "host/executor.h"

namespace host {

class TaskQueue {
 public:
  // `dueUs`: on the executor's clock, in microseconds.
  TaskId Add(int64_t dueUs, std::function<void()> task);
  // Removes a task and returns it, or an empty one for an unknown id. The caller must hold no lock when it
  // destroys the task, because what the task has captured may post other tasks.
  std::function<void()> Remove(TaskId id);

  // When the next task is due, if there is one.
  std::optional<int64_t> NextDueUs() const;
  // Removes the next task and returns it, for the caller to run. There must be one.
  std::function<void()> TakeNext();

 private:
  TaskId lastId_ = 0;
  std::map<std::pair<int64_t, TaskId>, std::function<void()>> tasks_;
  std::map<TaskId, int64_t> dueUs_;
};

}  // namespace host

#endif  // HOST_TASK_QUEUE_H_
