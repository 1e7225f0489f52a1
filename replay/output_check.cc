#include "replay/output_check.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <compare>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <system_error>

namespace replay {
namespace {

constexpr size_t kSignatureReach = 512;  // bytes at the start of a file that must contain the signature

[[noreturn]] void Refuse(const PlannedOutput& output, const std::string& what) {
  throw std::runtime_error(std::string(output.option) + ": '" + output.path + "' " + what);
}

// Identifies a file independently of its path.
struct FileId {
  dev_t device;
  ino_t number;
  auto operator<=>(const FileId&) const = default;
};

// Nothing if the path does not exist or is not a regular file: writing to a device or a pipe destroys
// nothing.
std::optional<FileId> IdOf(const std::string& path, int standardStream) {
  struct stat found {};
  const int status = path == "-" ? fstat(standardStream, &found) : stat(path.c_str(), &found);
  if (status != 0 || !S_ISREG(found.st_mode)) return std::nullopt;
  return FileId{found.st_dev, found.st_ino};
}

// The canonical path of a file that does not exist yet.
std::string PlaceOf(const std::string& path) {
  if (path == "-") return path;
  std::error_code error;
  const auto place = std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
  return error ? path : place.string();
}

void CheckAgainstInputs(const PlannedOutput& output, const std::map<FileId, std::string>& inputs) {
  const auto id = IdOf(output.path, STDOUT_FILENO);
  if (!id || !inputs.contains(*id)) return;
  const std::string& input = inputs.at(*id);
  Refuse(output, input == output.path ? "is also an input; name another file"
                                      : "is the same file as the input '" + input + "'; name another file");
}

// A file is replaced by a new one in the same folder, so the folder must be writable as well.
void CheckWritable(const PlannedOutput& output) {
  if (output.path == "-") return;
  struct stat found {};
  const bool exists = stat(output.path.c_str(), &found) == 0;
  if (exists && S_ISDIR(found.st_mode)) Refuse(output, "is a folder; name a file in it");
  if (exists && access(output.path.c_str(), W_OK) != 0) {
    Refuse(output, "cannot be written: " + std::generic_category().message(errno));
  }
  if (exists && !S_ISREG(found.st_mode)) return;
  std::string folder = std::filesystem::path(PlaceOf(output.path)).parent_path();
  if (folder.empty()) folder = ".";
  if (access(folder.c_str(), W_OK | X_OK) != 0) {
    Refuse(output, "cannot be written: its folder: " + std::generic_category().message(errno));
  }
}

void CheckReplaceable(const PlannedOutput& output) {
  std::error_code error;
  if (output.path == "-" || !std::filesystem::is_regular_file(output.path, error)) return;
  std::string head(kSignatureReach, '\0');
  std::ifstream file(output.path, std::ios::binary);
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<size_t>(file.gcount()));
  if (head.empty() || head.find(output.signature) != std::string::npos) return;
  Refuse(
      output,
      "exists and is not a report that this option wrote; name another file, or add --force to replace it");
}

}  // namespace

void CheckOutputs(const std::vector<PlannedOutput>& outputs, const std::vector<std::string>& inputs,
                  bool force) {
  std::map<FileId, std::string> inputIds;
  for (const std::string& input : inputs) {
    if (const auto id = IdOf(input, STDIN_FILENO)) inputIds.emplace(*id, input);
  }
  std::map<FileId, const char*> optionOfFile;
  std::map<std::string, const char*> optionOfPlace;
  for (const PlannedOutput& output : outputs) {
    CheckAgainstInputs(output, inputIds);
    const auto [place, isNewPlace] = optionOfPlace.emplace(PlaceOf(output.path), output.option);
    if (!isNewPlace) Refuse(output, std::string("is also the output of ") + place->second);
    if (const auto id = IdOf(output.path, STDOUT_FILENO)) {
      const auto [file, isNewFile] = optionOfFile.emplace(*id, output.option);
      if (!isNewFile) Refuse(output, std::string("is the same file as the output of ") + file->second);
    }
    CheckWritable(output);
    if (!force) CheckReplaceable(output);
  }
}

}  // namespace replay
