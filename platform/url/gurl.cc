#include "url/gurl.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "net/http/header_text.h"

namespace {

constexpr int kNoPort = -1;
constexpr int kBadPort = -2;

bool IsScheme(std::string_view text) {
  const auto isAlpha = [](char c) { return net::ToLowerAscii(c) >= 'a' && net::ToLowerAscii(c) <= 'z'; };
  return !text.empty() && isAlpha(text.front()) && std::all_of(text.begin(), text.end(), [&](char c) {
    return isAlpha(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
  });
}

int DefaultPort(std::string_view scheme) {
  if (scheme == "http" || scheme == "ws") return 80;
  if (scheme == "https" || scheme == "wss") return 443;
  return kNoPort;
}

// The number after the colon; an empty one is as good as none.
int ParsePort(std::string_view text) {
  if (text.empty()) return kNoPort;
  if (text.front() < '0' || text.front() > '9') return kBadPort;  // from_chars would take a minus sign
  int port = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  const bool whole = error == std::errc() && stop == text.data() + text.size();
  return whole && port >= 0 && port <= 65535 ? port : kBadPort;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), net::ToLowerAscii);
  return lower;
}

}  // namespace

GURL::GURL() = default;
GURL::GURL(const GURL&) = default;
GURL::~GURL() = default;
GURL& GURL::operator=(const GURL&) = default;

GURL::GURL(const std::string& url) {
  const std::string_view text = url;
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos || !IsScheme(text.substr(0, colon))) return;
  const std::string scheme = Lower(text.substr(0, colon));
  const int defaultPort = DefaultPort(scheme);
  std::string_view rest = text.substr(colon + 1);
  if (!rest.starts_with("//")) {
    if (defaultPort == kNoPort) spec_ = url;  // data:, about: and their kind have no host
    return;
  }
  std::string_view authority = rest.substr(2);
  authority = authority.substr(0, authority.find_first_of("/?#\\"));
  if (const size_t at = authority.rfind('@'); at != std::string_view::npos) authority.remove_prefix(at + 1);
  size_t hostEnd = authority.rfind(':');
  if (authority.starts_with('[')) {
    const size_t bracket = authority.find(']');
    if (bracket == std::string_view::npos) return;
    hostEnd = bracket + 1 < authority.size() ? bracket + 1 : std::string_view::npos;
    if (hostEnd != std::string_view::npos && authority[hostEnd] != ':') return;
  }
  const int port = hostEnd == std::string_view::npos ? kNoPort : ParsePort(authority.substr(hostEnd + 1));
  const std::string_view host = authority.substr(0, hostEnd);
  const bool odd = host.find_first_of(host.starts_with('[') ? " " : " :") != std::string_view::npos;
  if (odd || port == kBadPort || (host.empty() && defaultPort != kNoPort)) return;
  spec_ = url;
  host_ = Lower(host);
  port_ = port == kNoPort ? defaultPort : port;
}

const std::string& GURL::spec() const {
  return spec_;
}
bool GURL::is_valid() const {
  return !spec_.empty();
}
const std::string& GURL::host() const {
  return host_;
}
int GURL::EffectiveIntPort() const {
  return port_;
}
