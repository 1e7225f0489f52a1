// What a 304 makes of a stored response. Pure functions.
#ifndef LIVE_CACHE_RENEWAL_H_
#define LIVE_CACHE_RENEWAL_H_

#include <string>

#include "live/cache/stored_response.h"

namespace live {

// Whether the 304 means this response: it has the same ETag (the same strong one, if it is strong), or, when
// not both have one, the same Last-Modified. A 304 that names neither means the response whose validators
// were sent, `wasAsked`: the request held those of no other.
bool Renews(const StoredResponse& stored, const std::string& notModifiedBlock, bool wasAsked);

// The same response with the headers of the 304 in place of its own of those names, except for those that
// describe the body as it was stored (Content-Length, Content-Encoding, Content-Range). It is as old as the
// 304, and it came in answer to this request.
StoredResponse Renewed(const StoredResponse& stored, const CacheRequest& request,
                       const std::string& notModifiedBlock, const ExchangeTimes& times);

}  // namespace live

#endif  // LIVE_CACHE_RENEWAL_H_
