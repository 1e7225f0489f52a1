// The state of each connection of a browser, and the state that all connections share. Loop's thread.
#ifndef LIVE_PROXY_FRONT_CHANNEL_H_
#define LIVE_PROXY_FRONT_CHANNEL_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "live/loop/event_loop.h"
#include "live/proxy/front/front_settings.h"
#include "live/proxy/front/interceptor.h"
#include "live/proxy/front/resolver.h"
#include "live/proxy/front/stream.h"
#include "live/proxy/request_handler.h"

namespace live {

// A connection that carries either requests and responses, or a tunnel. Pending operations keep it alive as
// well, so it may outlive the server; once it is closed, it must not use the shared state.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  virtual ~Channel() = default;

  virtual void Start() = 0;
  // Ends it at once, without a call to the server.
  virtual void Close() = 0;
  // Called regularly, so that it can end what takes too long.
  virtual void LookAtClock(int64_t nowUs) = 0;
};

// Lives as long as the server.
struct FrontContext {
  EventLoop& loop;
  RequestHandler& handler;
  const FrontSettings settings;
  const FrontObserver observer;
  Resolver resolver;
  Interceptor interceptor;
  boost::asio::ip::tcp::endpoint self;  // where the server listens

  // Replaces a connection by another one, or removes it.
  std::function<void(const Channel* old, std::shared_ptr<Channel> next)> replace;
  std::function<void(const Channel* channel)> remove;

  // A client has refused our certificate for the host.
  void CertificateRefused(const std::string& host) {
    interceptor.Except(host);
    Tell("a client does not accept this proxy's certificate for " + host +
         ", which is tunnelled from now on");
  }
  int64_t NowUs() const { return loop.Now().ToInternalValue(); }
  void Tell(const std::string& message) const {
    if (observer.onMessage) observer.onMessage(message);
  }
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_CHANNEL_H_
