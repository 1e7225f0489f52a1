// base::Time: a point in time, counted in microseconds.
#ifndef BASE_TIME_TIME_H_
#define BASE_TIME_TIME_H_

#include <compare>
#include <cstdint>

namespace base {

class Time {
 public:
  // The null time, microsecond 0.
  constexpr Time() = default;

  // Convert from and to a count of microseconds.
  static constexpr Time FromInternalValue(int64_t microseconds) { return Time(microseconds); }
  constexpr int64_t ToInternalValue() const { return microseconds_; }

  friend constexpr auto operator<=>(const Time&, const Time&) = default;

 private:
  constexpr explicit Time(int64_t microseconds) : microseconds_(microseconds) {}

  int64_t microseconds_ = 0;
};

}  // namespace base

#endif  // BASE_TIME_TIME_H_
