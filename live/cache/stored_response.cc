#include "live/cache/stored_response.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/http/dates.h"
#include "host/http/freshness.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "net/http/http_response_headers.h"

namespace live {
namespace {

constexpr std::array<std::string_view, 12> kNotKept = {"Age",
                                                       "Connection",
                                                       "Keep-Alive",
                                                       "Proxy-Authenticate",
                                                       "Proxy-Authentication-Info",
                                                       "Proxy-Connection",
                                                       "Set-Cookie",
                                                       "Set-Cookie2",
                                                       "TE",
                                                       "Trailer",
                                                       "Transfer-Encoding",
                                                       "Upgrade"};

bool IsTransferCoded(std::string_view block) {
  return http::HasHeader(block, "Transfer-Encoding");
}

bool IsKept(std::string_view name, std::string_view connection, bool transferCoded) {
  const auto is = [name](std::string_view header) { return net::EqualsIgnoringCase(name, header); };
  if (std::any_of(kNotKept.begin(), kNotKept.end(), is) || http::ListHas(connection, name)) return false;
  return !(transferCoded && is("Content-Length"));  // it would be wrong
}

// Those headers of the request that the response's Vary names, as they were sent.
std::string SelectingHeaders(std::string_view block, std::string_view requestHeaders) {
  const std::string vary = http::CombinedHeader(block, "Vary").value_or("");
  std::string selecting;
  http::ForEachHeader(requestHeaders, [&](std::string_view name, std::string_view value) {
    if (http::ListHas(vary, name)) selecting.append(name).append(": ").append(value).append("\r\n");
  });
  return selecting;
}

}  // namespace

bool IsForServerOnly(std::string_view requestHeaders) {
  constexpr std::array<std::string_view, 4> kNames = {"If-Match", "If-Unmodified-Since", "If-Range", "Range"};
  return std::any_of(kNames.begin(), kNames.end(),
                     [=](std::string_view name) { return http::HasHeader(requestHeaders, name); });
}

int64_t DeclaredLength(const std::string& block) {
  return IsTransferCoded(block) ? -1 : net::HttpResponseHeaders(block).GetContentLength();
}

bool MayStore(const CacheRequest& request, int status, const std::string& block) {
  if (request.method != "GET" || status == 206 || status == 304) return false;
  if (status != 200 && IsForServerOnly(request.headers)) return false;
  if (http::ListHas(http::CombinedHeader(block, "Vary").value_or(""), "*")) return false;
  const bool hasLength = http::HasHeader(block, "Content-Length") && !IsTransferCoded(block);
  if (hasLength && DeclaredLength(block) < 0) return false;
  return http::MayStore(status, request.headers, block);
}

std::string KeptBlock(const std::string& block, double receivedMs) {
  const std::string connection = http::CombinedHeader(block, "Connection").value_or("");
  const bool transferCoded = IsTransferCoded(block);
  const bool hasDate = http::FindDateHeader(block, "Date").has_value();
  std::string kept(http::StatusLine(block));
  kept.push_back('\0');
  if (!hasDate) kept.append("Date: ").append(http::FormatHttpDate(receivedMs)).push_back('\0');
  http::ForEachHeader(block, [&](std::string_view name, std::string_view value) {
    if (!IsKept(name, connection, transferCoded)) return;
    if (!hasDate && net::EqualsIgnoringCase(name, "Date")) return;
    kept.append(name).append(": ").append(value).push_back('\0');
  });
  kept.push_back('\0');
  return kept;
}

StoredResponse MakeStored(const CacheRequest& request, int status, const std::string& block,
                          std::shared_ptr<const std::string> body, const ExchangeTimes& times) {
  StoredResponse stored;
  stored.status = status;
  stored.receivedMs = ToMs(times.receivedUs);
  stored.block = KeptBlock(block, stored.receivedMs);
  stored.sentHeaders = SelectingHeaders(stored.block, request.headers);
  stored.body = std::move(body);
  stored.control = http::ReadResponseCacheControl(stored.block);
  stored.madeMs = http::FindDateHeader(stored.block, "Date").value_or(stored.receivedMs);
  stored.initialAgeMs = http::InitialAgeMs(block, ToMs(times.requestedUs), stored.receivedMs);
  stored.lifetimeMs = http::LifetimeMs(status, stored.block, stored.receivedMs);
  return stored;
}

double AgeMs(const StoredResponse& stored, double nowMs) {
  return stored.initialAgeMs + std::max(0.0, nowMs - stored.receivedMs);
}

std::string ServedBlock(const StoredResponse& stored, double nowMs) {
  std::string block = stored.block;
  block.pop_back();
  block.append("Age: ")
      .append(std::to_string(static_cast<int64_t>(AgeMs(stored, nowMs) / 1e3)))
      .append(2, '\0');
  return block;
}

}  // namespace live
