// What the plugin should hold, worked out from the host's side alone: the preloads by hash with the bytes
// that were read for each, and the bodies that are lent. One thread.
#ifndef FUZZ_CACHE_MODEL_H_
#define FUZZ_CACHE_MODEL_H_

#include <cstdint>
#include <map>
#include <optional>
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

// A body that was lent at some time and can still be read.
struct ModelBody {
  uint32_t hash;
  const char* bytes;
  std::string text;  // as it was when it was lent last
  size_t loans = 0;  // not yet returned
  // How many flushes it has seen since it left the cache; nothing while it is in it.
  std::optional<int> flushes;
};

struct CacheModel {
  bool cacheEnabled = false;
  uint64_t sizeLimit = 0;
  std::map<uint32_t, ModelEntry> entries;
  std::vector<ModelBody> bodies;  // in the order in which they were first lent

  ModelEntry* Find(uint64_t hash);
  void Launched(uint32_t hash, const std::string& url, ModelState state, int64_t nowMs);
  bool MayHold(const ModelEntry& entry) const;
  bool CanBeServed(const ModelEntry* entry) const;

  // The size of the buffer once `count` more bytes are in it; 0 when the plugin has to refuse them.
  uint64_t CapacityFor(const ModelEntry& entry, uint64_t count) const;

  void Lent(uint32_t hash, const char* bytes);
  // One loan of the hash comes back: one of the body in the cache, if it has any. With the last one, the
  // bodies that have left the cache are gone.
  void Returned(uint32_t hash);
  // The preload of the hash leaves the cache, or its buffer is replaced by a larger one. Its body stays
  // readable while loans of the hash are out.
  void Removed(uint32_t hash);
  // Before a flush removes anything: it ends the loans of bodies that have seen one before.
  void FlushBegins();
  bool LoansAreOut(uint32_t hash) const;
  // That the bodies can be read; where memory can say so, the others were found to be freed when they went.
  void CheckLoans() const;
};

#endif  // FUZZ_CACHE_MODEL_H_
