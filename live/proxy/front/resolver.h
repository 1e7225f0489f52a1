// Resolves names to addresses on threads of its own, because the system's resolver blocks.
#ifndef LIVE_PROXY_FRONT_RESOLVER_H_
#define LIVE_PROXY_FRONT_RESOLVER_H_

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "live/loop/event_loop.h"

namespace live {

class Resolver {
 public:
  using Endpoints = std::vector<boost::asio::ip::tcp::endpoint>;

  explicit Resolver(EventLoop& loop);
  // Waits until running lookups have ended, without a call to their `done`.
  ~Resolver();

  // The host is a name or a numeric address (IPv6 without brackets). `done` is called on the loop's thread,
  // never from inside this function, with nothing if there is no such name.
  void Resolve(const std::string& host, uint16_t port, std::function<void(const Endpoints&)> done);

 private:
  EventLoop& loop_;
  boost::asio::thread_pool threads_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_RESOLVER_H_
