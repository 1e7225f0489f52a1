#include "live/proxy/front/resolver.h"

#include <netdb.h>

#include <boost/asio/post.hpp>
#include <cstring>
#include <memory>
#include <utility>

namespace live {
namespace {

using boost::asio::ip::tcp;

// Names that are slow to resolve keep one thread busy each, and the others wait for the rest.
constexpr size_t kThreads = 4;

Resolver::Endpoints LookUp(const std::string& host, uint16_t port) {
  const addrinfo hints{.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG, .ai_socktype = SOCK_STREAM};
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  Resolver::Endpoints endpoints;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    tcp::endpoint endpoint;
    if (entry->ai_addrlen > endpoint.capacity()) continue;
    std::memcpy(endpoint.data(), entry->ai_addr, entry->ai_addrlen);
    endpoint.resize(entry->ai_addrlen);
    endpoints.push_back(endpoint);
  }
  return endpoints;
}

}  // namespace

Resolver::Resolver(EventLoop& loop) : loop_(loop), threads_(kThreads) {}

Resolver::~Resolver() {
  threads_.stop();
  threads_.join();
}

void Resolver::Resolve(const std::string& host, uint16_t port, std::function<void(const Endpoints&)> done) {
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(host, error);
  if (!error) {
    loop_.PostDelayed(
        0, [endpoint = tcp::endpoint(address, port), done = std::move(done)] { done({endpoint}); });
    return;
  }
  boost::asio::post(threads_, [this, host, port, done = std::move(done)]() mutable {
    loop_.PostFromAnywhere([endpoints = LookUp(host, port), done = std::move(done)] { done(endpoints); });
  });
}

}  // namespace live
