// The key of a stored response, and the URLs that an answer makes outdated. Pure functions.
#ifndef LIVE_CACHE_CACHE_KEY_H_
#define LIVE_CACHE_CACHE_KEY_H_

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace live {

// Keys are ordered so that all partitions of a URL are next to each other. Vary distinguishes the variants of
// a key.
struct CacheKey {
  std::string url;  // without its fragment
  std::string partition;

  auto operator<=>(const CacheKey&) const = default;
};

std::string WithoutFragment(std::string_view url);

// Resolves a reference (as in Location) against an absolute URL, without its fragment and with the origin
// spelled as in `base`. Returns nothing if the origin is different, or if one of the two is not a URL.
std::optional<std::string> SameOriginTarget(const std::string& base, std::string_view reference);

}  // namespace live

#endif  // LIVE_CACHE_CACHE_KEY_H_
