// Settings of the side of the proxy that faces the browser. They are read once, when the server is created.
#ifndef LIVE_PROXY_FRONT_FRONT_SETTINGS_H_
#define LIVE_PROXY_FRONT_FRONT_SETTINGS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live/proxy/ca/authority.h"

namespace live {

struct FrontSettings {
  std::string address = "127.0.0.1";  // numeric, IPv4 or IPv6 (without brackets)
  uint16_t port = 0;                  // 0 for any free port

  // Addresses other than those of the loopback interface are refused unless this is set; then a password is
  // required.
  bool listenAnywhere = false;
  // If not empty, every request must contain it in Proxy-Authorization, with any user name.
  std::string password;
  // Only processes of the same user may connect. This does not apply to peers on other machines.
  bool ownUserOnly = true;

  // The name of this proxy in a Via header of each request; a request that comes back is refused as a loop.
  // Empty for no Via header. That is safe as well, because the proxy's own requests contain paths and not
  // URLs, and such requests are refused. It is also faster, because many servers do not compress responses to
  // requests with a Via header.
  std::string viaName;

  // The ports to which CONNECT may lead: those of https, and of WebSockets over plain http.
  std::vector<uint16_t> tunnelPorts = {443, 80};

  // The addresses of tunnelled connections by name, instead of a name lookup: "NAME:PORT:ADDRESS:PORT", with
  // an IPv6 address in brackets.
  std::vector<std::string> connectTo;

  // If not null, the proxy accepts TLS in the servers' place with certificates of this authority, and the
  // requests inside reach the handler. If null, the proxy cannot see into any tunnel.
  std::shared_ptr<const Authority> authority;
  // Names that are tunnelled nevertheless, including the names below them.
  std::vector<std::string> neverIntercept;
  // The PEM file of the authorities to trust where the proxy itself opens TLS to servers, for the WebSockets
  // of intercepted connections; empty for those of the system.
  std::string upstreamCaFile;

  size_t maxConnections = 2048;               // including tunnels; further ones wait to be accepted
  size_t maxHeaderBytes = size_t{64} * 1024;  // of one request
  size_t maxBufferedBytes =
      size_t{256} * 1024;  // of a response that the browser does not read; uploads: a quarter

  int64_t idleMs = 300'000;          // between two requests of one connection
  int64_t headMs = 30'000;           // from the first byte of a request's head to its last
  int64_t stallMs = 600'000;         // in the middle of a body, either way
  int64_t connectMs = 30'000;        // to a tunnel's server, its name's resolution included
  int64_t tunnelIdleMs = 3'600'000;  // without a byte in either direction
};

// Receives messages for the person who runs the proxy. Loop's thread. It must not destroy the server.
struct FrontObserver {
  std::function<void(const std::string& message)> onMessage;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_FRONT_SETTINGS_H_
