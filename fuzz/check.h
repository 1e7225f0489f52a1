// Ends a fuzz target, so that its input is kept, when what should hold does not.
#ifndef FUZZ_CHECK_H_
#define FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                       \
  do {                                                                              \
    if (!(condition)) {                                                             \
      std::fprintf(stderr, "%s:%d: %s is false\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                 \
    }                                                                               \
  } while (false)

#endif  // FUZZ_CHECK_H_
