// Whether a stored response may answer a request without asking the server, and how to ask when it may not.
// Pure functions.
#ifndef LIVE_CACHE_REUSE_H_
#define LIVE_CACHE_REUSE_H_

#include <string>
#include <string_view>

#include "live/cache/stored_response.h"

namespace live {

// By the response's age and by what both sides ask for. An immutable response that is fresh is not asked for
// again because of the request's max-age, as browsers send it on a reload, but because of no-cache. What
// would allow to serve a stale one while it is validated, or when the server fails (stale-while-revalidate,
// stale-if-error), is not used.
bool MayServe(const StoredResponse& stored, std::string_view requestHeaders, double nowMs);

// The header lines that make a request for this response conditional: If-None-Match with its ETag,
// If-Modified-Since with its Last-Modified. Empty when it has neither.
std::string Validators(const StoredResponse& stored);

}  // namespace live

#endif  // LIVE_CACHE_REUSE_H_
