#include "fuzz/cache_model.h"

#include <algorithm>

#include "fuzz/check.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_ADDRESS_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(KIV_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

namespace {

void CheckFreed([[maybe_unused]] const ModelBody& body) {
#if defined(__SANITIZE_ADDRESS__) || defined(KIV_ADDRESS_SANITIZER)
  FUZZ_CHECK(__asan_address_is_poisoned(body.bytes));
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

bool CacheModel::LoansAreOut(uint32_t hash) const {
  return std::any_of(bodies.begin(), bodies.end(),
                     [hash](const ModelBody& body) { return body.hash == hash && body.loans != 0; });
}

void CacheModel::Lent(uint32_t hash, const char* bytes) {
  auto body = std::find_if(bodies.begin(), bodies.end(),
                           [hash](const ModelBody& known) { return known.hash == hash && !known.flushes; });
  if (body == bodies.end()) body = bodies.insert(body, {.hash = hash, .bytes = bytes});
  FUZZ_CHECK(body->bytes == bytes);
  body->text = entries.at(hash).body;
  ++body->loans;
}

void CacheModel::Returned(uint32_t hash) {
  ModelBody* from = nullptr;
  for (ModelBody& body : bodies) {
    if (body.hash != hash || body.loans == 0) continue;
    if (from == nullptr || !body.flushes) from = &body;
  }
  if (from == nullptr) return;
  --from->loans;
  if (LoansAreOut(hash)) return;
  std::erase_if(bodies, [hash](const ModelBody& body) {
    const bool gone = body.hash == hash && body.flushes;
    if (gone) CheckFreed(body);
    return gone;
  });
}

void CacheModel::Removed(uint32_t hash) {
  const auto body = std::find_if(bodies.begin(), bodies.end(), [hash](const ModelBody& known) {
    return known.hash == hash && !known.flushes;
  });
  if (body == bodies.end()) return;
  if (LoansAreOut(hash)) {
    body->flushes = 0;
    std::rotate(body, body + 1, bodies.end());  // loans come back in the order in which bodies have left
  } else {
    CheckFreed(*body);
    bodies.erase(body);
  }
}

void CacheModel::FlushBegins() {
  std::erase_if(bodies, [](ModelBody& body) {
    const bool gone = body.flushes && ++*body.flushes == 2;
    if (gone) CheckFreed(body);
    return gone;
  });
}

void CacheModel::CheckLoans() const {
  for (const ModelBody& body : bodies) {
    FUZZ_CHECK(std::string(body.bytes, body.text.size()) == body.text);
  }
}
