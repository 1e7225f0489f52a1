// A fuzzer's bytes, taken as numbers and choices. When they are used up, every answer is 0.
#ifndef FUZZ_FUZZ_INPUT_H_
#define FUZZ_FUZZ_INPUT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

  bool Empty() const { return next_ == end_; }
  uint8_t Byte() { return Empty() ? 0 : *next_++; }
  bool Flag() { return (Byte() & 1) != 0; }
  uint32_t Number() {
    uint32_t number = 0;
    for (int i = 0; i < 4; ++i) number = number << 8 | Byte();
    return number;
  }
  template <typename T, size_t kSize>
  const T& OneOf(const T (&choices)[kSize]) {
    return choices[Byte() % kSize];
  }
  std::string Bytes(size_t count) {
    const size_t taken = std::min(count, static_cast<size_t>(end_ - next_));
    next_ += taken;
    return std::string(next_ - taken, next_);
  }

 private:
  const uint8_t* next_;
  const uint8_t* end_;
};

#endif  // FUZZ_FUZZ_INPUT_H_
