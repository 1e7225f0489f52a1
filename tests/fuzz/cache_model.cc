#include "tests/fuzz/cache_model.h"

#include "tests/fuzz/check.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_ADDRESS_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(KIV_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace {

void CheckFreed([[maybe_unused]] const ModelLoan& loan) {
#if defined(__SANITIZE_ADDRESS__) || defined(KIV_ADDRESS_SANITIZER)
  FUZZ_CHECK(__asan_address_is_poisoned(loan.bytes));
#endif
}

}  // namespace

ModelEntry* CacheModel::Find(uint64_t hash) {
  const auto found = hash <= UINT32_MAX ? entries.find(static_cast<uint32_t>(hash)) : entries.end();
  return found != entries.end() ? &found->second : nullptr;
}

void CacheModel::Launched(uint32_t hash, const std::string& url, ModelState state, int64_t nowMs) {
  FUZZ_CHECK(!entries.contains(hash));
  entries[hash] = {.url = url, .state = state, .madeMs = nowMs};
}

bool CacheModel::MayHold(const ModelEntry& entry) const {
  return entry.contentLength >= 0 && static_cast<uint64_t>(entry.contentLength) <= sizeLimit;
}

bool CacheModel::CanBeServed(const ModelEntry* entry) const {
  return cacheEnabled && entry != nullptr && entry->state == ModelState::Preloaded && MayHold(*entry);
}

uint64_t CacheModel::CapacityFor(const ModelEntry& entry, uint64_t count) const {
  if (!cacheEnabled || !MayHold(entry)) return 0;
  const uint64_t size = entry.body.size() + count;
  if (size <= entry.capacity) return entry.capacity;
  const auto declared = static_cast<uint64_t>(entry.contentLength);
  const uint64_t capacity = (size < declared ? declared : size) + 10;
  return capacity <= UINT32_MAX ? capacity : 0;
}

void CacheModel::Lent(uint32_t hash, const char* bytes) {
  loans.push_back({hash, bytes, entries.at(hash).body});
  ++loansOut[hash];
}

void CacheModel::Released(uint32_t hash) {
  const auto out = loansOut.find(hash);
  if (out == loansOut.end() || --out->second != 0) return;
  loansOut.erase(out);
  std::erase_if(loans, [hash](const ModelLoan& loan) {
    if (loan.hash == hash) CheckFreed(loan);
    return loan.hash == hash;
  });
}

void CacheModel::CheckLoans() const {
  for (const ModelLoan& loan : loans) {
    FUZZ_CHECK(std::string(loan.bytes, loan.body.size()) == loan.body);
  }
}
