// Command type 2, action 13: what the disk cache holds. Command thread.
#ifndef REFLECTOR_CACHE_STATUS_HANDLER_H_
#define REFLECTOR_CACHE_STATUS_HANDLER_H_

#include "plugin/corvane.h"

namespace kiv {

// Marks the URL with a hash as held by the disk cache (status not 0) or forgets it. Always returns 1.
int32_t SetCacheStatus(CorvaneCmd* cmd);

}  // namespace kiv

#endif  // REFLECTOR_CACHE_STATUS_HANDLER_H_
