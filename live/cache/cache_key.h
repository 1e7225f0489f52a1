// What a stored response is found by, and the URLs that an answer makes outdated. Pure functions.
#ifndef LIVE_CACHE_CACHE_KEY_H_
#define LIVE_CACHE_CACHE_KEY_H_

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace live {

// Ordered so that all partitions of a URL stand together. Variants of one key are told apart by Vary.
struct CacheKey {
  std::string url;  // without its fragment
  std::string partition;

  auto operator<=>(const CacheKey&) const = default;
};

std::string WithoutFragment(std::string_view url);

// The URL that a reference (as in Location) leads to from an absolute URL, without its fragment and with the
// origin spelled as in `base`. Nothing when that is another origin, or when either of the two is no URL.
std::optional<std::string> SameOriginTarget(const std::string& base, std::string_view reference);

}  // namespace live

#endif  // LIVE_CACHE_CACHE_KEY_H_
