// A browser's private HTTP cache: it decides which stored response answers a request, what the server must be
// asked, and what the server's answers change. It has no clock, no socket and no thread: the caller passes
// the time, sends the requests, and calls everything here on one thread.
//
// For each request, call Lookup. If the result is not Fresh, send the request (with the validators if it is
// Stale). If the answer to a request with validators is a 304, pass its headers to Renew; pass those of all
// other answers to OnResponse, whatever the method.
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

// The bytes are those of bodies, headers, URLs, and an allowance for the records. If there are too many, the
// response that was stored, served or validated the longest time ago is removed first. At most 16 variants of
// one URL in one partition are kept; the one that was stored first is removed. Writers do not count: each
// holds at most one response.
struct CacheLimits {
  size_t bytes = 256U << 20;
  size_t responseBytes = 16U << 20;  // a larger response is not stored
  size_t entries = 20000;
};

enum class CacheVerdict {
  Miss,          // send the request as it is
  Fresh,         // serve the response
  Stale,         // send the request with the validators
  NotAvailable,  // the client wants an answer only from the cache (only-if-cached): answer 504
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
  // Called when the first response for a URL (without its fragment) is stored in any partition, and when the
  // last one is removed. It may call the cache, but must not destroy it.
  using HeldObserver = std::function<void(const std::string& url, bool held)>;

  explicit HttpCache(const CacheLimits& limits, HeldObserver onHeldChanged = nullptr);
  // Writers that outlive the cache store nothing.
  ~HttpCache();
  HttpCache(const HttpCache&) = delete;
  HttpCache& operator=(const HttpCache&) = delete;

  // What to do with a request. A fresh response answers GET and HEAD, and also a request with a condition
  // (If-None-Match, If-Modified-Since), with a 304 if the condition permits it. A request that only the
  // server can answer (see IsForServerOnly), and a conditional request without a fresh response, is a Miss.
  CacheLookup Lookup(const CacheRequest& request, int64_t nowUs);

  // Processes an answer from the network that goes to the client. If the response may be stored, returns a
  // writer for its body; what was stored for that request stays until the writer commits. Otherwise returns
  // null. Removes what the answer shows to be outdated: the stored response if a different one came (except
  // for errors of the server, 5xx), and, after a request that changes something, the URLs that the answer
  // names. A 304 to a condition of the client renews the stored response that it names.
  std::unique_ptr<CacheWriter> OnResponse(const CacheRequest& request, const std::string& block,
                                          const ExchangeTimes& times);

  // Processes the 304 to a request with the validators of `asked`, and returns the response for the client,
  // including the cookies that the 304 sets. Returns nothing if the server means a different response:
  // `asked` is then removed, and the request must be sent again without validators. If `asked` was removed or
  // replaced meanwhile, it is served but not stored again.
  std::optional<ServedResponse> Renew(const CacheRequest& request, const StoredPtr& asked,
                                      const std::string& notModifiedBlock, const ExchangeTimes& times);

  // Removes what is stored for a URL, in all partitions, and prevents running writers from storing it.
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

  // The latest of the responses that may answer this request; the end of entries_ if there is none.
  EntryIt Select(const CacheKey& key, std::string_view requestHeaders);
  EntryIt Find(const CacheKey& key, const StoredPtr& stored);
  bool FitsLimits(size_t bytes) const { return bytes <= limits_.responseBytes && bytes <= limits_.bytes; }

  // These do not call the observer; each public function calls Report at its end.
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

// Collects the body of one response. It stores nothing if it is destroyed without a Commit, if the body is
// larger than the cache allows, or if its URL was removed meanwhile.
class CacheWriter {
 public:
  ~CacheWriter();
  CacheWriter(const CacheWriter&) = delete;
  CacheWriter& operator=(const CacheWriter&) = delete;

  // Adds the next bytes of the body as they came, with any content coding. Returns false once the body cannot
  // be stored.
  bool Append(std::string_view bytes);

  // Ends the body and stores the response, which replaces those that could have answered its request before.
  // If there are several writers, the last one to commit wins. Returns false if the response is not stored,
  // for example because the body does not have the declared length. The writer cannot be used any more.
  bool Commit();

 private:
  friend class HttpCache;
  CacheWriter(HttpCache& cache, CacheRequest request, int status, std::string block,
              const ExchangeTimes& times);

  void GiveUp();

  HttpCache* cache_;  // null once nothing can be stored
  const CacheRequest request_;
  const int status_;
  const std::string block_;
  const ExchangeTimes times_;
  std::string body_;
};

}  // namespace live

#endif  // LIVE_CACHE_HTTP_CACHE_H_
