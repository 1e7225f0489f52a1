#include "live/journal/har_log.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "live/journal/page_lines.h"
#include "plugin/version.h"

namespace live {
namespace {

using Json = nlohmann::ordered_json;

const std::string kHead =
    R"({"log":{"version":"1.2","creator":{"name":"kiv_proxy","version":")" KIV_VERSION R"("},"entries":[)";

}  // namespace

HarLog::HarLog(const std::string& path, const HarLimits& limits, Tell tell)
    : path_(path), limits_(limits), tell_(std::move(tell)), file_(path, GrowingFile::Existing::Refused) {
  entriesEnd_ = static_cast<int64_t>(kHead.size());
  tail_ = Tail();
  if (!file_.WriteAt(0, kHead + tail_)) throw std::runtime_error(file_.Error());
}

HarLog::~HarLog() {  // NOLINT(bugprone-exception-escape): it throws only when memory is exhausted
  Flush();
}

size_t HarLog::AddPage(const std::string& url) {
  if (!ended_ && pages_.size() >= limits_.pages) End("it has " + std::to_string(pages_.size()) + " pages");
  if (!ended_) pages_.push_back({.url = url});
  return pages_.size() - 1;
}

void HarLog::AddEntry(const std::string& json, std::optional<size_t> page, int64_t startedUs) {
  if (ended_) return;
  if (page) pages_[*page].startedUs = std::min(pages_[*page].startedUs.value_or(startedUs), startedUs);
  entries_ += (hasEntries_ ? ",\n" : "\n") + json;
  hasEntries_ = true;
  if (entries_.size() >= limits_.buffered) Flush();
}

void HarLog::Flush() {
  if (ended_ || entries_.empty()) return;
  std::string tail = Tail();
  const int64_t end = entriesEnd_ + static_cast<int64_t>(entries_.size());
  if (end + static_cast<int64_t>(tail.size()) > limits_.bytes) return End("it is as large as it may be");
  if (!file_.WriteAt(entriesEnd_, entries_ + tail)) return End(file_.Error());
  entriesEnd_ = end;
  tail_ = std::move(tail);
  entries_.clear();
}

std::string HarLog::Tail() const {
  std::string pages;
  for (size_t page = 0; page < pages_.size(); ++page) {
    if (!pages_[page].startedUs) continue;
    // Browsers do not tell a proxy when their load event comes.
    const Json json = {{"startedDateTime", IsoDate(*pages_[page].startedUs)},
                       {"id", PageId(page)},
                       {"title", pages_[page].url},
                       {"pageTimings", {{"onContentLoad", -1}, {"onLoad", -1}}}};
    pages += (pages.empty() ? "\n" : ",\n") + json.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
  return "\n],\n\"pages\":[" + pages + "\n]}}\n";
}

void HarLog::End(const std::string& why) {
  ended_ = true;
  entries_.clear();
  // What was written last may not be whole.
  file_.Truncate(entriesEnd_);
  file_.WriteAt(entriesEnd_, tail_);
  tell_(path_ + ": nothing more is recorded: " + why);
}

}  // namespace live
