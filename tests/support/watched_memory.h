// The plugin's share of the program's memory: a program that links this counts what is allocated while a
// thread is inside the plugin, and may refuse it. One thread at a time is inside.
#ifndef TESTS_SUPPORT_WATCHED_MEMORY_H_
#define TESTS_SUPPORT_WATCHED_MEMORY_H_

#include <cstddef>
#include <cstdint>

namespace tests {

struct WatchedMemory {
  // --- What is refused, set by the test. An allocation is one call of operator new, counted from 1.
  size_t failFrom = 0;             // the first allocation to fail; 0 for none
  size_t failCount = 1;            // how many fail from there on
  size_t largestBlock = SIZE_MAX;  // a request of more bytes always fails
  // --- What happened
  size_t allocations = 0;  // asked for; the test sets it back
  size_t refused = 0;      // of these; the test sets it back
  size_t blocks = 0;       // held now, wherever they are freed
  size_t bytes = 0;        // in these blocks
  size_t peakBytes = 0;    // the most at any time; the test sets it back
};
extern WatchedMemory watchedMemory;

// Whether the calling thread's allocations are the plugin's from now on, or somebody else's; what they were.
bool EnterPlugin(bool inside);

// The same for a scope.
class MemoryOwner {
 public:
  explicit MemoryOwner(bool plugin) : before_(EnterPlugin(plugin)) {}
  ~MemoryOwner() { EnterPlugin(before_); }
  MemoryOwner(const MemoryOwner&) = delete;
  MemoryOwner& operator=(const MemoryOwner&) = delete;

 private:
  bool before_;
};

}  // namespace tests

#endif  // TESTS_SUPPORT_WATCHED_MEMORY_H_
