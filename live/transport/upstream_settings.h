// How servers are reached. Read once, when the transport is made.
#ifndef LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_
#define LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/url_request/url_request_context.h"

namespace live {

struct UpstreamSettings {
  // Certificates to trust instead of the system's: the path of a PEM file; empty for the system's.
  std::string caFile;
  // Where names lead instead of to their own addresses: "NAME:PORT:ADDRESS:PORT", an address of IPv6 in
  // brackets.
  std::vector<std::string> connectTo;

  size_t maxConnections = 256;           // in all; the least recently used idle one is closed
  size_t maxStreams = 100;               // at a time on one connection that multiplexes
  size_t maxHeaderBytes = 256 * 1024;    // of one response
  size_t maxBufferedBytes = 256 * 1024;  // of a body whose client does not read, before the server is slowed
  int64_t connectTimeoutMs = 30'000;

  // How long a connection that was opened before anybody needed it is kept unused.
  int64_t keepPreconnectedMs = 30'000;
};

// A request context that says which servers its transfers may reach.
class ConnectPolicy : public net::URLRequestContext {
 public:
  // Whether a transfer may use a connection to the address ("192.0.2.1", "2001:db8::1"). Asked before
  // anything is sent, on connections that exist already as well.
  virtual bool MayConnectTo(std::string_view address) const = 0;
};

}  // namespace live

#endif  // LIVE_TRANSPORT_UPSTREAM_SETTINGS_H_
