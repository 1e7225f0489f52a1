// How long a browser's own cache may use a response without asking the server again. Any thread.
#ifndef REPLAY_FRESHNESS_H_
#define REPLAY_FRESHNESS_H_

#include <optional>
#include <string>
#include <string_view>

namespace replay {

// Milliseconds from its arrival for which the response is fresh, by the rules for a private cache: 0 when it
// may be stored but has to be validated each time, nothing when it may not be stored. `rawHeaders` is a block
// as Request::responseHeaders holds it. `receivedMs`, the arrival in milliseconds since 1970, stands in for a
// missing Date.
std::optional<double> FreshForMs(std::string_view method, int status, const std::string& rawHeaders,
                                 std::optional<double> receivedMs = std::nullopt);

}  // namespace replay

#endif  // REPLAY_FRESHNESS_H_
