// The in-memory store of launched preloads: PreloadCache, its PreloadEntry records and PreloadLock.
// Everything declared here is used with PreloadLock held; callers come from any thread.
#ifndef CACHE_PRELOAD_CACHE_H_
#define CACHE_PRELOAD_CACHE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "base/synchronization/lock.h"
#include "base/time/time.h"
#include "net/url_request/url_request_context.h"

namespace kiv {

// The progress of a fetch. The numbers are printed in the log.
enum class PreloadState : uint32_t {
  Pending = 0,    // the fetcher was asked to start
  Delayed = 1,    // waiting for the host's message loop and HTTP cache
  Running = 2,    // the fetcher has taken the request
  Preloaded = 3,  // can be served
  Failed = 4,     // ended in any other way
};

struct PreloadEntry {
  std::string url;
  uint32_t urlHash = 0;  // the key, and the fetch cookie
  uint32_t loadFlags = 0;
  net::URLRequestContext* context = nullptr;  // never null after the launch; not owned
  std::string requestHeaders;                 // header lines as text
  std::string responseHeaders;                // the raw block
  PreloadState state = PreloadState::Pending;
  base::Time startTime;
  int32_t responseCode = -1;
  int64_t contentLength = 0;  // declared length in bytes, -1 when none was declared
  uint32_t dataSize = 0;      // body bytes held
  uint32_t dataCapacity = 0;  // body bytes allocated
  std::unique_ptr<char[]> data;
  uint32_t loans = 0;          // of this body, not returned yet
  bool lent = false;           // `data` was lent at some time
  uint32_t flushesParked = 0;  // flushes since it was parked
};

// Guards the cache and every field of every entry. It is not recursive, and is held from the lookup to the
// last access.
extern base::Lock PreloadLock;

// By URL hash; the pointers are never null. Two URLs with the same hash share an entry.
extern std::map<uint32_t, std::unique_ptr<PreloadEntry>> PreloadCache GUARDED_BY(PreloadLock);

// Entries that left the cache and bodies that were outgrown while a caller may still read them. No lookup
// finds them. Those of a hash are freed when its last loan is returned, and each one at the latest by the
// second flush after it was parked, so that a loan that is never returned does not keep bodies for ever.
extern std::multimap<uint32_t, std::unique_ptr<PreloadEntry>> ParkedEntries GUARDED_BY(PreloadLock);

using PreloadIterator = std::map<uint32_t, std::unique_ptr<PreloadEntry>>::iterator;

// The entry, or null. A cookie is the hash converted to a pointer.
PreloadEntry* FindByHash(uint32_t urlHash) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);
PreloadEntry* FindByCookie(const void* cookie) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// Asks the host to start the entry's fetch, and returns its answer: 0 when it refused.
int32_t StartFetch(const PreloadEntry& entry) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// Removes the entry from the cache and returns the next one. The entry is destroyed, or parked if its body
// may still be read. Allocates nothing.
PreloadIterator RemoveEntry(PreloadIterator place) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// Gives the entry a larger buffer that begins with the bytes held; the rest is not initialised. Throws when
// there is no memory, and then changes nothing.
void GrowBody(PreloadEntry& entry, uint32_t capacity) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// Counts one more reader of the entry's body. There must be fewer than UINT32_MAX loans.
void LendBody(PreloadEntry& entry) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// For a flush: frees the parked bodies that an earlier flush has left, and ends their loans.
void EndOldLoans() EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

// Returns one loan of the hash, if there is one. `entry` is the hash's entry in the cache, or null.
void ReturnLoan(uint32_t urlHash, PreloadEntry* entry) EXCLUSIVE_LOCKS_REQUIRED(PreloadLock);

}  // namespace kiv

#endif  // CACHE_PRELOAD_CACHE_H_
