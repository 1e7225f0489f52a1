#include "host/http/freshness.h"

#include <algorithm>
#include <array>

#include "host/http/cache_control.h"
#include "host/http/dates.h"
#include "host/http/header_block.h"
#include "host/http/lists.h"

namespace http {
namespace {

// Statuses that may be stored, for a heuristic time, even if no header says so. A 304 renews a response.
constexpr std::array kHeuristicStatuses = {200, 203, 204, 206, 300, 301, 304, 308, 404, 405, 410, 414, 501};
// Others whose rules are implemented, so that "must-understand" permits storing them.
constexpr std::array kUnderstoodStatuses = {302, 303, 307};
constexpr double kHeuristicShare = 0.1;  // of the time since the last modification

template <size_t kSize>
bool IsOneOf(const std::array<int, kSize>& statuses, int status) {
  return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}

// The first number of a list counts.
double AgeHeaderMs(std::string_view responseBlock) {
  std::string_view list = FindHeader(responseBlock, "Age").value_or("");
  return list.empty() ? 0 : ParseSeconds(TakeItem(list)).value_or(0) * 1e3;
}

}  // namespace

bool MayStore(int status, std::string_view requestHeaders, std::string_view responseBlock) {
  const ResponseCacheControl control = ReadResponseCacheControl(responseBlock);
  const bool mayGuess = IsOneOf(kHeuristicStatuses, status);
  const bool understood = mayGuess || IsOneOf(kUnderstoodStatuses, status);
  if (status < 200 || ReadRequestCacheControl(requestHeaders).noStore) return false;
  if (control.mustUnderstand ? !understood : control.noStore) return false;
  return mayGuess || control.isPublic || control.isPrivate || control.maxAgeS ||
         HasHeader(responseBlock, "Expires");
}

double LifetimeMs(int status, std::string_view responseBlock, std::optional<double> receivedMs) {
  if (const auto maxAgeS = ReadResponseCacheControl(responseBlock).maxAgeS) return *maxAgeS * 1e3;
  const std::optional<double> dateMs = FindDateHeader(responseBlock, "Date");
  const std::optional<double> servedMs = dateMs ? dateMs : receivedMs;
  if (HasHeader(responseBlock, "Expires")) {
    const std::optional<double> expiresMs = FindDateHeader(responseBlock, "Expires");
    return expiresMs && servedMs ? *expiresMs - *servedMs : 0;
  }
  const std::optional<double> modifiedMs = FindDateHeader(responseBlock, "Last-Modified");
  if (!IsOneOf(kHeuristicStatuses, status) || !modifiedMs || !servedMs) return 0;
  return (*servedMs - *modifiedMs) * kHeuristicShare;
}

double InitialAgeMs(std::string_view responseBlock, double requestedMs, double receivedMs) {
  const double apparentMs = receivedMs - FindDateHeader(responseBlock, "Date").value_or(receivedMs);
  const double underWayMs = std::max(0.0, receivedMs - requestedMs);
  return std::max(apparentMs, AgeHeaderMs(responseBlock) + underWayMs);
}

std::optional<double> FreshForMs(std::string_view method, int status, const std::string& rawHeaders,
                                 std::optional<double> receivedMs) {
  if (method != "GET" || !MayStore(status, "", rawHeaders)) return std::nullopt;
  const bool matchesNothing = ListHas(CombinedHeader(rawHeaders, "Vary").value_or(""), "*");
  if (matchesNothing || ReadResponseCacheControl(rawHeaders).noCache) return 0;
  return std::max(0.0, LifetimeMs(status, rawHeaders, receivedMs) - AgeHeaderMs(rawHeaders));
}

}  // namespace http
