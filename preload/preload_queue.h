// Adds preloads to the queue of their host, and removes them. Command thread.
#ifndef PRELOAD_PRELOAD_QUEUE_H_
#define PRELOAD_PRELOAD_QUEUE_H_

#include <cstdint>
#include <string>

#include "learning/host_map.h"

namespace kiv {

// Appends a preload to the queue of its URL's host and runs CheckPreload over all hosts. `url` is not null.
void SetForPreload(const char* url, uint32_t mainUrlHash, uint32_t priority, uint32_t loadFlags,
                   const std::string& requestHeaders);

// Removes every queued preload with this hash; the others keep their order.
void RemoveFromQueue(HostEntry& host, uint32_t urlHash);

// Sorts by ascending priority if anything was appended since. Equal priorities keep their order.
void SortQueue(HostEntry& host);

}  // namespace kiv

#endif  // PRELOAD_PRELOAD_QUEUE_H_
