// Command type 8: requests seen by the host, preload orders, delayed fetches. Command thread.
#ifndef PRELOAD_PREFETCH_HANDLER_H_
#define PRELOAD_PREFETCH_HANDLER_H_

#include "cache/preload_cache.h"
#include "plugin/corvane.h"

namespace kiv {

// Returns 1 for the actions 1 (request seen), 4 (launch what fits), 20 (start the delayed fetches) and 21
// (preload order), and 0 for others. Absent texts count as empty. Action 20 holds PreloadLock while it visits
// all entries; the actions 4 and 21 take it for each launch.
int32_t HandlePrefetch(CorvaneCmd* cmd) LOCKS_EXCLUDED(PreloadLock);

}  // namespace kiv

#endif  // PRELOAD_PREFETCH_HANDLER_H_
