#include "replay/freshness.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "net/http/header_text.h"
#include "replay/dates.h"

namespace replay {
namespace {

// Statuses that may be stored, and guessed about, when the headers say nothing. A 304 renews what is stored.
constexpr std::array kHeuristicStatuses = {200, 203, 204, 206, 300, 301, 304, 308, 404, 405, 410, 414, 501};
constexpr double kHeuristicShare = 0.1;       // of the time since the last modification
constexpr double kLongestSeconds = 1u << 31;  // a greater max-age means this

// The headers that decide; of those that must be single the first one counts.
struct CacheHeaders {
  bool hasCacheControl = false;
  bool noStore = false;
  bool noCache = false;
  bool storable = false;          // public, private, max-age or Expires
  std::optional<double> maxAgeS;  // 0 for a value that does not parse
  std::optional<std::string_view> expires;
  std::optional<double> dateMs;
  std::optional<double> lastModifiedMs;
  double ageS = 0;
  bool pragmaNoCache = false;
  bool varyStar = false;
};

// Plain digits; whatever is too great for the type is as good as the longest.
std::optional<double> ParseSeconds(std::string_view text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  uint64_t seconds = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc()) return kLongestSeconds;
  return std::min(static_cast<double>(seconds), kLongestSeconds);
}

// Takes the next item of a comma-separated list; commas in quotes belong to the item.
std::string_view TakeItem(std::string_view& list) {
  bool quoted = false;
  size_t end = 0;
  for (; end < list.size() && (quoted || list[end] != ','); ++end) {
    if (list[end] == '"') quoted = !quoted;
  }
  const std::string_view item = list.substr(0, end);
  list.remove_prefix(std::min(end + 1, list.size()));
  return net::TrimBlanks(item);
}

void ReadCacheControl(std::string_view list, CacheHeaders& headers) {
  headers.hasCacheControl = true;
  while (!list.empty()) {
    const std::string_view item = TakeItem(list);
    const size_t equals = item.find('=');
    const std::string_view name = net::TrimBlanks(item.substr(0, equals));
    const auto is = [name](std::string_view directive) { return net::EqualsIgnoringCase(name, directive); };
    if (is("no-store")) headers.noStore = true;
    if (is("no-cache")) headers.noCache = true;
    if (is("public") || is("private") || is("max-age")) headers.storable = true;
    if (is("max-age") && !headers.maxAgeS) {
      const bool hasValue = equals != std::string_view::npos;
      headers.maxAgeS = hasValue ? ParseSeconds(net::TrimBlanks(item.substr(equals + 1))).value_or(0) : 0;
    }
  }
}

bool ListHas(std::string_view list, std::string_view wanted) {
  while (!list.empty()) {
    if (net::EqualsIgnoringCase(TakeItem(list), wanted)) return true;
  }
  return false;
}

void ReadHeader(std::string_view name, std::string_view value, CacheHeaders& headers) {
  const auto is = [name](std::string_view header) { return net::EqualsIgnoringCase(name, header); };
  if (is("cache-control")) ReadCacheControl(value, headers);
  if (is("pragma") && ListHas(value, "no-cache")) headers.pragmaNoCache = true;
  if (is("vary") && ListHas(value, "*")) headers.varyStar = true;
  if (is("expires") && !headers.expires) headers.expires = value;
  if (is("date") && !headers.dateMs) headers.dateMs = ParseHttpDate(value);
  if (is("last-modified") && !headers.lastModifiedMs) headers.lastModifiedMs = ParseHttpDate(value);
  if (is("age")) headers.ageS = std::max(headers.ageS, ParseSeconds(value).value_or(0));
}

CacheHeaders ReadHeaders(std::string_view raw) {
  CacheHeaders headers;
  while (!raw.empty()) {
    const std::string_view line = raw.substr(0, raw.find('\0'));
    raw.remove_prefix(std::min(line.size() + 1, raw.size()));
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    ReadHeader(net::TrimBlanks(line.substr(0, colon)), net::TrimBlanks(line.substr(colon + 1)), headers);
  }
  return headers;
}

// What the server allows, or else what a cache may guess; before the age is taken off.
double LifetimeMs(const CacheHeaders& headers, bool mayGuess, std::optional<double> servedMs) {
  if (headers.maxAgeS) return *headers.maxAgeS * 1e3;
  if (headers.expires) {
    const std::optional<double> expiresMs = ParseHttpDate(*headers.expires);
    return expiresMs && servedMs ? *expiresMs - *servedMs : 0;
  }
  if (!mayGuess || !headers.lastModifiedMs || !servedMs) return 0;
  return (*servedMs - *headers.lastModifiedMs) * kHeuristicShare;
}

}  // namespace

std::optional<double> FreshForMs(std::string_view method, int status, const std::string& rawHeaders,
                                 std::optional<double> receivedMs) {
  if (method != "GET") return std::nullopt;
  const CacheHeaders headers = ReadHeaders(rawHeaders);
  const bool mayGuess =
      std::find(kHeuristicStatuses.begin(), kHeuristicStatuses.end(), status) != kHeuristicStatuses.end();
  if (headers.noStore || !(mayGuess || headers.storable || headers.expires)) return std::nullopt;
  if (headers.noCache || headers.varyStar) return 0;
  if (headers.pragmaNoCache && !headers.hasCacheControl) return 0;
  const std::optional<double> servedMs = headers.dateMs ? headers.dateMs : receivedMs;
  return std::max(0.0, LifetimeMs(headers, mayGuess, servedMs) - headers.ageS * 1e3);
}

}  // namespace replay
