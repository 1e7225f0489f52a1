// How the side of the proxy that faces the browser behaves. Read once, when the server is made.
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
  std::string address = "127.0.0.1";  // numeric, of IPv4 or IPv6 (without brackets)
  uint16_t port = 0;                  // 0: any that is free

  // Other addresses than loopback's are refused unless this is set, and then a password must be given.
  bool listenAnywhere = false;
  // When not empty, every request has to bring it by Proxy-Authorization, with any user name.
  std::string password;
  // Only processes of this process's user may connect. Does not concern peers on other machines.
  bool ownUserOnly = true;

  // The name under which requests are marked in a Via header; one that comes back is refused as a loop. Empty
  // for none, which is safe as well: the proxy's own requests name paths and not URLs, and such are refused.
  // Many servers do not compress what is asked for with a Via header, so that it makes pages slower.
  std::string viaName;

  // The ports that CONNECT may lead to: those of https, and of WebSockets over plain http.
  std::vector<uint16_t> tunnelPorts = {443, 80};

  // Where the names of tunnelled connections lead instead of to their own addresses:
  // "NAME:PORT:ADDRESS:PORT", an address of IPv6 in brackets.
  std::vector<std::string> connectTo;

  // When set, TLS is accepted in the servers' place with its certificates, and what is asked for inside
  // reaches the handler. When null, all tunnels stay closed to the proxy.
  std::shared_ptr<const Authority> authority;
  // Names, and all below them, that are tunnelled nevertheless.
  std::vector<std::string> neverIntercept;
  // What to trust instead of the system's authorities where the proxy opens TLS to servers by itself, for the
  // WebSockets of intercepted connections: the path of a PEM file; empty for the system's.
  std::string upstreamCaFile;

  size_t maxConnections = 2048;          // tunnels among them; further ones wait to be accepted
  size_t maxHeaderBytes = 64 * 1024;     // of one request
  size_t maxBufferedBytes = 256 * 1024;  // of a response that the browser does not read; uploads: a quarter

  int64_t idleMs = 300'000;          // between two requests of one connection
  int64_t headMs = 30'000;           // from the first byte of a request's head to its last
  int64_t stallMs = 600'000;         // in the middle of a body, either way
  int64_t connectMs = 30'000;        // to a tunnel's server, its name's resolution included
  int64_t tunnelIdleMs = 3'600'000;  // without a byte in either direction
};

// Hears what a person who runs the proxy may want to know. Loop's thread; must not destroy the server.
struct FrontObserver {
  std::function<void(const std::string& message)> onMessage;
};

}  // namespace live

#endif  // LIVE_PROXY_FRONT_FRONT_SETTINGS_H_
