#include "live/cache/reuse.h"

#include "host/http/cache_control.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"

namespace live {
namespace {

void AppendLine(std::string& lines, std::string_view name, std::string_view value) {
  lines.append(name).append(": ").append(value).append("\r\n");
}

bool FitsOneLine(std::string_view value) {
  return !value.empty() && value.find_first_of("\r\n") == std::string_view::npos;
}

}  // namespace

bool MayServe(const StoredResponse& stored, std::string_view requestHeaders, double nowMs) {
  const http::RequestCacheControl asked = http::ReadRequestCacheControl(requestHeaders);
  if (asked.noCache || stored.control.noCache) return false;
  const double ageMs = AgeMs(stored, nowMs);
  const double freshForMs = stored.lifetimeMs - ageMs;
  const bool fresh = freshForMs > 0;
  if (asked.minFreshS && freshForMs < *asked.minFreshS * 1e3) return false;
  if (asked.maxAgeS && ageMs > *asked.maxAgeS * 1e3 && !(fresh && stored.control.immutable)) return false;
  if (fresh) return true;
  return asked.maxStaleS && !stored.control.mustRevalidate && -freshForMs <= *asked.maxStaleS * 1e3;
}

std::string Validators(const StoredResponse& stored) {
  std::string lines;
  const std::string_view tag = http::FindHeader(stored.block, "ETag").value_or("");
  if (FitsOneLine(tag) && http::ParseEntityTag(tag)) AppendLine(lines, "If-None-Match", tag);
  const std::string_view modified = http::FindHeader(stored.block, "Last-Modified").value_or("");
  if (FitsOneLine(modified)) AppendLine(lines, "If-Modified-Since", modified);
  return lines;
}

}  // namespace live
