// Whether a stored response may answer a request without asking the server, and how to ask if it may not.
// Pure functions.
#ifndef LIVE_CACHE_REUSE_H_
#define LIVE_CACHE_REUSE_H_

#include <string>
#include <string_view>

#include "live/cache/stored_response.h"

namespace live {

// Decides by the age of the response and the directives of both sides. A fresh immutable response is served
// in spite of the max-age that browsers send on a reload, but not in spite of no-cache. The directives that
// permit a stale response while it is validated or if the server fails (stale-while-revalidate,
// stale-if-error) are ignored.
bool MayServe(const StoredResponse& stored, std::string_view requestHeaders, double nowMs);

// The header lines that make a request for this response conditional: If-None-Match with its ETag, and
// If-Modified-Since with its Last-Modified. Empty if it has neither.
std::string Validators(const StoredResponse& stored);

}  // namespace live

#endif  // LIVE_CACHE_REUSE_H_
