// How a 304 updates a stored response. Pure functions.
#ifndef LIVE_CACHE_RENEWAL_H_
#define LIVE_CACHE_RENEWAL_H_

#include <string>

#include "live/cache/stored_response.h"

namespace live {

// Whether the 304 is about this response: they have the same ETag (a strong one must be equal and strong),
// or, unless both have one, the same Last-Modified. A 304 with neither is about the response whose validators
// were sent (`wasAsked`), because the request contained those of no other response.
bool Renews(const StoredResponse& stored, const std::string& notModifiedBlock, bool wasAsked);

// Returns the stored response with the headers of the 304 instead of its own headers of the same names,
// except those that describe the stored body (Content-Length, Content-Encoding, Content-Range). Its age is
// that of the 304, and its request is this one.
StoredResponse Renewed(const StoredResponse& stored, const CacheRequest& request,
                       const std::string& notModifiedBlock, const ExchangeTimes& times);

}  // namespace live

#endif  // LIVE_CACHE_RENEWAL_H_
