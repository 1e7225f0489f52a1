// Responses in a private HTTP cache: which ones may be kept, which of their headers are kept, how old they
// are, and how they are served. Pure functions of plain records.
#ifndef LIVE_CACHE_STORED_RESPONSE_H_
#define LIVE_CACHE_STORED_RESPONSE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/http/cache_control.h"

namespace live {

// A request as the client sends it, without what the cache adds.
struct CacheRequest {
  std::string method = "GET";
  std::string url;        // absolute
  std::string headers;    // "Name: value" CRLF for each header
  std::string partition;  // responses are never shared between partitions
};

// When a request was sent and when the headers of its answer arrived, in microseconds since 1970.
struct ExchangeTimes {
  int64_t requestedUs = 0;
  int64_t receivedUs = 0;
};

// Immutable once it is stored. A reader that holds it keeps it, including the body, even if the cache removes
// it.
struct StoredResponse {
  int status = 0;
  std::string block;        // see KeptBlock
  std::string sentHeaders;  // of the request that brought it, those that Vary names
  std::shared_ptr<const std::string> body;
  http::ResponseCacheControl control;
  double madeMs = 0;  // by its Date, since 1970
  double receivedMs = 0;
  double initialAgeMs = 0;  // when it was received
  double lifetimeMs = 0;
};
using StoredPtr = std::shared_ptr<const StoredResponse>;

// A response for a client. A 304 and the answer to a HEAD have an empty body; the body is never null.
struct ServedResponse {
  std::string block;
  std::shared_ptr<const std::string> body;
};

inline double ToMs(int64_t microseconds) {
  return static_cast<double>(microseconds) / 1e3;
}

// Whether the request has a precondition or a range that the cache leaves to the server: If-Match,
// If-Unmodified-Since, If-Range, Range.
bool IsForServerOnly(std::string_view requestHeaders);

// The length that a response's headers declare for its body. -1 if there is none, if it cannot be parsed, or
// if Transfer-Encoding determines where the body ends.
int64_t DeclaredLength(const std::string& block);

// Whether this answer may be stored. It must be an answer to a GET that http::MayStore permits, with a status
// of a complete response (not 206 or 304), a Vary that can match, and no unreadable length. If only the
// server could answer the request, the status must be 200.
bool MayStore(const CacheRequest& request, int status, const std::string& block);

// Returns the headers without those of one connection (Connection, the headers that it names,
// Transfer-Encoding and so on) and without those of this one answer: Age, which initialAgeMs replaces, and
// Set-Cookie, because a stored cookie could overwrite a newer one. A Date that is missing or invalid becomes
// the time of arrival.
std::string KeptBlock(const std::string& block, double receivedMs);

// `body` is as it came, with any content coding.
StoredResponse MakeStored(const CacheRequest& request, int status, const std::string& block,
                          std::shared_ptr<const std::string> body, const ExchangeTimes& times);

// A response is never younger than on its arrival, even if the clock was set back.
double AgeMs(const StoredResponse& stored, double nowMs);

// Returns the block with an Age header.
std::string ServedBlock(const StoredResponse& stored, double nowMs);

}  // namespace live

#endif  // LIVE_CACHE_STORED_RESPONSE_H_
