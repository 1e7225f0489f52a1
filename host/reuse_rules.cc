#include "host/reuse_rules.h"

#include <algorithm>
#include <array>
#include <set>

#include "host/http/content_coding.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "host/http/vary.h"
#include "net/http/header_text.h"
#include "net/http/http_request_headers.h"

namespace host {
namespace {

// They belong to one request, to one connection, or to one user.
constexpr std::array<std::string_view, 26> kNotRepeated = {"authorization",
                                                           "cache-control",
                                                           "connection",
                                                           "content-encoding",
                                                           "content-length",
                                                           "content-type",
                                                           "cookie",
                                                           "cookie2",
                                                           "expect",
                                                           "host",
                                                           "if-match",
                                                           "if-modified-since",
                                                           "if-none-match",
                                                           "if-range",
                                                           "if-unmodified-since",
                                                           "keep-alive",
                                                           "pragma",
                                                           "proxy-authorization",
                                                           "proxy-connection",
                                                           "range",
                                                           "te",
                                                           "trailer",
                                                           "transfer-encoding",
                                                           "upgrade",
                                                           "via",
                                                           "x-requested-with"};

bool IsRepeated(std::string_view name) {
  return std::none_of(kNotRepeated.begin(), kNotRepeated.end(),
                      [name](std::string_view other) { return net::EqualsIgnoringCase(name, other); });
}

bool ListHas(std::string_view headers, std::string_view name, std::string_view item) {
  const auto value = http::CombinedHeader(headers, name);
  return value && http::ListHas(*value, item);
}

}  // namespace

NotServed WhyNotReusable(const RequestFacts& request) {
  if (request.method != "GET") return NotServed::NotGet;
  if (request.hasBody) return NotServed::HasRequestBody;
  NotServed why = NotServed::None;
  http::ForEachHeader(request.headers, [&why](std::string_view name, std::string_view /*value*/) {
    const auto is = [name](std::string_view other) { return net::EqualsIgnoringCase(name, other); };
    if (is("range")) why = NotServed::Range;
    if (is("if-match") || is("if-unmodified-since") || is("if-range")) why = NotServed::Precondition;
    if (is("authorization")) why = NotServed::Authorization;
    if (is("transfer-encoding")) why = NotServed::HasRequestBody;
  });
  if (why != NotServed::None) return why;
  if (ListHas(request.headers, "cache-control", "no-cache") ||
      ListHas(request.headers, "cache-control", "no-store") ||
      ListHas(request.headers, "pragma", "no-cache")) {
    return NotServed::AsksForNewCopy;
  }
  return NotServed::None;
}

NotServed WhyNotSameSender(const RequestFacts& request, const RequestFacts& sent) {
  if (request.withCredentials != sent.withCredentials) return NotServed::OtherCredentials;
  // HTTP/2 sends them in several headers, and their order has no meaning.
  const auto cookies = [](const RequestFacts& facts) {
    std::multiset<std::string_view> all;
    http::ForEachHeader(facts.headers, [&all](std::string_view name, std::string_view value) {
      if (!net::EqualsIgnoringCase(name, "cookie")) return;
      while (!value.empty()) {
        const std::string_view cookie = net::TrimBlanks(value.substr(0, value.find(';')));
        value.remove_prefix(std::min(value.find(';'), value.size() - 1) + 1);
        if (!cookie.empty()) all.insert(cookie);
      }
    });
    return all;
  };
  return cookies(request) == cookies(sent) ? NotServed::None : NotServed::OtherCookies;
}

NotServed WhyNotAnswer(const RequestFacts& request, const RequestFacts& sent,
                       std::string_view responseBlock) {
  if (const NotServed why = WhyNotSameSender(request, sent); why != NotServed::None) return why;
  if (!http::VaryAllows(responseBlock, request.headers, sent.headers)) return NotServed::OtherVariant;
  if (!http::AcceptsCodingOf(request.headers, responseBlock)) return NotServed::CodingNotAccepted;
  return NotServed::None;
}

bool IsUnsafe(std::string_view method) {
  constexpr std::array<std::string_view, 4> kSafe = {"GET", "HEAD", "OPTIONS", "TRACE"};
  return std::find(kSafe.begin(), kSafe.end(), method) == kSafe.end();
}

std::string HeadersToRepeat(std::string_view requestHeaders) {
  net::HttpRequestHeaders repeated;
  http::ForEachHeader(requestHeaders, [&repeated](std::string_view name, std::string_view value) {
    if (!name.starts_with(':') && IsRepeated(name)) repeated.SetHeader(name, value);
  });
  return repeated.ToString();
}

std::string HeadersToSend(std::string_view pluginHeaders, std::string_view headersToRepeat,
                          std::string_view cookies) {
  net::HttpRequestHeaders headers;
  headers.AddHeadersFromString(pluginHeaders);
  http::ForEachHeader(headersToRepeat, [&headers](std::string_view name, std::string_view value) {
    std::string own;
    const bool isSet = headers.GetHeader(name, &own);
    if (!isSet || (net::EqualsIgnoringCase(name, "accept") && own == "*/*")) headers.SetHeader(name, value);
  });
  if (!cookies.empty()) headers.SetHeader("Cookie", cookies);
  return headers.ToString();
}

}  // namespace host
