// Connects to a server by name. Loop's thread.
#ifndef LIVE_PROXY_FRONT_DIALER_H_
#define LIVE_PROXY_FRONT_DIALER_H_

#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "live/proxy/front/channel.h"
#include "live/proxy/front/request_head.h"

namespace live {

// Tries the addresses of a name one after the other, each a moment after the one before, and uses the first
// connection that is established. An address that drops packets therefore delays it only by that moment.
class Dialer : public std::enable_shared_from_this<Dialer> {
 public:
  using Done = std::function<void(std::variant<Socket, Refusal>)>;

  explicit Dialer(FrontContext& front);

  // `done` is called once, never from inside this function and not after Cancel. Only addresses that the rule
  // allows are tried.
  void Dial(const HostPort& target, AddressRule mayReach, Done done);
  void Cancel();

 private:
  bool DropForbidden(const AddressRule& mayReach);
  void TryNext();
  void End(std::variant<Socket, Refusal> result);

  FrontContext& front_;  // not used after the end
  boost::asio::steady_timer timer_;
  Done done_;  // empty after the end
  std::string name_;
  Resolver::Endpoints endpoints_;
  size_t next_ = 0;
  size_t failed_ = 0;
  Error lastError_;
  std::vector<std::shared_ptr<Socket>> attempts_;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_DIALER_H_
