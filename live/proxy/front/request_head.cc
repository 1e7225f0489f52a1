#include "live/proxy/front/request_head.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/http/connection_headers.h"
#include "host/http/lists.h"
#include "net/http/header_text.h"

namespace live {
namespace {

namespace beast = boost::beast;
using beast::http::field;
using net::EqualsIgnoringCase;

std::string_view View(beast::string_view text) {
  return {text.data(), text.size()};
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), net::ToLowerAscii);
  return lower;
}

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_';
}

// All lines of one name as one list.
std::string Combined(const ParsedHead& head, field name) {
  std::string list;
  const auto [begin, end] = head.equal_range(name);
  for (auto line = begin; line != end; ++line) {
    if (!list.empty()) list += ", ";
    list += View(line->value());
  }
  return list;
}

bool HasPassword(const ParsedHead& head, const std::string& password) {
  const std::string_view value = View(head[field::proxy_authorization]);
  const size_t blank = value.find(' ');
  if (blank == std::string_view::npos || !EqualsIgnoringCase(value.substr(0, blank), "basic")) return false;
  const std::string code(net::TrimBlanks(value.substr(blank)));
  std::string text(code.size() + 1, '\0');
  const int size =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(code.data()), static_cast<int>(code.size()));
  if (size < 0) return false;
  const auto padding = static_cast<size_t>(std::count(code.begin(), code.end(), '='));
  text.resize(static_cast<size_t>(size) - std::min<size_t>(padding, 2));
  const std::string given = text.substr(std::min(text.find(':'), text.size() - 1) + 1);
  return given.size() == password.size() &&
         CRYPTO_memcmp(given.data(), password.data(), password.size()) == 0;
}

// What is wrong with how the request says where it ends; nothing when all is well. Two readers who understand
// it in different ways would find different requests in the same bytes, so that what is doubtful is refused.
std::optional<Refusal> ReadFraming(const ParsedHead& head, RequestHead& request) {
  if (head.count(field::content_length) > 1) return Refusal{400, "It has more than one Content-Length."};
  const bool hasLength = head.count(field::content_length) > 0;
  if (head.count(field::transfer_encoding) > 0) {
    if (hasLength) return Refusal{400, "It has both a Content-Length and a Transfer-Encoding."};
    if (request.http10) return Refusal{400, "HTTP/1.0 has no Transfer-Encoding."};
    if (!EqualsIgnoringCase(Combined(head, field::transfer_encoding), "chunked")) {
      return Refusal{501, "Its Transfer-Encoding is not supported: only \"chunked\" is."};
    }
    request.hasBody = true;
    request.bodyLength = -1;
  } else if (hasLength) {
    const std::string_view text = View(head[field::content_length]);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), request.bodyLength);
    if (error != std::errc() || end != text.data() + text.size() || request.bodyLength < 0) {
      return Refusal{400, "Its Content-Length is not a valid number."};
    }
    request.hasBody = true;
  }
  request.expectsContinue = !request.http10 && EqualsIgnoringCase(View(head[field::expect]), "100-continue");
  return std::nullopt;
}

bool ReadKeepAlive(const ParsedHead& head, bool http10) {
  const std::string options =
      Combined(head, field::connection) + "," + Combined(head, field::proxy_connection);
  return http10 ? http::ListHas(options, "keep-alive") : !http::ListHas(options, "close");
}

// The header lines that go on to the server.
std::string HeadersToForward(const ParsedHead& head, const std::string& viaName) {
  const std::string named = Combined(head, field::connection);
  std::string lines;
  for (const auto& line : head) {
    const std::string_view name = View(line.name_string());
    if (http::IsOfOneConnection(name) || http::ListHas(named, name)) continue;
    if (line.name() == field::host || line.name() == field::content_length || line.name() == field::expect) {
      continue;
    }
    lines.append(name).append(": ").append(View(line.value())).append("\r\n");
  }
  if (!viaName.empty()) lines += "Via: 1.1 " + viaName + "\r\n";
  return lines;
}

std::optional<Refusal> ReadConnectTarget(const ParsedHead& head, const std::vector<uint16_t>& ports,
                                         RequestHead& request) {
  const auto target = ParseHostPort(View(head.target()), 0);
  if (!target) return Refusal{400, "CONNECT needs a host and a port: \"CONNECT name:443\"."};
  if (request.hasBody) return Refusal{400, "CONNECT has no body."};
  if (std::find(ports.begin(), ports.end(), target->port) == ports.end()) {
    return Refusal{403, "Tunnels to port " + std::to_string(target->port) +
                            " are not allowed; kiv_proxy --tunnel-port allows more ports than 443 and 80."};
  }
  request.kind = RequestHead::Kind::Connect;
  request.target = *target;
  return std::nullopt;
}

