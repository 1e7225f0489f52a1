// Makes one call of another program fail, once: a library that the program is started with by LD_PRELOAD, and
// the record through which a test tells it which. Both map the file that the environment names in
// KIV_FAIL_CONTROL.
#ifndef TESTS_LIVE_SUPPORT_FAIL_ONE_CALL_H_
#define TESTS_LIVE_SUPPORT_FAIL_ONE_CALL_H_

#include <atomic>
#include <cstdint>

namespace tests {

struct FailControl {
  std::atomic<uint32_t> armed;  // set last, and reset first, by the test
  int32_t error;                // errno of the call that fails
  char call[32];                // the function's name
  uint64_t failAt;              // the number of the call that fails, from 1
  std::atomic<uint64_t> calls;  // counted while armed
};

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_FAIL_ONE_CALL_H_
