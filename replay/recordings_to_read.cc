#include "replay/recordings_to_read.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string_view>

namespace replay {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const std::string& argument, const std::string& what) {
  throw std::runtime_error("RECORDING: '" + argument + "' " + what);
}

bool IsNamedLikeARecording(const fs::path& path) {
  constexpr std::array<std::string_view, 3> kEndings = {".har", ".har.gz", ".har.zst"};
  std::string name = path.filename();
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return std::any_of(kEndings.begin(), kEndings.end(),
                     [&name](std::string_view ending) { return name.ends_with(ending); });
}

void AddFolder(const std::string& folder, std::vector<std::string>& recordings) try {
  std::vector<std::string> found;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (IsNamedLikeARecording(entry.path()) && !entry.is_directory()) found.push_back(entry.path());
  }
  if (found.empty()) Fail(folder, "is a folder without recordings (*.har, *.har.gz, *.har.zst)");
  std::sort(found.begin(), found.end());
  recordings.insert(recordings.end(), found.begin(), found.end());
} catch (const fs::filesystem_error& error) {
  Fail(folder, "cannot be read: " + error.path1().string() + ": " + error.code().message());
}

void AddPath(const std::string& path, std::vector<std::string>& recordings) {
  std::error_code error;
  if (path != "-" && fs::is_directory(path, error)) {
    AddFolder(path, recordings);
  } else {
    recordings.push_back(path);
  }
}

void AddLines(std::istream& lines, std::vector<std::string>& recordings) {
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (!line.empty()) AddPath(line, recordings);
  }
}

void AddList(const std::string& argument, RecordingsToRead& found) {
  const std::string path = argument.substr(1);
  const size_t before = found.recordings.size();
  if (path == "-") {
    AddLines(std::cin, found.recordings);
  } else {
    std::ifstream file(path);
    AddLines(file, found.recordings);
    if (!file.eof() || file.bad()) Fail(argument, "cannot be read");
  }
  if (found.recordings.size() == before) Fail(argument, "is a list that names no recording");
  found.lists.push_back(path);
}

}  // namespace

RecordingsToRead FindRecordings(const std::vector<std::string>& arguments) {
  RecordingsToRead found;
  for (const std::string& argument : arguments) {
    if (argument.starts_with('@')) {
      AddList(argument, found);
    } else {
      AddPath(argument, found.recordings);
    }
  }
  if (std::count(found.recordings.begin(), found.recordings.end(), "-") +
          std::count(found.lists.begin(), found.lists.end(), "-") >
      1) {
    throw std::runtime_error("RECORDING: standard input ('-') can be read only once");
  }
  return found;
}

}  // namespace replay
