#include "live/proxy/address_rules.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>

namespace live {
namespace {

struct Network4 {
  uint32_t address;
  int bits;
};

// Special-purpose networks that are not reachable from outside.
constexpr std::array<Network4, 14> kPrivate4 = {{{0x00000000, 8},     // this network
                                                 {0x0A000000, 8},     // private
                                                 {0x64400000, 10},    // shared by providers
                                                 {0x7F000000, 8},     // loopback
                                                 {0xA9FE0000, 16},    // one link
                                                 {0xAC100000, 12},    // private
                                                 {0xC0000000, 24},    // protocols
                                                 {0xC0A80000, 16},    // private
                                                 {0xC6120000, 15},    // measurements
                                                 {0xE0000000, 4},     // multicast
                                                 {0xF0000000, 4},     // reserved
                                                 {0xC0000200, 24},    // documentation
                                                 {0xC6336400, 24},    // documentation
                                                 {0xCB007100, 24}}};  // documentation

bool IsPrivate4(uint32_t address) {
  return std::any_of(kPrivate4.begin(), kPrivate4.end(), [address](const Network4& network) {
    return (address ^ network.address) >> (32 - network.bits) == 0;
  });
}

bool IsPrivate6(const in6_addr& address) {
  const uint8_t* const bytes = address.s6_addr;
  uint32_t embedded = 0;
  std::memcpy(&embedded, bytes + 12, sizeof embedded);
  if (IN6_IS_ADDR_V4MAPPED(&address) || IN6_IS_ADDR_V4COMPAT(&address)) return IsPrivate4(ntohl(embedded));
  const auto startsWith = [bytes](std::initializer_list<uint8_t> prefix) {
    return std::equal(prefix.begin(), prefix.end(), bytes);
  };
  if (startsWith({0x00, 0x64, 0xFF, 0x9B, 0, 0, 0, 0, 0, 0, 0, 0})) {  // translated to IPv4
    return IsPrivate4(ntohl(embedded));
  }
  if (startsWith({0x20, 0x02})) {  // a tunnel to an address of IPv4
    std::memcpy(&embedded, bytes + 2, sizeof embedded);
    return IsPrivate4(ntohl(embedded));
  }
  // Tunnels through relays, and documentation.
  if (startsWith({0x20, 0x01, 0x00, 0x00}) || startsWith({0x20, 0x01, 0x0D, 0xB8})) return true;
  return (bytes[0] & 0xE0) != 0x20;  // public addresses are all of 2000::/3
}

}  // namespace

bool IsPrivateAddress(std::string_view address) {
  const std::string text(address.substr(0, address.find('%')));
  in_addr four{};
  if (inet_pton(AF_INET, text.c_str(), &four) == 1) return IsPrivate4(ntohl(four.s_addr));
  in6_addr six{};
  return inet_pton(AF_INET6, text.c_str(), &six) != 1 || IsPrivate6(six);
}

}  // namespace live
