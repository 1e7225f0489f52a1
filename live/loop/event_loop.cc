#include "live/loop/event_loop.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <map>
#include <optional>
#include <utility>

#include "host/task_queue.h"

namespace live {
namespace {

namespace asio = boost::asio;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

// Between two looks at the sockets.
constexpr int kMostTasksInARow = 100;

int64_t NowUs() {
  return std::chrono::duration_cast<microseconds>(Clock::now().time_since_epoch()).count();
}

}  // namespace

// A descriptor that is watched. Handlers hold it, and look whether it still counts.
struct Watched : std::enable_shared_from_this<Watched> {
  using Descriptor = asio::posix::stream_descriptor;

  Watched(asio::io_context& io, int number) : descriptor(io, number) {}

  void Wait(Descriptor::wait_type type) {
    const bool reading = type == Descriptor::wait_read;
    if (!(reading ? forReading : forWriting) || std::exchange(reading ? readPending : writePending, true))
      return;
    descriptor.async_wait(type,
                          [self = shared_from_this(), type, reading](const boost::system::error_code& error) {
                            (reading ? self->readPending : self->writePending) = false;
                            // Any other error is the kernel's want of room for the wait: who is called for
                            // nothing waits again.
                            if (error == asio::error::operation_aborted || !self->ready) return;
                            if (!(reading ? self->forReading : self->forWriting)) return;
                            const EventLoop::Ready call = self->ready;  // which may end or replace the watch
                            call(reading, !reading);
                            if (self->ready) self->Wait(type);
                          });
  }

  Descriptor descriptor;
  EventLoop::Ready ready;  // empty once it is not watched any more
  bool forReading = false, forWriting = false;
  bool readPending = false, writePending = false;
};

struct EventLoop::Impl {
  // Asio does not promise an order of what is due at one time, so tasks wait in a queue of their own.
  void WakeUpForTasks() {
    if (awake) return;
    const std::optional<int64_t> dueUs = tasks.NextDueUs();
    if (!dueUs) return;
    if (*dueUs <= NowUs()) {  // most of them are, and a timer is a call of the kernel
      awake = true;
      asio::post(io, [this] { RunTasks(); });
      return;
    }
    if (wakeUpUs && *wakeUpUs <= *dueUs) return;
    wakeUpUs = dueUs;
    timer.expires_at(Clock::time_point(microseconds(*dueUs)));  // ends the wait for a later task
    timer.async_wait([this](const boost::system::error_code& error) {
      if (error) return;
      wakeUpUs.reset();
      RunTasks();
    });
  }

  void RunTasks() {
    awake = true;
    const int64_t nowUs = NowUs();
    for (int ran = 0; ran < kMostTasksInARow; ++ran) {
      const std::optional<int64_t> dueUs = tasks.NextDueUs();
      if (!dueUs || *dueUs > nowUs) break;
      tasks.TakeNext()();
    }
    awake = false;
    WakeUpForTasks();
  }

  asio::io_context io{1};
  asio::steady_timer timer{io};
  std::optional<int64_t> wakeUpUs;  // when the timer is due; nothing while it does not wait
  bool awake = false;               // RunTasks is posted, or runs
  host::TaskQueue tasks;
  std::map<int, std::shared_ptr<Watched>> watched;
};

EventLoop::EventLoop() : impl_(std::make_unique<Impl>()) {}

// Sockets first: what the tasks hold may unwatch some.
EventLoop::~EventLoop() {
  while (!impl_->watched.empty()) Unwatch(impl_->watched.begin()->first);
}

base::Time EventLoop::Now() const {
  return base::Time::FromInternalValue(NowUs());
}

host::TaskId EventLoop::PostDelayed(int64_t delayUs, std::function<void()> task) {
  const host::TaskId id = impl_->tasks.Add(NowUs() + std::max<int64_t>(delayUs, 0), std::move(task));
  impl_->WakeUpForTasks();
  return id;
}

void EventLoop::CancelTask(host::TaskId id) {
  impl_->tasks.Remove(id);
}

void EventLoop::Watch(int descriptor, bool forReading, bool forWriting, Ready ready) {
  auto place = impl_->watched.find(descriptor);
  if (place == impl_->watched.end()) {
    place = impl_->watched.emplace(descriptor, std::make_shared<Watched>(impl_->io, descriptor)).first;
  }
  const std::shared_ptr<Watched> watched = place->second;
  watched->forReading = forReading;
  watched->forWriting = forWriting;
  watched->ready = std::move(ready);
  watched->Wait(Watched::Descriptor::wait_read);
  watched->Wait(Watched::Descriptor::wait_write);
}

void EventLoop::Unwatch(int descriptor) {
  const auto found = impl_->watched.find(descriptor);
  if (found == impl_->watched.end()) return;
  const std::shared_ptr<Watched> watched = std::move(found->second);
  impl_->watched.erase(found);
  watched->ready = nullptr;
  watched->descriptor.release();  // cancels the waits, and leaves it open
}

void EventLoop::Run() {
  impl_->io.restart();
  impl_->io.run();
}

void EventLoop::Stop() {
  impl_->io.stop();
}

void EventLoop::PostFromAnywhere(std::function<void()> task) {
  asio::post(impl_->io, std::move(task));
}

asio::io_context& EventLoop::Io() {
  return impl_->io;
}

}  // namespace live
