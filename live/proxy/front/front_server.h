// A forward proxy that speaks HTTP/1.1 with the browser and lets a RequestHandler answer the requests.
// CONNECT opens tunnels. Loop's thread.
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

// Its sockets are Asio's, on the context of the loop, so that there is one wait for everything. Beast's
// parser parses the messages, but reading and writing is done here, because back pressure in both directions
// decides when it continues.
class FrontServer {
 public:
  // Starts listening. Throws std::runtime_error with a message for the user if it cannot or must not. The
  // loop and the handler must outlive the server.
  FrontServer(EventLoop& loop, RequestHandler& handler, const FrontSettings& settings,
              FrontObserver observer = {});
  // Closes every connection, and cancels their loads. Waits for a name that is being resolved.
  ~FrontServer();
  FrontServer(const FrontServer&) = delete;
  FrontServer& operator=(const FrontServer&) = delete;

  uint16_t Port() const;
  std::string Address() const;     // with the port: "127.0.0.1:8080", "[::1]:8080"
  size_t ConnectionCount() const;  // including tunnels

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_FRONT_SERVER_H_
