// A response as a private HTTP cache keeps it: which ones may be kept, what is kept of their headers, how old
// they are, and what they look like when they are served. Pure functions of plain records.
#ifndef LIVE_CACHE_STORED_RESPONSE_H_
#define LIVE_CACHE_STORED_RESPONSE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/http/cache_control.h"

namespace live {

// A request as it is sent, without what the cache itself adds.
struct CacheRequest {
  std::string method = "GET";
  std::string url;        // absolute
  std::string headers;    // "Name: value" CRLF for each header
  std::string partition;  // responses are never shared between partitions
};

// When a request was sent and when the headers of its answer came: microseconds since 1970.
struct ExchangeTimes {
  int64_t requestedUs = 0;
  int64_t receivedUs = 0;
};

// Immutable once stored: who reads it keeps it, body and all, whatever the cache does.
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

// A response to hand to a client. A 304 and the answer to a HEAD have an empty body, never a null one.
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

// The length that a response's headers declare for its body. -1 when they do not, or not so that it can be
// read, or when Transfer-Encoding says where the body ends.
int64_t DeclaredLength(const std::string& block);

// Whether this answer may be stored: one to a GET that http::MayStore allows, complete by its status (no 206,
// no 304), with a Vary that can match, and with no length that nobody can read. If the request was for the
// server only, it has to be a 200.
bool MayStore(const CacheRequest& request, int status, const std::string& block);

// The headers without those of one connection (Connection and what it names, Transfer-Encoding and their
// kind) and without those that belong to this one answer: Age, for which initialAgeMs stands, and Set-Cookie,
// since a browser sets a cookie when the network brings it, and an old one would put back a newer. A Date
// that is missing or wrong becomes the time of arrival.
std::string KeptBlock(const std::string& block, double receivedMs);

// `body` is as it came, content coding and all.
StoredResponse MakeStored(const CacheRequest& request, int status, const std::string& block,
                          std::shared_ptr<const std::string> body, const ExchangeTimes& times);

// A clock that was set back makes nothing younger than it was on arrival.
double AgeMs(const StoredResponse& stored, double nowMs);

// The block with an Age.
std::string ServedBlock(const StoredResponse& stored, double nowMs);

}  // namespace live

#endif  // LIVE_CACHE_STORED_RESPONSE_H_
