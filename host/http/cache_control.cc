#include "host/http/cache_control.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "net/http/header_text.h"

namespace http {
namespace {

constexpr double kLongestSeconds = 2147483648.0;

using Value = std::optional<std::string_view>;

// Keeps the first number of a directive; `otherwise` when there is none, or when it does not parse.
void KeepFirst(std::optional<double>& kept, const Value& value, double otherwise) {
  if (!kept) kept = ParseSeconds(value.value_or("")).value_or(otherwise);
}

// Line by line, so that an unclosed quote in one line does not affect the next.
template <typename OnDirective>
void ForEachControl(std::string_view block, const OnDirective& onDirective) {
  ForEachHeader(block, [&onDirective](std::string_view name, std::string_view value) {
    if (net::EqualsIgnoringCase(name, "Cache-Control")) ForEachDirective(value, onDirective);
  });
}

// Older than Cache-Control, which takes precedence.
bool OnlyPragmaSaysNoCache(std::string_view block) {
  return !HasHeader(block, "Cache-Control") &&
         ListHas(CombinedHeader(block, "Pragma").value_or(""), "no-cache");
}

}  // namespace

std::optional<double> ParseSeconds(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  uint64_t seconds = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc()) return kLongestSeconds;
  return std::min(static_cast<double>(seconds), kLongestSeconds);
}

ResponseCacheControl ReadResponseCacheControl(std::string_view responseBlock) {
  ResponseCacheControl control;
  control.noCache = OnlyPragmaSaysNoCache(responseBlock);
  ForEachControl(responseBlock, [&control](std::string_view name, const Value& value) {
    const auto is = [name](std::string_view directive) { return net::EqualsIgnoringCase(name, directive); };
    if (is("no-store")) control.noStore = true;
    if (is("no-cache")) control.noCache = true;
    if (is("must-revalidate")) control.mustRevalidate = true;
    if (is("must-understand")) control.mustUnderstand = true;
    if (is("public")) control.isPublic = true;
    if (is("private")) control.isPrivate = true;
    if (is("immutable")) control.immutable = true;
    if (is("max-age")) KeepFirst(control.maxAgeS, value, 0);
  });
  return control;
}

RequestCacheControl ReadRequestCacheControl(std::string_view requestHeaders) {
  constexpr double kEndless = std::numeric_limits<double>::infinity();
  RequestCacheControl control;
  control.noCache = OnlyPragmaSaysNoCache(requestHeaders);
  ForEachControl(requestHeaders, [&control](std::string_view name, const Value& value) {
    const auto is = [name](std::string_view directive) { return net::EqualsIgnoringCase(name, directive); };
    if (is("no-store")) control.noStore = true;
    if (is("no-cache")) control.noCache = true;
    if (is("only-if-cached")) control.onlyIfCached = true;
    if (is("max-age")) KeepFirst(control.maxAgeS, value, 0);
    if (is("min-fresh")) KeepFirst(control.minFreshS, value, kEndless);
    if (is("max-stale")) KeepFirst(control.maxStaleS, value, value ? 0 : kEndless);
  });
  return control;
}

}  // namespace http
