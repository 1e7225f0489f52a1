// What the plugin should hold, worked out from the host's side alone: the preloads by hash with the bytes
// that were read for each, and the bodies that are lent. One thread.
#ifndef TESTS_FUZZ_CACHE_MODEL_H_
#define TESTS_FUZZ_CACHE_MODEL_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

enum class ModelState { Pending, Delayed, Running, Preloaded, Failed };

struct ModelEntry {
  std::string url;
  ModelState state = ModelState::Pending;
  int64_t madeMs = 0;
  int responseCode = -1;
  int64_t contentLength = 0;
  std::string headers;
  std::string body;
  uint64_t capacity = 0;  // of the buffer that the plugin should have
};

struct ModelLoan {
  uint32_t hash;
  const char* bytes;
  std::string body;  // as it was when it was lent
};

struct CacheModel {
  bool cacheEnabled = false;
  uint64_t sizeLimit = 0;
  std::map<uint32_t, ModelEntry> entries;
  std::vector<ModelLoan> loans;         // until the last one of their hash has come back
  std::map<uint32_t, size_t> loansOut;  // not yet returned, by hash

  ModelEntry* Find(uint64_t hash);
  void Launched(uint32_t hash, const std::string& url, ModelState state, int64_t nowMs);
  bool MayHold(const ModelEntry& entry) const;
  bool CanBeServed(const ModelEntry* entry) const;

  // The size of the buffer once `count` more bytes are in it; 0 when the plugin has to refuse them.
  uint64_t CapacityFor(const ModelEntry& entry, uint64_t count) const;

  void Lent(uint32_t hash, const char* bytes);
  // One release of the hash. With the last loan all its bodies are gone, and memory says so where it can.
  void Released(uint32_t hash);
  void CheckLoans() const;
};

#endif  // TESTS_FUZZ_CACHE_MODEL_H_
