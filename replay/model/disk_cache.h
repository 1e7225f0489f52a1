// The browser's HTTP disk cache between visits: which URLs it can answer without asking the server, and until
// which time.
#ifndef REPLAY_MODEL_DISK_CACHE_H_
#define REPLAY_MODEL_DISK_CACHE_H_

#include <algorithm>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "replay/recording/recording.h"

namespace replay {

class DiskCache {
 public:
  bool IsFresh(const std::string& url, int64_t nowUs) const {
    const auto found = freshUntilUs_.find(url);
    return found != freshUntilUs_.end() && nowUs < found->second;
  }

  // Keeps the response of a request if it may be stored. Returns whether it was kept.
  bool Store(const Request& request, int64_t nowUs) {
    if (!request.freshForMs || request.method != "GET") return false;
    constexpr double kLongestMs = 365.0 * 86400e3;  // nothing is kept for longer than a year
    freshUntilUs_[request.url] =
        nowUs + static_cast<int64_t>(std::min(*request.freshForMs, kLongestMs) * 1000);
    return true;
  }

 private:
  std::unordered_map<std::string, int64_t> freshUntilUs_;
};

}  // namespace replay

#endif  // REPLAY_MODEL_DISK_CACHE_H_
