// A host::Transport to real servers: HTTP/1.1 and HTTP/2 with libcurl, on the event loop's sockets and
// timers. Certificates are always verified, redirects are not followed, and bodies are not decoded.
#ifndef LIVE_TRANSPORT_CURL_TRANSPORT_H_
#define LIVE_TRANSPORT_CURL_TRANSPORT_H_

#include <cstdint>
#include <memory>
#include <string>

#include "host/settings.h"
#include "host/transport.h"
#include "live/loop/event_loop.h"
#include "live/transport/upstream_settings.h"

namespace live {

struct ConnectionCounts {
  uint64_t opened = 0;        // in all
  uint64_t preconnected = 0;  // of these, before somebody needed them
  uint64_t unused = 0;        // of those, closed without use
};

// Loop's thread. The loop must outlive it. Uploaded bodies are read from inside libcurl, so UploadBody::Read
// must not call the transport.
class CurlTransport final : public host::Transport {
 public:
  CurlTransport(EventLoop& loop, const host::HostSettings& settings, const UpstreamSettings& upstream);
  // Ends every transfer without another call to its client.
  ~CurlTransport() override;
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  host::TransferId Start(const host::TransferRequest& request, host::TransferClient& client) override;
  void SetUrgency(host::TransferId id, host::Urgency urgency) override;
  void SetReading(host::TransferId id, bool reading) override;
  host::TransferReport Cancel(host::TransferId id) override;
  // When many connections are being set up for nobody already, it waits until one stands. Beyond
  // UpstreamSettings::maxPlannedPreconnects the oldest plan is dropped.
  void Preconnect(const std::string& url, size_t count, net::URLRequestContext* context) override;

  ConnectionCounts Connections() const;

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace live

#endif  // LIVE_TRANSPORT_CURL_TRANSPORT_H_
