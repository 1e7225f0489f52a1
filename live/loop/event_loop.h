// The only thread of the live side: it runs tasks by time, as an Executor does, and waits for sockets. It is
// the plugin's command thread.
#ifndef LIVE_LOOP_EVENT_LOOP_H_
#define LIVE_LOOP_EVENT_LOOP_H_

#include <functional>
#include <memory>

#include "host/executor.h"

namespace boost::asio {
class io_context;
}

namespace live {

// Everything except Stop and PostFromAnywhere must be called on the thread that calls Run, or before Run.
class EventLoop final : public host::Executor {
 public:
  EventLoop();
  ~EventLoop() override;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Microseconds of a clock that never goes back.
  base::Time Now() const override;
  host::TaskId PostDelayed(int64_t delayUs, std::function<void()> task) override;
  void CancelTask(host::TaskId id) override;

  // Until Unwatch, calls `ready` each time the descriptor can be read or written, depending on what is asked
  // for. Another call replaces the first one. Call Unwatch before closing the descriptor. Throws, and watches
  // nothing, if the kernel has no room for it.
  using Ready = std::function<void(bool readable, bool writable)>;
  void Watch(int descriptor, bool forReading, bool forWriting, Ready ready);
  void Unwatch(int descriptor);

  // Runs until Stop, or until there is nothing left to wait for.
  void Run();
  void Stop();                                        // any thread
  void PostFromAnywhere(std::function<void()> task);  // any thread

  // For code that has its own sockets.
  boost::asio::io_context& Io();

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace live

#endif  // LIVE_LOOP_EVENT_LOOP_H_
