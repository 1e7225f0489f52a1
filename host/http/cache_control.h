// What Cache-Control and Pragma in requests and responses mean for a private cache. Any thread.
#ifndef HOST_HTTP_CACHE_CONTROL_H_
#define HOST_HTTP_CACHE_CONTROL_H_

#include <optional>
#include <string_view>

namespace http {

// Parses seconds as in max-age and Age, which consist of digits only. Numbers above 2^31 become 2^31. Returns
// nothing for any other text.
std::optional<double> ParseSeconds(std::string_view text);

// If a directive with a number is repeated, the first one counts. Directives that concern only shared caches
// (s-maxage, proxy-revalidate) are ignored.
struct ResponseCacheControl {
  bool noStore = false;
  bool noCache =
      false;  // even if it names fields, because a cache may ignore the names. Also Pragma: no-cache alone.
  bool mustRevalidate = false;
  bool mustUnderstand = false;
  bool isPublic = false;
  bool isPrivate = false;  // even if it names fields
  bool immutable = false;
  std::optional<double> maxAgeS;  // 0 if its value cannot be parsed
};
ResponseCacheControl ReadResponseCacheControl(std::string_view responseBlock);

// A value that cannot be parsed counts as the most restrictive value.
struct RequestCacheControl {
  bool noStore = false;
  bool noCache = false;  // also Pragma: no-cache alone
  bool onlyIfCached = false;
  std::optional<double> maxAgeS;
  std::optional<double> minFreshS;
  std::optional<double> maxStaleS;  // infinite if it has no value
};
RequestCacheControl ReadRequestCacheControl(std::string_view requestHeaders);

}  // namespace http

#endif  // HOST_HTTP_CACHE_CONTROL_H_
