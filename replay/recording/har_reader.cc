#include "replay/recording/har_reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/http/dates.h"
#include "replay/recording/har_pages.h"
#include "replay/recording/har_parser.h"
#include "replay/recording/har_request.h"
#include "replay/recording/input_text.h"

namespace replay {
namespace {

[[noreturn]] void FailRead(const std::string& name) {
  throw std::runtime_error(name + ": " + std::generic_category().message(errno));
}

std::string ReadAll(std::FILE* file, const std::string& name) {
  struct stat status {};
  size_t expected = 0;
  if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode)) {
    expected = static_cast<size_t>(status.st_size);
  }
  const auto source = [file, &name](char* buffer, size_t size) {
    const size_t got = std::fread(buffer, 1, size, file);
    if (std::ferror(file) != 0) FailRead(name);
    return got;
  };
  return ReadText(source, name, expected);
}

}  // namespace

Recording ReadHar(std::string json, const std::string& name) {
  Recording recording;
  recording.name = name;
  json.reserve(json.size() + kJsonPadding);
  std::vector<HarRow> rows;
  HarLog log = ParseHar(json, name, [&](const HarEntry& entry) {
    if (const char* why = WhyNotReplayable(entry)) {
      ++recording.skipped[why];
      return;
    }
    if (entry.fromCache) ++recording.fromCache;
    std::optional<double> startedMs = http::ParseIsoDate(entry.startedDateTime);
    Request request = MakeRequest(entry, startedMs);
    // If a recorder writes the time in the browser's queue, its rows start after that time, but the browser
    // wanted them before it.
    const double queuedMs = QueuedMs(entry);
    if (startedMs) *startedMs -= queuedMs;
    rows.push_back({.request = std::move(request),
                    .pageref = std::string(entry.pageref),
                    .startedMs = startedMs,
                    .durationMs = queuedMs + DurationMs(entry)});
  });
  recording.creator = std::move(log.creator);
  recording.browser = std::move(log.browser);
  recording.pages = MakePages(log.pages, std::move(rows));
  return recording;
}

Recording ReadHarFile(const std::string& path) {
  if (path == "-") return ReadHar(ReadAll(stdin, "standard input"), "standard input");
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (file == nullptr) FailRead(path);
  Recording recording = ReadHar(ReadAll(file.get(), path), path);
  recording.name = path.substr(path.rfind('/') + 1);
  return recording;
}

}  // namespace replay
