// Writes the loads of the proxy as a HAR 1.2 that grows and is complete JSON after each write: the entries
// come first, and the tail after them, which contains the pages, is written again each time. One thread.
#ifndef LIVE_JOURNAL_HAR_LOG_H_
#define LIVE_JOURNAL_HAR_LOG_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "live/journal/growing_file.h"

namespace live {

struct HarLimits {
  int64_t bytes = 2'000'000'000;         // of the file
  size_t pages = 5'000;                  // a few hundred bytes each, in memory too
  size_t buffered = size_t{256} * 1024;  // bytes of entries, before they are written
};

class HarLog {
 public:
  using Tell = std::function<void(const std::string& message)>;

  // Throws std::runtime_error with one line if the file cannot be written or already has content. `tell` is
  // called once if writing fails later or a limit is reached. What was written before stays, and nothing more
  // is written.
  HarLog(const std::string& path, const HarLimits& limits, Tell tell);
  // Flushes.
  ~HarLog();

  // Adds a page, which begins with the earliest of its entries, and returns its number.
  size_t AddPage(const std::string& url);
  // Adds an entry as JSON text, and when it began, in microseconds since 1970. It is in the file after the
  // next Flush.
  void AddEntry(const std::string& json, std::optional<size_t> page, int64_t startedUs);
  // The id of a page, which its entries use as pageref.
  static std::string PageId(size_t page) { return "page_" + std::to_string(page + 1); }
  void Flush();

 private:
  struct Page {
    std::string url;
    std::optional<int64_t> startedUs;
  };

  std::string Tail() const;
  void End(const std::string& why);

  const std::string path_;
  const HarLimits limits_;
  const Tell tell_;
  GrowingFile file_;
  int64_t entriesEnd_ = 0;  // where the tail begins
  std::string tail_;        // as it is in the file
  bool hasEntries_ = false;
  std::string entries_;  // that are not in the file yet
  std::vector<Page> pages_;
  bool ended_ = false;
};

}  // namespace live

#endif  // LIVE_JOURNAL_HAR_LOG_H_
