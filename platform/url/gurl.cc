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

// The number after the colon. An empty number counts as none.
int ParsePort(std::string_view text) {
  if (text.empty()) return kNoPort;
  if (text.front() < '0' || text.front() > '9') return kBadPort;  // from_chars would accept a minus sign
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

// A path without its "." and ".." segments. It begins with a slash, and so does the result.
std::string WithoutDots(std::string_view path) {
  std::string result;
  while (!path.empty()) {
    const size_t end = std::min(path.find('/', 1), path.size());
    const std::string_view segment = path.substr(0, end);
    path.remove_prefix(end);
    if (segment == "/..") result.erase(std::min(result.rfind('/'), result.size()));
    if (segment != "/." && segment != "/..") {
      result += segment;
    } else if (path.empty()) {
      result += '/';
    }
  }
  return result;
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
    if (defaultPort == kNoPort) spec_ = url;  // data:, about: and similar URLs have no host
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

GURL GURL::Resolve(const std::string& reference) const {
  std::string_view text = reference;
  text = text.substr(0, text.find('#'));
  const size_t colon = text.find(':');
  if (colon != std::string_view::npos && IsScheme(text.substr(0, colon))) return GURL(std::string(text));
  if (host_.empty()) return GURL();
  const std::string_view base = std::string_view(spec_).substr(0, spec_.find('#'));
  const std::string_view scheme = base.substr(0, base.find(':') + 1);
  if (text.starts_with("//")) return GURL(std::string(scheme).append(text));
  const size_t pathBegin = std::min(base.find_first_of("/?", scheme.size() + 2), base.size());
  const std::string_view origin = base.substr(0, pathBegin);
  const std::string_view pathAndQuery = base.substr(pathBegin);
  const std::string_view path = pathAndQuery.substr(0, pathAndQuery.find('?'));
  if (text.empty()) return GURL(std::string(base));
  if (text.starts_with('?')) return GURL(std::string(origin).append(path).append(text));
  const size_t query = std::min(text.find('?'), text.size());
  std::string target(text.substr(0, query));
  if (!target.starts_with('/')) {
    const size_t slash = path.rfind('/');
    target.insert(0, slash == std::string_view::npos ? "/" : path.substr(0, slash + 1));
  }
  return GURL(std::string(origin).append(WithoutDots(target)).append(text.substr(query)));
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
