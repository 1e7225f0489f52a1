// The tasks that an executor has yet to run, by time and then by order of posting. Used by every Executor;
// one thread at a time.
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
  // Takes a task out for the caller to drop, who must hold no lock then: what it has captured may post others
  // when it is destroyed. Empty for an unknown id.
  std::function<void()> Remove(TaskId id);

  // When the next task is due; nothing when there is none.
  std::optional<int64_t> NextDueUs() const;
  // Takes the next task out, to be run by the caller. There must be one.
  std::function<void()> TakeNext();

 private:
  TaskId lastId_ = 0;
  std::map<std::pair<int64_t, TaskId>, std::function<void()>> tasks_;
  std::map<TaskId, int64_t> dueUs_;
};

}  // namespace host

#endif  // HOST_TASK_QUEUE_H_
