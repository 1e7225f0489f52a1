// Command type 8: requests seen by the host, preload orders, delayed fetches. Command thread.
#ifndef PRELOAD_PREFETCH_HANDLER_H_
#define PRELOAD_PREFETCH_HANDLER_H_

#include "cache/preload_cache.h"
#include "plugin/corvane.h"

namespace kiv {

// Actions 1 (request seen), 4 (run a pass), 20 (start the delayed fetches) and 21 (preload order): 1. Others:
// 0. An absent text counts as empty. Action 20 holds PreloadLock for its whole walk, action 4 and 21 take it
// per launch.
int32_t HandlePrefetch(CorvaneCmd* cmd) LOCKS_EXCLUDED(PreloadLock);

}  // namespace kiv

#endif  // PRELOAD_PREFETCH_HANDLER_H_
