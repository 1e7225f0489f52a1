// The record of one queued preload. Command thread.
#ifndef PRELOAD_PRELOAD_REQUEST_H_
#define PRELOAD_PRELOAD_REQUEST_H_

#include <cstdint>
#include <string>

namespace kiv {

struct PreloadRequest {
  uint32_t urlHash;
  std::string url;
  uint32_t mainUrlHash;        // the page whose context and headers are used; 0 for none
  uint32_t priority;           // smaller leaves the queue first
  uint32_t loadFlags;          // passed on unchanged
  std::string requestHeaders;  // replaced by those of the page if it is known
};

}  // namespace kiv

#endif  // PRELOAD_PRELOAD_REQUEST_H_