// Brings URLs that mean the same to one text, as browsers do.
std::optional<Refusal> ReadUrl(const ParsedHead& head, const std::string& secureOrigin,
                               RequestHead& request) {
  const std::string_view text = View(head.target());
  if (!secureOrigin.empty()) {
    if (!text.starts_with('/')) return Refusal{400, "Inside a tunnel, a request must name a path."};
    request.target = *ParseHostPort(std::string_view(secureOrigin).substr(8), 443);
    const auto asked = ParseHostPort(View(head[field::host]), 443);
    if (!asked || ToText(*asked, 0) != ToText(request.target, 0)) {
      return Refusal{421, "The Host header names a different server than the one that the tunnel leads to."};
    }
    request.path = text;
    request.url = secureOrigin + request.path;
    return std::nullopt;
  }
  constexpr std::string_view kScheme = "http://";
  if (!EqualsIgnoringCase(text.substr(0, kScheme.size()), kScheme)) {
    if (text.starts_with('/') || text == "*") {
      return Refusal{
          400,
          "This is a proxy, not a web server: it answers only requests that name a whole URL, which "
          "browsers send when it is set as their proxy for http and https."};
    }
    return Refusal{400, "Only http URLs can be requested in this way; https URLs need CONNECT."};
  }
  const std::string_view rest = text.substr(kScheme.size());
  const size_t end = std::min(rest.find_first_of("/?"), rest.size());
  const auto target = ParseHostPort(rest.substr(0, end), 80);
  if (!target || text.find('#') != std::string_view::npos) {
    return Refusal{400, "It names no URL that can be asked for."};
  }
  request.target = *target;
  request.path = rest.substr(end);
  if (!request.path.starts_with('/')) request.path.insert(0, "/");
  request.url = "http://" + ToText(*target, 80) + request.path;
  return std::nullopt;
}

}  // namespace

std::optional<HostPort> ParseHostPort(std::string_view text, uint16_t defaultPort) {
  HostPort result{.port = defaultPort};
  size_t end = 0;
  if (text.starts_with('[')) {
    end = text.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    result.host = Lower(text.substr(1, end - 1));
    if (result.host.find_first_not_of("0123456789abcdef:.") != std::string::npos) return std::nullopt;
    ++end;
  } else {
    end = std::min(text.find(':'), text.size());
    result.host = Lower(text.substr(0, end));
    if (!std::all_of(result.host.begin(), result.host.end(), IsHostCharacter)) return std::nullopt;
  }
  if (result.host.empty()) return std::nullopt;
  if (std::string_view port = text.substr(end); !port.empty() && port != ":") {
    port.remove_prefix(1);
    const auto [last, error] = std::from_chars(port.data(), port.data() + port.size(), result.port);
    if (text[end] != ':' || error != std::errc() || last != port.data() + port.size()) return std::nullopt;
  }
  if (result.port == 0) return std::nullopt;
  return result;
}

std::string ToText(const HostPort& target, uint16_t defaultPort) {
  const bool brackets = target.host.find(':') != std::string::npos;
  std::string text = brackets ? "[" + target.host + "]" : target.host;
  if (target.port != defaultPort) text += ":" + std::to_string(target.port);
  return text;
}

Refusal PrivateAddressRefusal(const std::string& server) {
  return {403, "The server " + server +
                   " has a private address. This proxy reaches such an address only for pages that come from"
                   " one; the option --allow-private lifts this."};
}

std::variant<RequestHead, Refusal> ReadRequestHead(const ParsedHead& head, const HeadRules& rules) {
  RequestHead request{.method = std::string(View(head.method_string())), .http10 = head.version() == 10};
  request.keepAlive = ReadKeepAlive(head, request.http10);
  if (const auto refusal = ReadFraming(head, request)) return *refusal;
  if (head.count(field::host) > 1) return Refusal{400, "It has more than one Host header."};
  if (!request.http10 && head.count(field::host) == 0) return Refusal{400, "It has no Host header."};
  if (!rules.password.empty() && !HasPassword(head, rules.password)) {
    return Refusal{407, "This proxy asks for a password.", true};
  }
  if (!rules.viaName.empty() && Combined(head, field::via).find(" " + rules.viaName) != std::string::npos) {
    return Refusal{508, "The request has been through this proxy before."};
  }
  const bool isConnect = head.method() == beast::http::verb::connect;
  if (isConnect && !rules.secureOrigin.empty()) return Refusal{400, "There is no CONNECT inside a tunnel."};
  if (const auto refusal = isConnect ? ReadConnectTarget(head, rules.tunnelPorts, request)
                                     : ReadUrl(head, rules.secureOrigin, request)) {
    return *refusal;
  }
  request.headers = HeadersToForward(head, rules.viaName);
  request.upgrade = Combined(head, field::upgrade);
  if (http::ListHas(request.upgrade, "websocket") &&
      http::ListHas(Combined(head, field::connection), "upgrade") &&
      request.kind == RequestHead::Kind::Load && !request.http10 && !request.hasBody) {
    request.kind = RequestHead::Kind::Upgrade;
  }
  return request;
}

}  // namespace live
