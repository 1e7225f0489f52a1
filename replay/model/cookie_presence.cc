#include "replay/model/cookie_presence.h"

#include <algorithm>

#include "host/http/header_block.h"
#include "net/http/header_text.h"
#include "net/http/http_request_headers.h"
#include "url/gurl.h"

namespace replay {
namespace {

constexpr const char* kSomeCookies = "present";

// The host name that a Set-Cookie value is for: that of the server, or a parent domain that the value names.
std::string DomainOf(std::string_view setCookie, const std::string& host) {
  while (!setCookie.empty()) {
    const std::string_view part = net::TrimBlanks(setCookie.substr(0, setCookie.find(';')));
    setCookie.remove_prefix(std::min(setCookie.find(';'), setCookie.size() - 1) + 1);
    if (!net::EqualsIgnoringCase(part.substr(0, 7), "domain=")) continue;
    std::string_view domain = net::TrimBlanks(part.substr(7));
    if (domain.starts_with('.')) domain.remove_prefix(1);
    return "." + std::string(domain);
  }
  return host;
}

bool HasCookies(const Request& request) {
  return http::HasHeader(request.requestHeaders, "Cookie");
}

}  // namespace

std::string CookiePresence::SentWith(const Request& request) {
  if (!HasCookies(request)) return request.requestHeaders;
  servers_.insert(GURL(request.url).host());
  net::HttpRequestHeaders headers;
  headers.AddHeadersFromString(request.requestHeaders);
  headers.SetHeader("Cookie", kSomeCookies);
  return headers.ToString();
}

void CookiePresence::ResponseSeen(const Request& request) {
  const std::string host = GURL(request.url).host();
  http::ForEachHeader(request.responseHeaders, [&](std::string_view name, std::string_view value) {
    if (net::EqualsIgnoringCase(name, "Set-Cookie")) servers_.insert(DomainOf(value, host));
  });
}

std::string CookiePresence::CookiesFor(const std::string& url) {
  const Request* const request = find_(url);
  if (request == nullptr || !HasCookies(*request)) return {};
  const std::string host = GURL(url).host();
  if (servers_.contains(host)) return kSomeCookies;
  for (std::string above = "." + host; !above.empty();) {
    if (servers_.contains(above)) return kSomeCookies;
    const size_t dot = above.find('.', 1);
    above = dot == std::string::npos ? "" : above.substr(dot);
  }
  return {};
}

}  // namespace replay
