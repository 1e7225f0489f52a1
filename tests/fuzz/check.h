// Ends a fuzz target, so that its input is kept, when what should hold does not.
#ifndef TESTS_FUZZ_CHECK_H_
#define TESTS_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                       \
  do {                                                                              \
    if (!(condition)) {                                                             \
      std::fprintf(stderr, "%s:%d: %s is false\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                 \
    }                                                                               \
  } while (false)

#endif  // TESTS_FUZZ_CHECK_H_
