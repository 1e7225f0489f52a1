// The record of one queued preload. Command thread.
#ifndef PRELOAD_PRELOAD_REQUEST_H_
#define PRELOAD_PRELOAD_REQUEST_H_

#include <cstdint>
#include <string>

namespace kiv {

struct PreloadRequest {
  uint32_t urlHash;
  std::string url;
  uint32_t mainUrlHash;        // the page that lends context and headers; 0 for none
  uint32_t priority;           // smaller leaves the queue first
  uint32_t loadFlags;          // handed on unchanged
  std::string requestHeaders;  // replaced by the page's when the page is found
};

}  // namespace kiv

#endif  // PRELOAD_PRELOAD_REQUEST_H_
