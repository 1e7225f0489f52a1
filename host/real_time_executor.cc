#include "host/real_time_executor.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace host {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

int64_t NowUs() {
  return std::chrono::duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
}

}  // namespace

base::Time RealTimeExecutor::Now() const {
  return base::Time::FromInternalValue(NowUs());
}

TaskId RealTimeExecutor::PostDelayed(int64_t delayUs, std::function<void()> task) {
  const std::lock_guard hold(mutex_);
  changed_.notify_one();
  return tasks_.Add(NowUs() + std::max<int64_t>(delayUs, 0), std::move(task));
}

void RealTimeExecutor::CancelTask(TaskId id) {
  std::function<void()> dropped;  // after the lock
  const std::lock_guard hold(mutex_);
  dropped = tasks_.Remove(id);
}

void RealTimeExecutor::Run() {
  std::unique_lock hold(mutex_);
  while (!stopping_) {
    const std::optional<int64_t> dueUs = tasks_.NextDueUs();
    if (!dueUs) {
      changed_.wait(hold);
    } else if (*dueUs > NowUs()) {
      changed_.wait_until(hold, Clock::time_point(microseconds(*dueUs)));
    } else {
      std::function<void()> task = tasks_.TakeNext();
      hold.unlock();
      task();
      task = nullptr;  // what it has captured may post as well
      hold.lock();
    }
  }
  stopping_ = false;
}

void RealTimeExecutor::Stop() {
  const std::lock_guard hold(mutex_);
  stopping_ = true;
  changed_.notify_one();
}

}  // namespace host
