// Reports what went through the proxy: a line for each page load, and files for users who ask for them.
// Loop's thread.
#ifndef LIVE_JOURNAL_JOURNAL_H_
#define LIVE_JOURNAL_JOURNAL_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "host/executor.h"
#include "host/recency_map.h"
#include "host/task_scope.h"
#include "live/journal/growing_file.h"
#include "live/journal/har_log.h"
#include "live/proxy/proxy_engine.h"

namespace live {

struct JournalSettings {
  std::string jsonPath;  // gets a line for each page load; empty for none, "-" for standard output
  std::string harPath;   // a new file; empty for none
  HarLimits har;
};

class Journal {
 public:
  using Tell = std::function<void(const std::string& message)>;

  // `line` is called with the line of each page load, and `tell` once for each file that fails. The executor
  // must outlive the journal.
  Journal(host::Executor& executor, WallClock wallClock, std::function<void(const std::string& line)> line,
          Tell tell);
  // Starts writing the files. Throws std::runtime_error with one line if one of them cannot be written.
  void Open(const JournalSettings& settings);

  // The observer for the engine, which must not outlive the journal.
  EngineObserver Observer();

 private:
  void OnLoad(const LoadRecord& load);
  void OnPage(const PageRecord& page);
  // How far the wall clock is ahead of the loop's. It stays the same unless the clock is set or the machine
  // sleeps, so that the times in a file are consistent.
  int64_t WallUs();
  std::optional<size_t> PageOf(const LoadRecord& load);
  int HttpVersionOf(const LoadRecord& load);
  void FlushSoon();

  host::Executor& executor_;
  const WallClock wallClock_;
  const std::function<void(const std::string&)> line_;
  const Tell tell_;
  int64_t wallUs_ = 0;
  std::optional<GrowingFile> json_;
  std::optional<HarLog> har_;
  std::map<host::TabId, size_t> harPages_;                 // of the pages that began last
  host::RecencyMap<std::string, int> httpVersions_{1000};  // by origin
  bool flushWaits_ = false;
  host::Timer flushTimer_;
};

}  // namespace live

#endif  // LIVE_JOURNAL_JOURNAL_H_
