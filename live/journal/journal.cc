#include "live/journal/journal.h"

#include <cstdlib>
#include <utility>

#include "live/journal/har_entry.h"
#include "live/journal/page_lines.h"
#include "live/proxy/page_tracker.h"

namespace live {
namespace {

constexpr int64_t kFlushAfterUs = 1'000'000;
constexpr int64_t kClockJumpUs = 2'000'000;
constexpr size_t kMaxOpenPages = 1000;  // and some that are not any more

}  // namespace

Journal::Journal(host::Executor& executor, WallClock wallClock,
                 std::function<void(const std::string& line)> line, Tell tell)
    : executor_(executor),
      wallClock_(std::move(wallClock)),
      line_(std::move(line)),
      tell_(std::move(tell)),
      flushTimer_(executor) {}

void Journal::Open(const JournalSettings& settings) {
  if (!settings.jsonPath.empty()) json_.emplace(settings.jsonPath, GrowingFile::Existing::Kept);
  if (!settings.harPath.empty()) har_.emplace(settings.harPath, settings.har, tell_);
}

EngineObserver Journal::Observer() {
  return {.onLoad = [this](const LoadRecord& load) { OnLoad(load); },
          .onPage = [this](const PageRecord& page) { OnPage(page); }};
}

int64_t Journal::WallUs() {
  const int64_t now = wallClock_() - executor_.Now().ToInternalValue();
  if (std::abs(now - wallUs_) > kClockJumpUs) wallUs_ = now;
  return wallUs_;
}

std::optional<size_t> Journal::PageOf(const LoadRecord& load) {
  if (load.page == 0) return std::nullopt;
  const auto known = harPages_.find(load.page);
  if (known != harPages_.end()) return known->second;
  if (harPages_.size() >= kMaxOpenPages) harPages_.erase(harPages_.begin());
  return harPages_[load.page] = har_->AddPage(load.pageUrl);
}

void Journal::OnLoad(const LoadRecord& load) {
  if (!har_) return;
  const std::optional<size_t> page = PageOf(load);
  const int64_t wallUs = WallUs();
  har_->AddEntry(HarEntry(load, page ? HarLog::PageId(*page) : "", wallUs, HttpVersionOf(load)), page,
                 load.asked.ToInternalValue() + wallUs);
  FlushSoon();
}

// What was answered from a preload or from the cache is taken for what its server has spoken before.
int Journal::HttpVersionOf(const LoadRecord& load) {
  int& version = httpVersions_.Use(OriginOf(load.url));
  if (load.transfer.httpVersion != 0) version = load.transfer.httpVersion;
  const int known = version;
  httpVersions_.DropExcess();
  return known;
}

void Journal::OnPage(const PageRecord& page) {
  line_(PageLine(page));
  if (json_ && !json_->Append(PageJson(page, WallUs()))) {
    tell_(json_->Error() + "; nothing more is written there");
    json_.reset();
  }
  if (har_) har_->Flush();
}

void Journal::FlushSoon() {
  if (std::exchange(flushWaits_, true)) return;
  flushTimer_.Start(kFlushAfterUs, [this] {
    flushWaits_ = false;
    har_->Flush();
  });
}

}  // namespace live
