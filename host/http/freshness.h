// Whether a browser's own cache may store a response, and how long it may use it without asking the server
// again. Times are milliseconds, dates are counted since 1970 UTC. Any thread.
#ifndef HOST_HTTP_FRESHNESS_H_
#define HOST_HTTP_FRESHNESS_H_

#include <optional>
#include <string>
#include <string_view>

namespace http {

// Whether the headers of a GET and of its response let a private cache store it. What a cache makes of the
// body, and of a 206 and a 304, which may be stored only as a part or as a renewal of something else, is up
// to the cache.
bool MayStore(int status, std::string_view requestHeaders, std::string_view responseBlock);

// For how long after it was made a stored response is fresh: what the server says, else a tenth of the time
// since it was last modified, for a status that allows a guess. May be negative. `receivedMs`, the moment of
// its arrival, stands in for a missing Date. That it may have to be validated each time (no-cache) is a
// matter of its own.
double LifetimeMs(int status, std::string_view responseBlock, std::optional<double> receivedMs);

// The age of a response when it arrived: by its Age and how long it took to come, or by its Date, whichever
// is more.
double InitialAgeMs(std::string_view responseBlock, double requestedMs, double receivedMs);

// Milliseconds from its arrival for which the response is fresh, by the rules for a private cache: 0 when it
// may be stored but has to be validated each time, nothing when it may not be stored. `rawHeaders` is a block
// as Request::responseHeaders holds it. Its age counts as far as Age tells it: clocks of recorders are not
// compared with those of servers.
std::optional<double> FreshForMs(std::string_view method, int status, const std::string& rawHeaders,
                                 std::optional<double> receivedMs = std::nullopt);

}  // namespace http

#endif  // HOST_HTTP_FRESHNESS_H_
