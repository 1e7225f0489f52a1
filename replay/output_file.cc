#include "replay/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace replay {
namespace {

[[noreturn]] void Refuse(const std::string& path) {
  throw std::runtime_error(path + ": cannot be written: " + std::generic_category().message(errno));
}

bool WriteAll(int file, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(file, text.data() + at, text.size() - at);
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) at += static_cast<size_t>(written);
  }
  return true;
}

void WriteDirectly(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (file < 0) Refuse(path);
  const bool written = WriteAll(file, text);
  if (close(file) != 0 || !written) Refuse(path);
}

// Writes a new file in the same folder and renames it. A link stays a link: its target is replaced.
void Replace(const std::string& path, const std::string& text, mode_t mode) {
  std::error_code error;
  std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
  if (error) target = path;
  std::string temporary = target.string() + ".XXXXXX";
  const int file = mkostemp(temporary.data(), O_CLOEXEC);
  if (file < 0) Refuse(path);
  const bool written = fchmod(file, mode) == 0 && WriteAll(file, text);
  const bool closed = close(file) == 0;
  if (!written || !closed || rename(temporary.c_str(), target.c_str()) != 0) {
    const int reason = errno;
    unlink(temporary.c_str());
    errno = reason;
    Refuse(path);
  }
}

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void WriteOutput(const std::string& path, const std::string& text) {
  struct stat found {};
  if (path == "-") {
    if (!WriteAll(STDOUT_FILENO, text)) Refuse("standard output");
  } else if (stat(path.c_str(), &found) != 0) {
    Replace(path, text, ModeOfNewFiles());
  } else if (S_ISREG(found.st_mode)) {
    Replace(path, text, found.st_mode & 0777);
  } else {
    WriteDirectly(path, text);
  }
}

OutputStream::OutputStream(std::string path) : path_(std::move(path)) {}

OutputStream::~OutputStream() {
  if (file_ > STDOUT_FILENO) close(file_);
}

void OutputStream::Write(const std::string& text) {
  if (file_ < 0) {
    file_ =
        path_ == "-" ? STDOUT_FILENO : open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  }
  if (file_ < 0 || !WriteAll(file_, text)) Refuse(path_ == "-" ? "standard output" : path_);
}

}  // namespace replay
