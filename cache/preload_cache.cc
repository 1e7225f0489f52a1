#include "cache/preload_cache.h"

#include <cstring>
#include <utility>

#include "plugin/corvane.h"

namespace kiv {
namespace {

// A loan belongs to a hash and not to one body, because it is not known which of the hash's bodies a caller
// has read. `entry` is the one in the cache, or null.
bool LoansAreOut(uint32_t urlHash, const PreloadEntry* entry) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock) {
  if (entry != nullptr && entry->loans != 0) return true;
  const auto [first, last] = ParkedEntries.equal_range(urlHash);
  for (auto parked = first; parked != last; ++parked) {
    if (parked->second->loans != 0) return true;
  }
  return false;
}

// Parks the body that a lent entry is about to outgrow, together with its loans.
void ParkBody(PreloadEntry& entry) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock) {
  const auto parked = ParkedEntries.emplace(entry.urlHash, std::make_unique<PreloadEntry>());
  parked->second->data = std::move(entry.data);
  parked->second->loans = std::exchange(entry.loans, 0);
  entry.lent = false;
}

}  // namespace

PreloadEntry* FindByHash(uint32_t urlHash) {
  const auto found = PreloadCache.find(urlHash);
  return found != PreloadCache.end() ? found->second.get() : nullptr;
}

PreloadEntry* FindByCookie(const void* cookie) {
  const auto value = reinterpret_cast<uintptr_t>(cookie);
  return value <= UINT32_MAX ? FindByHash(static_cast<uint32_t>(value)) : nullptr;
}

int32_t StartFetch(const PreloadEntry& entry) {
  return CorvaneFetch(reinterpret_cast<void*>(static_cast<uintptr_t>(entry.urlHash)), entry.context);
}

PreloadIterator RemoveEntry(PreloadIterator place) {
  const auto next = std::next(place);
  const bool park = place->second->lent && LoansAreOut(place->first, place->second.get());
  auto removed = PreloadCache.extract(place);
  if (park) ParkedEntries.insert(std::move(removed));
  return next;
}

void GrowBody(PreloadEntry& entry, uint32_t capacity) {
  auto grown = std::make_unique_for_overwrite<char[]>(capacity);
  if (entry.dataSize != 0) std::memcpy(grown.get(), entry.data.get(), entry.dataSize);
  if (entry.lent && LoansAreOut(entry.urlHash, &entry)) ParkBody(entry);
  entry.data = std::move(grown);
  entry.dataCapacity = capacity;
}

void LendBody(PreloadEntry& entry) {
  ++entry.loans;
  entry.lent = true;
}

void EndOldLoans() {
  std::erase_if(ParkedEntries, [](const auto& parked) { return ++parked.second->flushesParked == 2; });
}

void ReturnLoan(uint32_t urlHash, PreloadEntry* entry) {
  if (entry != nullptr && entry->loans != 0) {
    --entry->loans;
  } else {
    const auto [first, last] = ParkedEntries.equal_range(urlHash);
    auto parked = first;
    while (parked != last && parked->second->loans == 0) ++parked;
    if (parked == last) return;
    --parked->second->loans;
  }
  if (!LoansAreOut(urlHash, entry)) ParkedEntries.erase(urlHash);
}

}  // namespace kiv
