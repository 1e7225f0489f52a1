#include "live/proxy/front/front_server.h"

#include <unistd.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <map>
#include <stdexcept>
#include <utility>

#include "host/task_scope.h"
#include "live/proxy/front/browser_connection.h"
#include "live/proxy/front/channel.h"
#include "live/proxy/front/peer_owner.h"
#include "live/proxy/front/request_head.h"

namespace live {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr int64_t kLookAtClockUs = 250'000;
constexpr int64_t kAcceptAgainUs = 100'000;

tcp::endpoint EndpointFor(const FrontSettings& settings) {
  Error error;
  const auto address = asio::ip::make_address(settings.address, error);
  if (error) {
    throw std::runtime_error("the address to listen at must be numeric, such as 127.0.0.1 or ::1, got '" +
                             settings.address + "'");
  }
  if (!address.is_loopback() && !settings.listenAnywhere) {
    throw std::runtime_error(
        "'" + settings.address +
        "' can be reached from other machines; listen at 127.0.0.1, or allow it explicitly");
  }
  if (!address.is_loopback() && settings.password.empty()) {
    throw std::runtime_error("to listen at '" + settings.address +
                             "', which can be reached from other machines, "
                             "a password must be set");
  }
  return {address, settings.port};
}

std::string TextFor(const tcp::endpoint& endpoint) {
  return ToText({.host = endpoint.address().to_string(), .port = endpoint.port()}, 0);
}

}  // namespace

class FrontServer::Impl {
 public:
  Impl(EventLoop& loop, RequestHandler& handler, const FrontSettings& settings, FrontObserver observer)
      : front_{.loop = loop,
               .handler = handler,
               .settings = settings,
               .observer = std::move(observer),
               .resolver = Resolver(loop),
               .interceptor = Interceptor(settings),
               .self = EndpointFor(settings),
               .replace = [this](const Channel* old,
                                 const std::shared_ptr<Channel>& next) { Replace(old, next); },
               .remove = [this](const Channel* channel) { Remove(channel); }},
        acceptor_(loop.Io()),
        acceptAgain_(loop),
        clock_(loop) {
    Listen();
    Accept();
    LookAtClock();
  }

  ~Impl() {
    *alive_ = false;
    Error ignored;
    acceptor_.close(ignored);
    for (const auto& [key, channel] : std::exchange(channels_, {})) channel->Close();
  }

  const tcp::endpoint& Self() const { return front_.self; }
  size_t ChannelCount() const { return channels_.size(); }

 private:
  void Listen() {
    Error error;
    acceptor_.open(front_.self.protocol(), error);
    if (!error) acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error && front_.self.address().is_v6()) acceptor_.set_option(asio::ip::v6_only(true), error);
    if (!error) acceptor_.bind(front_.self, error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
      throw std::runtime_error("cannot listen at " + TextFor(front_.self) + ": " + error.message());
    }
    front_.self = acceptor_.local_endpoint();
  }

  // At the limit, further connections wait in the kernel's queue.
  void Accept() {
    if (accepting_ || channels_.size() >= front_.settings.maxConnections) return;
    accepting_ = true;
    acceptor_.async_accept([this, alive = alive_](const Error& error, Socket socket) {
      if (!*alive) return;
      accepting_ = false;
      if (error) {
        front_.Tell("a connection could not be accepted: " + error.message());
        acceptAgain_.Start(kAcceptAgainUs, [this] { Accept(); });
        return;
      }
      Add(std::move(socket));
      Accept();
    });
  }

  void Add(Socket socket) {
    Error error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    if (error) return;  // it is gone already
    if (peer.address().is_loopback() && front_.settings.ownUserOnly) {
      const auto owner = OwnerOfPeer(peer, front_.self);
      if (owner != geteuid()) {
        front_.Tell(owner ? "a connection of the user with the id " + std::to_string(*owner) + " was refused"
                          : "a connection was refused because its user cannot be determined");
        return;
      }
    }
    socket.set_option(tcp::no_delay(true), error);
    const auto connection =
        std::make_shared<BrowserConnection>(front_, MakePlainStream(std::move(socket)), "");
    channels_[connection.get()] = connection;
    connection->Start();
  }

  void Replace(const Channel* old, const std::shared_ptr<Channel>& next) {
    channels_.erase(old);
    channels_[next.get()] = next;
    next->Start();
  }

  void Remove(const Channel* channel) {
    channels_.erase(channel);
    Accept();
  }

  void LookAtClock() {
    const int64_t nowUs = front_.NowUs();
    const auto channels = channels_;  // which may end meanwhile
    for (const auto& [key, channel] : channels) channel->LookAtClock(nowUs);
    clock_.Start(kLookAtClockUs, [this] { LookAtClock(); });
  }

  FrontContext front_;
  tcp::acceptor acceptor_;
  bool accepting_ = false;
  host::Timer acceptAgain_, clock_;
  std::map<const Channel*, std::shared_ptr<Channel>> channels_;  // at most maxConnections
  const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

FrontServer::FrontServer(EventLoop& loop, RequestHandler& handler, const FrontSettings& settings,
                         FrontObserver observer)
    : impl_(std::make_unique<Impl>(loop, handler, settings, std::move(observer))) {}

FrontServer::~FrontServer() = default;

uint16_t FrontServer::Port() const {
  return impl_->Self().port();
}

std::string FrontServer::Address() const {
  return TextFor(impl_->Self());
}

size_t FrontServer::ConnectionCount() const {
  return impl_->ChannelCount();
}

}  // namespace live
