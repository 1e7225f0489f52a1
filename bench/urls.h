// URLs of the kind that pages carry, and orders to walk them in. The same every run. Any thread.
#ifndef BENCH_URLS_H_
#define BENCH_URLS_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

// `count` different URLs, 60 to 110 bytes long, spread evenly over `hosts` hosts, in no order of text or
// hash. Two sets with different names share no URL, but share their hosts.
std::vector<std::string> MakeUrls(const std::string& set, size_t count, size_t hosts);

// Random places in a set of `size` elements, each once before any comes again, in an order that never
// repeats: a processor remembers the branches of a search through a whole round of keys and would run it from
// memory.
class RandomWalk {
 public:
  RandomWalk(size_t size, uint32_t seed);

  // The next `count` places, valid until the next call. Draw before the clock starts.
  const std::vector<uint32_t>& Draw(size_t count);

 private:
  std::mt19937 random_;
  std::vector<uint32_t> order_;
  size_t next_ = 0;
  std::vector<uint32_t> drawn_;
};

}  // namespace bench

#endif  // BENCH_URLS_H_
