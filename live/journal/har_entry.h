// Writes one load as an entry of a HAR, without private data: bodies, values of cookies, credentials. Any
// thread.
#ifndef LIVE_JOURNAL_HAR_ENTRY_H_
#define LIVE_JOURNAL_HAR_ENTRY_H_

#include <cstdint>
#include <string>

#include "live/proxy/proxy_engine.h"

namespace live {

// Returns the JSON object in one line. `pageId` is its pageref, or empty for none. `wallUs` is as for
// PageJson.
//
// The times are those for which the browser waited. If a load waited without its own request, for a preload
// or the proxy's cache, that time is "blocked", so that it is not attributed to the server.
//
// `httpVersion` is the one that the server speaks, as in host::TransferReport.
//
// Cookies keep their names and attributes. Other headers whose names suggest credentials, a key or a token
// keep only their names. URLs are kept completely.
std::string HarEntry(const LoadRecord& load, const std::string& pageId, int64_t wallUs, int httpVersion);

}  // namespace live

#endif  // LIVE_JOURNAL_HAR_ENTRY_H_
