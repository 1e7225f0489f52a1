// Whether a browser's own cache may store a response, and how long it may use it without asking the server
// again. Times are milliseconds, dates are counted since 1970 UTC. Any thread.
#ifndef HOST_HTTP_FRESHNESS_H_
#define HOST_HTTP_FRESHNESS_H_

#include <optional>
#include <string>
#include <string_view>

namespace http {

// Whether the headers of a GET and of its response permit a private cache to store the response. The cache
// itself decides about the body, and about a 206 and a 304, which may be stored only as a part or a renewal
// of another response.
bool MayStore(int status, std::string_view requestHeaders, std::string_view responseBlock);

// For how long after its creation a stored response is fresh: as the server says, else, for a status that
// permits a heuristic, a tenth of the time since it was last modified. May be negative. `receivedMs`, the
// time of its arrival, replaces a missing Date. This function ignores no-cache, which requires validation
// each time.
double LifetimeMs(int status, std::string_view responseBlock, std::optional<double> receivedMs);

// The age of a response when it arrived, computed from its Age and the duration of the request, or from its
// Date, whichever is greater.
double InitialAgeMs(std::string_view responseBlock, double requestedMs, double receivedMs);

// For how many milliseconds after its arrival the response is fresh, by the rules for a private cache: 0 if
// it may be stored but must be validated each time, nothing if it must not be stored. `rawHeaders` is a block
// as in Request::responseHeaders. Its age is taken only from Age, because the clocks of recorders are not
// compared with those of servers.
std::optional<double> FreshForMs(std::string_view method, int status, const std::string& rawHeaders,
                                 std::optional<double> receivedMs = std::nullopt);

}  // namespace http

#endif  // HOST_HTTP_FRESHNESS_H_
