// Resolves names to addresses on threads of its own, because the system's resolver blocks.
#ifndef LIVE_PROXY_FRONT_RESOLVER_H_
#define LIVE_PROXY_FRONT_RESOLVER_H_

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live/loop/event_loop.h"

namespace live {

class Resolver {
 public:
  using Endpoints = std::vector<boost::asio::ip::tcp::endpoint>;
  // Blocks; called on any thread.
  using LookUp = Endpoints (*)(const std::string& host, uint16_t port);
  static Endpoints AskSystem(const std::string& host, uint16_t port);

  explicit Resolver(EventLoop& loop, LookUp lookUp = AskSystem);
  // Does not wait for running lookups, which nothing can interrupt: their threads end by themselves, without
  // a call to `done`.
  ~Resolver();
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  // The host is a name or a numeric address (IPv6 without brackets). `done` is called on the loop's thread,
  // never from inside this function, with nothing if there is no such name.
  void Resolve(const std::string& host, uint16_t port, std::function<void(const Endpoints&)> done);

 private:
  struct Shared;

  EventLoop& loop_;
  const std::shared_ptr<Shared> shared_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_RESOLVER_H_
