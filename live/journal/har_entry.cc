#include "live/journal/har_entry.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/http/header_block.h"
#include "host/not_served.h"
#include "live/journal/page_lines.h"
#include "live/state/privacy_rules.h"
#include "net/http/header_text.h"
#include "net/http/http_response_headers.h"
#include "url/gurl.h"

namespace live {
namespace {

using Json = nlohmann::ordered_json;
using net::EqualsIgnoringCase;

constexpr std::string_view kRemoved = "(removed)";

double Milliseconds(base::Time from, base::Time to) {
  if (from == base::Time() || to == base::Time()) return 0;
  return std::max(0.0, static_cast<double>(to.ToInternalValue() - from.ToInternalValue()) / 1e3);
}

// "a=1; b=2" without the values.
std::string CookieNames(std::string_view cookies) {
  std::string names;
  while (!cookies.empty()) {
    const std::string_view cookie = cookies.substr(0, cookies.find(';'));
    cookies.remove_prefix(std::min(cookie.size() + 1, cookies.size()));
    const size_t equals = cookie.find('=');
    // Without a name, all of it is the value.
    const std::string_view name =
        equals == std::string_view::npos ? "" : net::TrimBlanks(cookie.substr(0, equals));
    names += (names.empty() ? "" : "; ") + std::string(name) + "=";
  }
  return names;
}

// "a=1; Path=/; HttpOnly" without the value.
std::string SetCookieWithoutValue(std::string_view value) {
  const size_t end = std::min(value.find(';'), value.size());
  return CookieNames(value.substr(0, end)) + std::string(value.substr(end));
}

std::string HeaderValue(std::string_view name, std::string_view value) {
  if (EqualsIgnoringCase(name, "cookie") || EqualsIgnoringCase(name, "cookie2")) return CookieNames(value);
  if (EqualsIgnoringCase(name, "set-cookie")) return SetCookieWithoutValue(value);
  return std::string(SaysSecret(name) ? kRemoved : value);
}

Json Headers(std::string_view block) {
  Json headers = Json::array();
  http::ForEachHeader(block, [&headers](std::string_view name, std::string_view value) {
    headers.push_back({{"name", name}, {"value", HeaderValue(name, value)}});
  });
  return headers;
}

Json QueryString(std::string_view url) {
  Json query = Json::array();
  const size_t begin = std::min(url.find('?'), url.size());
  std::string_view text = url.substr(begin, url.find('#', begin) - begin);
  while (!text.empty()) {
    text.remove_prefix(1);  // the question mark, the ampersand
    const std::string_view pair = text.substr(0, text.find('&'));
    const size_t equals = std::min(pair.find('='), pair.size());
    if (!pair.empty()) {
      query.push_back(
          {{"name", pair.substr(0, equals)}, {"value", pair.substr(std::min(equals + 1, pair.size()))}});
    }
    text.remove_prefix(pair.size());
  }
  return query;
}

// "HTTP/1.1 404 Not Found" has the text after the second space.
std::string_view StatusText(std::string_view statusLine) {
  const size_t code = statusLine.find(' ');
  const size_t text = code == std::string_view::npos ? code : statusLine.find(' ', code + 1);
  return text == std::string_view::npos ? std::string_view() : statusLine.substr(text + 1);
}

std::string MimeType(std::string_view block) {
  const std::string_view type = http::FindHeader(block, "Content-Type").value_or("");
  return type.empty() ? "x-unknown" : std::string(type);
}

const char* HttpVersionText(int version) {
  switch (version) {
    case 10:
      return "HTTP/1.0";
    case 11:
      return "HTTP/1.1";
    case 20:
      return "HTTP/2";
    default:
      return "unknown";
  }
}

const char* SourceName(host::LoadSource source) {
  switch (source) {
    case host::LoadSource::Served:
      return "served";
    case host::LoadSource::Joined:
      return "joined";
    case host::LoadSource::Network:
      break;
  }
  return "network";
}

// A load that the cache has answered has a transfer that took no time before its first byte.
bool WasSent(const LoadRecord& load) {
  return load.info.source == host::LoadSource::Network && load.transfer.sent != base::Time() &&
         load.transfer.connect != load.transfer.firstByte;
}

Json Timings(const LoadRecord& load) {
  const double receive = Milliseconds(load.firstByte, load.ended);
  if (!WasSent(load)) {
    const base::Time until = load.firstByte != base::Time() ? load.firstByte : load.ended;
    return {{"blocked", Milliseconds(load.asked, until)},
            {"dns", -1},
            {"connect", -1},
            {"ssl", -1},
            {"send", 0},
            {"wait", 0},
            {"receive", receive}};
  }
  const bool connected = load.transfer.connect != load.transfer.sent;
  const double connect = Milliseconds(load.transfer.connect, load.transfer.sent);
  return {{"blocked", Milliseconds(load.asked, load.transfer.connect)},
          {"dns", -1},  // it is in `connect`, and so is the set-up of TLS
          {"connect", connected ? Json(connect) : Json(-1)},
          {"ssl", -1},
          {"send", 0},
          {"wait", Milliseconds(load.transfer.sent, load.firstByte)},
          {"receive", receive}};
}

}  // namespace

std::string HarEntry(const LoadRecord& load, const std::string& pageId, int64_t wallUs, int httpVersion) {
  const net::HttpResponseHeaders headers(load.responseBlock);
  const bool answered = !load.responseBlock.empty();
  const std::string location(http::FindHeader(load.responseBlock, "Location").value_or(""));
  Json timings = Timings(load);
  double time = 0;
  for (const auto& timing : timings) time += std::max(0.0, timing.get<double>());

  Json entry;
  if (!pageId.empty()) entry["pageref"] = pageId;
  entry["startedDateTime"] = IsoDate(load.asked.ToInternalValue() + wallUs);
  entry["time"] = time;
  entry["_resourceType"] = load.role == Role::Page || load.role == Role::Continuation
                               ? host::NameOfKind(host::ResourceKind::Document)
                               : host::NameOfKind(load.kind);
  entry["_source"] = SourceName(load.info.source);
  if (load.info.why != host::NotServed::None) entry["_whyNot"] = host::WordsFor(load.info.why).key;
  if (load.result != host::kOk) entry["_error"] = load.result;
  entry["request"] = {{"method", load.method},
                      {"url", load.url},
                      {"httpVersion", HttpVersionText(httpVersion)},
                      {"cookies", Json::array()},
                      {"headers", Headers(load.requestHeaders)},
                      {"queryString", QueryString(load.url)},
                      {"headersSize", -1},
                      {"bodySize", -1}};
  entry["response"] = {{"status", answered ? headers.response_code() : 0},
                       {"statusText", StatusText(http::StatusLine(load.responseBlock))},
                       {"httpVersion", HttpVersionText(httpVersion)},
                       {"cookies", Json::array()},
                       {"headers", Headers(load.responseBlock)},
                       {"content", {{"size", load.bodyBytes}, {"mimeType", MimeType(load.responseBlock)}}},
                       {"redirectURL", location},
                       {"headersSize", -1},
                       {"bodySize", load.bodyBytes}};
  entry["cache"] = Json::object();
  entry["timings"] = std::move(timings);
  return entry.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace live
