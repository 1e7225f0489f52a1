// Settings for connections to servers. They are read once, when the transport is created.
#ifndef LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_
#define LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "net/url_request/url_request_context.h"

namespace live {

struct UpstreamSettings {
  // The PEM file of the certificates to trust; empty for those of the system.
  std::string caFile;
  // The addresses of names, instead of a name lookup: "NAME:PORT:ADDRESS:PORT", with an IPv6 address in
  // brackets.
  std::vector<std::string> connectTo;

  size_t maxConnections = 256;                 // in all; the least recently used idle one is closed
  size_t maxStreams = 100;                     // at a time on one connection that multiplexes
  size_t maxHeaderBytes = size_t{256} * 1024;  // of one response
  size_t maxBufferedBytes =
      size_t{256} * 1024;  // of a body whose client does not read, before the server is slowed
  int64_t connectTimeoutMs = 30'000;

  // For how long a connection that was opened ahead is kept unused.
  int64_t keepPreconnectedMs = 30'000;
  // Calls of Preconnect that wait because many connections are being set up; more drop the oldest one.
  size_t maxPlannedPreconnects = 64;
};

// A request context that says which servers its transfers may reach. Addresses are numeric ("192.0.2.1",
// "2001:db8::1"). Connections that are opened ahead share it; one that nobody owns by a shared pointer opens
// none.
class ConnectPolicy : public net::URLRequestContext, public std::enable_shared_from_this<ConnectPolicy> {
 public:
  // Whether a connection to the address may be opened, or one that exists be used. Asked for each.
  virtual bool MayConnectTo(std::string_view address) const = 0;
  // A transfer's request is about to be sent there.
  virtual void SendsTo(std::string_view /*address*/) const {}
};

}  // namespace live

#endif  // LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_
