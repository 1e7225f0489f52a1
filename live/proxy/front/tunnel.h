// Carries bytes between a browser and a server without looking at them. Loop's thread.
#ifndef LIVE_PROXY_FRONT_TUNNEL_H_
#define LIVE_PROXY_FRONT_TUNNEL_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "live/proxy/front/channel.h"
#include "live/proxy/front/dialer.h"
#include "live/proxy/front/request_head.h"
#include "live/proxy/front/stream.h"
#include "live/proxy/front/tls_stream.h"

namespace live {

struct TunnelRequest {
  HostPort target;
  bool secure = false;    // over TLS, with the server's certificate verified
  AddressRule mayReach;   // empty for any address
  std::string toBrowser;  // before the server's bytes, once the server is reached
  std::string toServer;   // before the browser's bytes
  bool explain = true;    // send the browser a response that says so if the server cannot be reached
};

// If one side ends its direction, the proxy ends it towards the other side, and the other direction
// continues.
class Tunnel final : public Channel {
 public:
  Tunnel(FrontContext& front, std::unique_ptr<Stream> browser, TunnelRequest request);

  void Start() override;
  void Close() override;
  void LookAtClock(int64_t nowUs) override;

 private:
  // One of the two directions. It reads again only when it has written what it had read, so that a slow
  // receiver slows down the sender.
  struct Way {
    Stream* from = nullptr;
    Stream* to = nullptr;
    std::string first;  // to be written before what is read
    std::array<char, 16 * 1024> buffer;
    size_t held = 0;  // bytes in the buffer that wait for the server
    bool reading = false;
    bool atEnd = false;  // the sender has ended; the receiver may not know yet
    bool ended = false;
  };

  void Read(Way& way);
  void Write(Way& way, const char* bytes, size_t count);
  void Secure(Socket socket);
  void Reached(std::unique_ptr<Stream> server);
  void Fail(const Refusal& refusal);
  void EndWay(Way& way);
  void CloseBoth(bool reset);
  void End(bool reset);

  FrontContext& front_;  // not used when closed
  TunnelRequest request_;
  std::unique_ptr<Stream> browser_, server_;
  std::unique_ptr<TlsSocket> securing_;  // before it is the server's stream
  std::shared_ptr<Dialer> dialer_;
  Way up_, down_;
  std::string failure_;
  int64_t lastUs_;  // something happened
  bool closed_ = false;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_TUNNEL_H_
