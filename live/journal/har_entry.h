// One load as an entry of a HAR, without what is nobody's business: bodies, values of cookies, credentials.
// Any thread.
#ifndef LIVE_JOURNAL_HAR_ENTRY_H_
#define LIVE_JOURNAL_HAR_ENTRY_H_

#include <cstdint>
#include <string>

#include "live/proxy/proxy_engine.h"

namespace live {

// The JSON object, in one line. `pageId` is its pageref; empty for none. `wallUs` as for PageJson.
//
// The times are those of the browser's wait. What a load waited for without sending a request of its own, as
// for a preload or in the proxy's cache, is "blocked", so that nobody takes it for the server's doing.
//
// `httpVersion`: that the server speaks, as in host::TransferReport.
//
// Cookies keep their names and attributes. Of other headers whose names say credentials, key, token or the
// like, only the name is kept. URLs are kept whole.
std::string HarEntry(const LoadRecord& load, const std::string& pageId, int64_t wallUs, int httpVersion);

}  // namespace live

#endif  // LIVE_JOURNAL_HAR_ENTRY_H_
