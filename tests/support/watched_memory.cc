#include "tests/support/watched_memory.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace tests {

WatchedMemory watchedMemory;

namespace {

thread_local bool insidePlugin = false;

// Stands before every block, so that a block is known for the plugin's wherever it is freed.
struct alignas(std::max_align_t) Header {
  size_t bytes;
  bool ofPlugin;
};

bool Refuses(size_t bytes) {
  WatchedMemory& memory = watchedMemory;
  ++memory.allocations;
  const bool chosen = memory.failFrom != 0 && memory.allocations >= memory.failFrom &&
                      memory.allocations - memory.failFrom < memory.failCount;
  if (!chosen && bytes <= memory.largestBlock) return false;
  ++memory.refused;
  return true;
}

void* Allocate(size_t bytes) noexcept {
  if (insidePlugin && Refuses(bytes)) return nullptr;
  if (bytes > SIZE_MAX - sizeof(Header)) return nullptr;
  // One byte at least, so that a pointer to nothing still points into its block.
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + std::max<size_t>(bytes, 1)));
  if (header == nullptr) return nullptr;
  *header = {bytes, insidePlugin};
  if (insidePlugin) {
    WatchedMemory& memory = watchedMemory;
    ++memory.blocks;
    memory.bytes += bytes;
    memory.peakBytes = std::max(memory.peakBytes, memory.bytes);
  }
  return header + 1;
}

void* AllocateOrThrow(size_t bytes) {
  void* const block = Allocate(bytes);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void Free(void* block) noexcept {
  if (block == nullptr) return;
  Header* const header = static_cast<Header*>(block) - 1;
  if (header->ofPlugin) {
    --watchedMemory.blocks;
    watchedMemory.bytes -= header->bytes;
  }
  std::free(header);
}

}  // namespace

bool EnterPlugin(bool inside) {
  return std::exchange(insidePlugin, inside);
}

}  // namespace tests

// All of them, because a sanitizer would bring its own for those left out. Over-aligned blocks are not used.
// clang-format off
void* operator new(size_t bytes) { return tests::AllocateOrThrow(bytes); }
void* operator new[](size_t bytes) { return tests::AllocateOrThrow(bytes); }
void* operator new(size_t bytes, const std::nothrow_t&) noexcept { return tests::Allocate(bytes); }
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept { return tests::Allocate(bytes); }
void operator delete(void* block) noexcept { tests::Free(block); }
void operator delete[](void* block) noexcept { tests::Free(block); }
void operator delete(void* block, size_t) noexcept { tests::Free(block); }
void operator delete[](void* block, size_t) noexcept { tests::Free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { tests::Free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { tests::Free(block); }
// clang-format on
