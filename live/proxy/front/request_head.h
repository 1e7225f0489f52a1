// Parses the head of a request: what it asks from the proxy, or why it is refused. Pure functions; any
// thread.
#ifndef LIVE_PROXY_FRONT_REQUEST_HEAD_H_
#define LIVE_PROXY_FRONT_REQUEST_HEAD_H_

#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace live {

struct HostPort {
  std::string host;  // in lower case; an address of IPv6 without brackets
  uint16_t port = 0;
};

// Parses "name:80", "192.0.2.1" or "[2001:db8::1]:443". Returns nothing if the host or port is invalid.
// `defaultPort` is used for texts without a port; 0 if they must have one.
std::optional<HostPort> ParseHostPort(std::string_view text, uint16_t defaultPort);
// The text as in a URL: with brackets if needed, and with the port unless it is the default port (0 for
// none).
std::string ToText(const HostPort& target, uint16_t defaultPort);

struct Refusal {
  int status = 400;
  std::string why;  // a sentence for the user
  bool wantsPassword = false;
};

// Of a server whose name is given, for a page that comes from a public one.
Refusal PrivateAddressRefusal(const std::string& server);

struct RequestHead {
  enum class Kind { Load, Connect, Upgrade };
  Kind kind = Kind::Load;
  std::string method;
  std::string url;      // absolute; empty for CONNECT
  HostPort target;      // of the URL, or of CONNECT
  std::string headers;  // those that go on to the server: lines as text, without Host and framing
  std::string path;     // of an upgrade: what the server is asked for
  std::string upgrade;  // of an upgrade: the protocols
  bool hasBody = false;
  int64_t bodyLength = 0;  // -1: chunked
  bool expectsContinue = false;
  bool http10 = false;
  bool keepAlive = true;
};

struct HeadRules {
  // For an intercepted connection, the origin of the paths: "https://name" or "https://name:port". Empty on
  // the proxy's own port.
  std::string secureOrigin;
  std::string password;               // that requests must contain; empty for none
  std::string viaName;                // empty for none
  std::vector<uint16_t> tunnelPorts;  // to which CONNECT may lead
};

using ParsedHead = boost::beast::http::request_header<boost::beast::http::fields>;

std::variant<RequestHead, Refusal> ReadRequestHead(const ParsedHead& head, const HeadRules& rules);

}  // namespace live

#endif  // LIVE_PROXY_FRONT_REQUEST_HEAD_H_
