#include "host/http/connection_headers.h"

#include <algorithm>
#include <array>

#include "net/http/header_text.h"

namespace http {

bool IsOfOneConnection(std::string_view name) {
  static constexpr std::array<std::string_view, 10> kNames = {
      "connection",          "http2-settings",   "keep-alive", "proxy-authenticate",
      "proxy-authorization", "proxy-connection", "te",         "trailer",
      "transfer-encoding",   "upgrade"};
  return std::any_of(kNames.begin(), kNames.end(),
                     [name](std::string_view other) { return net::EqualsIgnoringCase(name, other); });
}

}  // namespace http
