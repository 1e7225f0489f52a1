#include "live/proxy/front/dialer.h"

#include <chrono>
#include <utility>

#include "live/proxy/front/own_address.h"

namespace live {
namespace {

// As browsers wait before they try the next address.
constexpr std::chrono::milliseconds kBetweenAttempts(250);

}  // namespace

Dialer::Dialer(FrontContext& front) : front_(front), timer_(front.loop.Io()) {}

void Dialer::Dial(const HostPort& target, AddressRule mayReach, Done done) {
  const HostPort to = Redirected(target, front_.settings.connectTo);
  done_ = std::move(done);
  name_ = ToText(target, 0);
  front_.resolver.Resolve(
      to.host, to.port,
      [self = shared_from_this(), mayReach = std::move(mayReach)](const Resolver::Endpoints& endpoints) {
        if (!self->done_) return;
        self->endpoints_ = endpoints;
        if (mayReach && self->DropForbidden(mayReach)) return;
        self->TryNext();
      });
}

void Dialer::Cancel() {
  done_ = nullptr;
  timer_.cancel();
  for (const auto& attempt : std::exchange(attempts_, {})) attempt->close();
}

void Dialer::End(std::variant<Socket, Refusal> result) {
  const Done done = std::exchange(done_, nullptr);
  Cancel();
  done(std::move(result));
}

// Whether none is left; then this is over.
bool Dialer::DropForbidden(const AddressRule& mayReach) {
  const size_t dropped = std::erase_if(
      endpoints_, [&](const auto& endpoint) { return !mayReach(endpoint.address().to_string()); });
  if (dropped == 0 || !endpoints_.empty()) return false;
  End(PrivateAddressRefusal(name_));
  return true;
}

void Dialer::TryNext() {
  if (endpoints_.empty())
    return End(Refusal{502, "The name of the server " + name_ + " could not be resolved."});
  if (next_ == endpoints_.size()) {
    if (failed_ < next_) return;  // the last attempts go on
    return End(Refusal{502, "The server " + name_ + " could not be reached: " + lastError_.message() + "."});
  }
  const auto endpoint = endpoints_[next_++];
  if (LeadsTo(endpoint, front_.self)) {
    return End(Refusal{508, "The server " + name_ + " is this proxy itself."});
  }
  const auto socket = std::make_shared<Socket>(front_.loop.Io());
  attempts_.push_back(socket);
  socket->async_connect(endpoint, [self = shared_from_this(), socket](const Error& error) {
    if (!self->done_) return;
    if (!error) {
      std::erase(self->attempts_, socket);
      return self->End(std::move(*socket));
    }
    ++self->failed_;
    self->lastError_ = error;
    self->TryNext();
  });
  timer_.expires_after(kBetweenAttempts);
  timer_.async_wait([self = shared_from_this()](const Error& error) {
    if (!error && self->done_ && self->next_ < self->endpoints_.size()) self->TryNext();
  });
}

}  // namespace live
