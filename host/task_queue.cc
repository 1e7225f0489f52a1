#include "host/task_queue.h"

namespace host {

TaskId TaskQueue::Add(int64_t dueUs, std::function<void()> task) {
  const TaskId id = ++lastId_;
  tasks_.emplace(std::pair(dueUs, id), std::move(task));
  dueUs_.emplace(id, dueUs);
  return id;
}

std::function<void()> TaskQueue::Remove(TaskId id) {
  const auto due = dueUs_.find(id);
  if (due == dueUs_.end()) return nullptr;
  auto removed = tasks_.extract({due->second, id});
  dueUs_.erase(due);
  return std::move(removed.mapped());
}

std::optional<int64_t> TaskQueue::NextDueUs() const {
  if (tasks_.empty()) return std::nullopt;
  return tasks_.begin()->first.first;
}

std::function<void()> TaskQueue::TakeNext() {
  auto next = tasks_.extract(tasks_.begin());
  dueUs_.erase(next.key().second);
  return std::move(next.mapped());
}

}  // namespace host
