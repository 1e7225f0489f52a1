// URLs of the kind that pages carry, and orders to walk them in. The same every run. Any thread.
#ifndef BENCH_URLS_H_
#define BENCH_URLS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// `count` different URLs, 60 to 110 bytes long, spread evenly over `hosts` hosts, in no order of text or
// hash. Two sets with different names share no URL, but share their hosts.
std::vector<std::string> MakeUrls(const std::string& set, size_t count, size_t hosts);

// Places in a set of `size` elements, each once per round through it, in random order, for ever.
class RandomWalk {
 public:
  RandomWalk(size_t size, uint32_t seed);

  size_t Next() {
    if (next_ == order_.size()) next_ = 0;
    return order_[next_++];
  }

 private:
  std::vector<uint32_t> order_;
  size_t next_ = 0;
};

}  // namespace bench

#endif  // BENCH_URLS_H_
