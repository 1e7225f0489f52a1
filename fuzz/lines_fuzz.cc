// Any bytes as what kiv_replay reads by lines: its own JSON lines, a list of recordings, and a list of
// beacons.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "fuzz/check.h"
#include "replay/model/beacons.h"
#include "replay/recordings_to_read.h"
#include "replay/report/merge_lines.h"
#include "replay/report/report_text.h"

namespace {

// A refusal is one line that begins with the name.
template <typename Read>
void TryToRead(const std::string& name, const Read& read) {
  try {
    read();
  } catch (const std::runtime_error& error) {
    const std::string text = error.what();
    FUZZ_CHECK(text.starts_with(name));
    FUZZ_CHECK(text.find('\n') == std::string::npos);
  }
}

void ReadJsonLines(const std::string& text) {
  replay::LineMerger merger;
  TryToRead("fuzz.jsonl", [&] {
    std::istringstream lines(text);
    merger.Add(lines, "fuzz.jsonl");
  });
  const auto reports = merger.Reports();
  FUZZ_CHECK(reports.size() <= static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  FUZZ_CHECK(merger.Repeated() <= reports.size());
}

// Names of folders would be looked into, so that there are none.
void ReadList(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '/' || c == '.' || c == '\0'; }, '_');
  char path[] = "/tmp/lines-fuzz-XXXXXX";
  const int file = mkstemp(path);
  FUZZ_CHECK(file >= 0);
  std::ofstream(path, std::ios::binary) << text;
  close(file);
  TryToRead("@" + std::string(path), [&] {
    const auto found = replay::FindRecordings({"@" + std::string(path)});
    FUZZ_CHECK(!found.recordings.empty() && found.lists.size() == 1);
    for (const std::string& recording : found.recordings) {
      FUZZ_CHECK(!recording.empty() && recording.find('\n') == std::string::npos);
    }
  });
  unlink(path);
}

void ReadBeacons(const std::string& text) {
  const replay::BeaconList list = replay::ParseBeaconList(text);
  for (const std::string& path : list.paths) FUZZ_CHECK(path.starts_with('/'));
  for (const std::string& host : list.hosts) FUZZ_CHECK(host.find('.') != std::string::npos);
  FUZZ_CHECK(!list.words.contains(""));
  replay::IsListed(list, text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  switch (data[0] % 3) {
    case 0:
      ReadJsonLines(text);
      break;
    case 1:
      ReadList(text);
      break;
    default:
      ReadBeacons(text);
  }
  return 0;
}
