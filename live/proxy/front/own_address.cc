#include "live/proxy/front/own_address.h"

#include <array>
#include <optional>
#include <string_view>

namespace live {
namespace {

namespace ip = boost::asio::ip;
using ip::tcp;

ip::address WithoutMapping(const ip::address& address) {
  if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
  return ip::make_address_v4(ip::v4_mapped, address.to_v6());
}

// Its four parts; an address of IPv6 stays in its brackets.
std::optional<std::array<std::string, 4>> SplitRule(const std::string& rule) {
  std::array<std::string, 4> parts;
  size_t part = 0;
  bool inBrackets = false;
  for (const char c : rule) {
    if (c == '[') inBrackets = true;
    if (c == ']') inBrackets = false;
    if (c != ':' || inBrackets) {
      parts[part] += c;
    } else if (++part == parts.size()) {
      return std::nullopt;
    }
  }
  return part == parts.size() - 1 ? std::optional(parts) : std::nullopt;
}

}  // namespace

bool LeadsTo(const tcp::endpoint& target, const tcp::endpoint& self) {
  if (target.port() != self.port()) return false;
  const ip::address to = WithoutMapping(target.address());
  const ip::address own = WithoutMapping(self.address());
  // An unspecified address reaches this machine. One that listens everywhere listens on every loopback
  // address; what other addresses this machine has is not looked up: what comes in there is a request without
  // a URL.
  if (to == own || to.is_unspecified()) return true;
  return own.is_unspecified() && to.is_loopback();
}

bool LeadsTo(const HostPort& target, const tcp::endpoint& self) {
  if (target.port != self.port()) return false;
  std::string_view name = target.host;
  if (name.ends_with('.')) name.remove_suffix(1);
  if (name == "localhost" || name.ends_with(".localhost")) {
    return self.address().is_loopback() || self.address().is_unspecified();
  }
  boost::system::error_code error;
  const ip::address address = ip::make_address(target.host, error);
  return !error && LeadsTo(tcp::endpoint(address, target.port), self);
}

HostPort Redirected(const HostPort& target, const std::vector<std::string>& rules) {
  for (const std::string& rule : rules) {
    const auto parts = SplitRule(rule);
    if (!parts) continue;
    const auto& [name, port, toName, toPort] = *parts;
    if (!name.empty() && name != ToText({.host = target.host, .port = 0}, 0)) continue;
    if (!port.empty() && port != std::to_string(target.port)) continue;
    const std::string host = toName.empty() ? ToText({.host = target.host, .port = 0}, 0) : toName;
    if (const auto result = ParseHostPort(host + (toPort.empty() ? "" : ":" + toPort), target.port))
      return *result;
  }
  return target;
}

}  // namespace live
