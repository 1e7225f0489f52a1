#include "bench/urls.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>

namespace bench {

std::vector<std::string> MakeUrls(const std::string& set, size_t count, size_t hosts) {
  static const char* const kKinds[] = {"js", "css", "png", "webp", "woff2", "json"};
  static const std::string kPath = "components/navigation/header/toolbar-and-search/";
  std::mt19937 random(7);
  std::vector<std::string> urls;
  urls.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    char end[64];
    std::snprintf(end, sizeof end, "%08x-%s%zu.%s", static_cast<unsigned>(random()), set.c_str(), i,
                  kKinds[random() % std::size(kKinds)]);
    urls.push_back("https://static" + std::to_string(i % hosts) + ".shop.example.com/assets/" +
                   kPath.substr(0, random() % kPath.size()) + end);
  }
  return urls;
}

RandomWalk::RandomWalk(size_t size, uint32_t seed) : order_(size) {
  std::iota(order_.begin(), order_.end(), 0U);
  std::shuffle(order_.begin(), order_.end(), std::mt19937(seed));
}

}  // namespace bench
