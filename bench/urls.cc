#include "bench/urls.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

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

RandomWalk::RandomWalk(size_t size, uint32_t seed) : random_(seed), order_(size), next_(size) {
  std::iota(order_.begin(), order_.end(), 0U);
}

const std::vector<uint32_t>& RandomWalk::Draw(size_t count) {
  drawn_.clear();
  while (drawn_.size() < count) {
    if (next_ == order_.size()) {
      std::shuffle(order_.begin(), order_.end(), random_);
      next_ = 0;
    }
    drawn_.push_back(order_[next_++]);
  }
  return drawn_;
}

}  // namespace bench
