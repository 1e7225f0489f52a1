#include "host/http/conditions.h"

#include <algorithm>
#include <array>
#include <optional>

#include "host/http/dates.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"

namespace http {
namespace {

// Headers that describe the coding or framing of the body. Content-Location does not, so it is kept.
constexpr std::array<std::string_view, 7> kBodyHeaders = {
    "Content-Encoding", "Content-Language", "Content-Length",   "Content-Range",
    "Content-Type",     "Trailer",          "Transfer-Encoding"};

bool AnyTagMatches(std::string_view list, std::string_view responseBlock) {
  const std::optional<EntityTag> current = ParseEntityTag(FindHeader(responseBlock, "ETag").value_or(""));
  while (current && !list.empty()) {
    const std::optional<EntityTag> tag = TakeEntityTag(list);
    if (tag && MatchesWeakly(*tag, *current)) return true;
  }
  return false;
}

}  // namespace

bool IsConditional(std::string_view requestHeaders) {
  return HasHeader(requestHeaders, "If-None-Match") || HasHeader(requestHeaders, "If-Modified-Since");
}

bool IsNotModified(std::string_view requestHeaders, std::string_view responseBlock) {
  if (const auto tags = CombinedHeader(requestHeaders, "If-None-Match")) {
    return *tags == "*" || AnyTagMatches(*tags, responseBlock);
  }
  const std::optional<double> since = FindDateHeader(requestHeaders, "If-Modified-Since");
  const std::optional<double> modified = FindDateHeader(responseBlock, "Last-Modified");
  return since && modified && *modified <= *since;
}

std::string NotModifiedBlock(std::string_view responseBlock) {
  std::string block("HTTP/1.1 304 Not Modified\0", 26);
  ForEachHeader(responseBlock, [&block](std::string_view name, std::string_view value) {
    const bool ofBody =
        std::any_of(kBodyHeaders.begin(), kBodyHeaders.end(),
                    [name](std::string_view header) { return net::EqualsIgnoringCase(name, header); });
    if (!ofBody) block.append(name).append(": ").append(value).push_back('\0');
  });
  block.push_back('\0');
  return block;
}

}  // namespace http
