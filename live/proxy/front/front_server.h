// Speaks HTTP/1.1 with the browser, as a forward proxy does, and has a RequestHandler answer what it is asked
// for. CONNECT opens tunnels. Loop's thread.
#ifndef LIVE_PROXY_FRONT_FRONT_SERVER_H_
#define LIVE_PROXY_FRONT_FRONT_SERVER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "live/loop/event_loop.h"
#include "live/proxy/front/front_settings.h"
#include "live/proxy/request_handler.h"

namespace live {

// It brings sockets of its own: Asio's, on the context that the loop already runs on, so that there is one
// wait for everything. Messages are read by Beast's parser, which is told what to read and when; the reading
// and writing itself stays here, because back pressure in both directions decides when it may go on.
class FrontServer {
 public:
  // Listens from now on. Throws std::runtime_error with a message for the user when it cannot, or must not.
  // The loop and the handler must outlive it.
  FrontServer(EventLoop& loop, RequestHandler& handler, const FrontSettings& settings,
              FrontObserver observer = {});
  // Closes every connection, and cancels their loads. Waits for a name that is being resolved.
  ~FrontServer();
  FrontServer(const FrontServer&) = delete;
  FrontServer& operator=(const FrontServer&) = delete;

  uint16_t Port() const;
  std::string Address() const;     // with the port: "127.0.0.1:8080", "[::1]:8080"
  size_t ConnectionCount() const;  // tunnels among them

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_FRONT_SERVER_H_
