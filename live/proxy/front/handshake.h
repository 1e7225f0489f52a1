// Handles a CONNECT that is intercepted: TLS with the browser in the server's place, or a tunnel if the
// browser does not speak TLS. Loop's thread.
#ifndef LIVE_PROXY_FRONT_HANDSHAKE_H_
#define LIVE_PROXY_FRONT_HANDSHAKE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "live/proxy/front/channel.h"
#include "live/proxy/front/request_head.h"
#include "live/proxy/front/stream.h"
#include "live/proxy/front/tls_server_stream.h"

namespace live {

class Handshake final : public Channel {
 public:
  // `toBrowser` is the answer to CONNECT. `read` contains the bytes that the browser has already sent.
  Handshake(FrontContext& front, std::unique_ptr<Stream> browser, HostPort target, std::string toBrowser,
            std::string read);

  void Start() override;
  void Close() override;
  void LookAtClock(int64_t nowUs) override;

 private:
  void Look();
  // What the head of a request in the clear, which has been read, says of where it may go.
  AddressRule AddressesForHttp() const;
  void BeginTunnel(AddressRule mayReach);
  void BeginTls();
  void TlsStands();
  void End();

  FrontContext& front_;  // not used when closed
  std::unique_ptr<Stream> browser_;
  std::unique_ptr<TlsServerStream> tls_;  // instead of it, from BeginTls on
  const HostPort target_;
  const std::string toBrowser_;
  std::string read_;
  std::array<char, 4096> chunk_;
  int64_t lastUs_;
  bool closed_ = false;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_HANDSHAKE_H_
