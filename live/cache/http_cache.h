// A browser's private HTTP cache: which stored response answers a request, what has to be asked of the
// server, and what its answers change. It has no clock, no socket and no thread: the caller hands in the
// time, sends what is to be sent, and calls everything here on one thread.
//
// For each request: Lookup; when it is not Fresh, send the request (with the validators of a Stale one added)
// and hand the headers of the answer to Renew, when validators were added and it is a 304, else to
// OnResponse, whatever the method.
#ifndef LIVE_CACHE_HTTP_CACHE_H_
#define LIVE_CACHE_HTTP_CACHE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "live/cache/cache_key.h"
#include "live/cache/stored_response.h"

namespace live {

// Bytes are those of bodies, headers, URLs, and an allowance for the records. When there is too much, what
// was stored, served or asked about the longest time ago goes first. Of one URL in one partition no more than
// 16 variants are kept: the one stored first goes. Writers are not counted: each holds at most one response.
struct CacheLimits {
  size_t bytes = 256U << 20;
  size_t responseBytes = 16U << 20;  // a larger response is not stored
  size_t entries = 20000;
};

enum class CacheVerdict {
  Miss,          // send the request as it is
  Fresh,         // serve the response
  Stale,         // send the request with the validators
  NotAvailable,  // the client wants it from the cache or not at all (only-if-cached): answer 504
};

struct CacheLookup {
  CacheVerdict verdict = CacheVerdict::Miss;
  ServedResponse response;  // of Fresh
  StoredPtr stored;         // of Stale, for Renew
  std::string validators;   // of Stale: header lines, each with its CRLF
};

class CacheWriter;

class HttpCache {
 public:
  // Told when the first response for a URL (without its fragment) is stored and when the last one goes, in
  // whatever partition. It may call the cache, but not destroy it.
  using HeldObserver = std::function<void(const std::string& url, bool held)>;

  explicit HttpCache(const CacheLimits& limits, HeldObserver onHeldChanged = nullptr);
  // Writers that are left store nothing.
  ~HttpCache();
  HttpCache(const HttpCache&) = delete;
  HttpCache& operator=(const HttpCache&) = delete;

  // What to do with a request. A fresh response answers GET and HEAD, and a condition of the client's own
  // (If-None-Match, If-Modified-Since) with a 304 where that is true. Requests that only the server can
  // answer (see IsForServerOnly), and conditional ones for which nothing fresh is there, are a Miss.
  CacheLookup Lookup(const CacheRequest& request, int64_t nowUs);

  // Takes note of an answer that has come from the network and goes to the client. A response that may be
  // stored gives a writer for its body, and what was stored for that request stays until it commits; null for
  // all others. What an answer proves to be outdated is dropped: the stored response in place of which
  // another came (errors of the server, 5xx, prove nothing), and after a request that changes something, the
  // URLs that it names. A 304 that answers the client's own condition renews the stored response that it
  // names.
  std::unique_ptr<CacheWriter> OnResponse(const CacheRequest& request, const std::string& block,
                                          const ExchangeTimes& times);

  // Takes the 304 that came when the validators of `asked` were sent; gives the response for the client,
  // which has the cookies that the 304 sets. Nothing when the server means another response: that one is
  // dropped, and the request is to be sent again without validators. What was dropped or replaced meanwhile
  // is served and not stored again.
  std::optional<ServedResponse> Renew(const CacheRequest& request, const StoredPtr& asked,
                                      const std::string& notModifiedBlock, const ExchangeTimes& times);

  // Drops what is stored for a URL, in all partitions, and keeps what is being written from being stored.
  void Remove(std::string_view url);
  void Clear();

  bool Holds(std::string_view url) const;
  size_t Entries() const { return entries_.size(); }
  size_t Bytes() const { return bytes_; }

 private:
  friend class CacheWriter;
  struct Entry {
    CacheKey key;
    StoredPtr stored;
    size_t bytes;
  };
  using EntryIt = std::list<Entry>::iterator;

  // The latest of the responses that this request may have; the end of entries_ when there is none.
  EntryIt Select(const CacheKey& key, std::string_view requestHeaders);
  EntryIt Find(const CacheKey& key, const StoredPtr& stored);
  bool FitsLimits(size_t bytes) const { return bytes <= limits_.responseBytes && bytes <= limits_.bytes; }

  // These leave the observer to Report, which each public function calls last.
  std::unique_ptr<CacheWriter> Begin(const CacheRequest& request, int status, const std::string& block,
                                     const ExchangeTimes& times);
  void Store(const CacheRequest& request, StoredResponse stored);
  void Drop(EntryIt entry);
  void DropSelected(const CacheRequest& request);
  void DropUrl(const std::string& url);
  void DropOutdated(const CacheRequest& request, const std::string& block);
  void RenewNamed(const CacheRequest& request, const std::string& notModifiedBlock,
                  const ExchangeTimes& times);
  void CheckHead(const CacheRequest& request, const std::string& block);
  void Report();

  const CacheLimits limits_;
  const HeldObserver onHeldChanged_;
  std::list<Entry> entries_;  // the one used last comes first
  std::map<CacheKey, std::vector<EntryIt>> index_;
  size_t bytes_ = 0;
  std::set<CacheWriter*> writers_;
  std::set<std::string> changed_;   // URLs of which the observer may have to hear
  std::set<std::string> reported_;  // those that it was told to be held
};

// Collects the body of one response. It stores nothing when it is destroyed without a Commit, when the body
// is larger than the cache allows, or when its URL was removed meanwhile.
class CacheWriter {
 public:
  ~CacheWriter();
  CacheWriter(const CacheWriter&) = delete;
  CacheWriter& operator=(const CacheWriter&) = delete;

  // The next bytes of the body as they came, content coding and all. False once it cannot be stored any more.
  bool Append(std::string_view bytes);

  // The body has come to its end. Stores the response in place of those that its request could have had
  // before; of several writers the last one to commit wins. False when it is not stored, which it is not
  // either when the body does not have the length that its headers declare. The writer is used up.
  bool Commit();

 private:
  friend class HttpCache;
  CacheWriter(HttpCache& cache, CacheRequest request, int status, std::string block,
              const ExchangeTimes& times);

  void GiveUp();

  HttpCache* cache_;  // null when it has given up
  const CacheRequest request_;
  const int status_;
  const std::string block_;
  const ExchangeTimes times_;
  std::string body_;
};

}  // namespace live

#endif  // LIVE_CACHE_HTTP_CACHE_H_
