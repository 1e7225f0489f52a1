#include "live/journal/growing_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace live {
namespace {

std::string Reason() {
  return std::generic_category().message(errno);
}

}  // namespace

GrowingFile::GrowingFile(const std::string& path, Existing existing) : path_(path) {
  if (path == "-") {
    file_ = STDOUT_FILENO;
    isOwn_ = false;
    return;
  }
  file_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file_ < 0) throw std::runtime_error(path + ": cannot be written: " + Reason());
  struct stat found {};
  const bool holdsSomething = fstat(file_, &found) == 0 && found.st_size > 0;
  if (existing == Existing::Refused && (holdsSomething || !S_ISREG(found.st_mode))) {
    close(file_);
    throw std::runtime_error(
        path + (holdsSomething ? ": exists already; name another file, or remove it" : ": is not a file"));
  }
  lseek(file_, 0, SEEK_END);
}

GrowingFile::~GrowingFile() {
  if (isOwn_) close(file_);
}

bool GrowingFile::Append(const std::string& text) {
  const off_t before = lseek(file_, 0, SEEK_END);
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(file_, text.data() + at, text.size() - at);
    if (written < 0 && errno != EINTR) {
      error_ = path_ + ": cannot be written: " + Reason();
      if (before >= 0) Truncate(before);
      return false;
    }
    if (written > 0) at += static_cast<size_t>(written);
  }
  return true;
}

bool GrowingFile::WriteAt(int64_t offset, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t written =
        pwrite(file_, text.data() + at, text.size() - at, offset + static_cast<int64_t>(at));
    if (written < 0 && errno != EINTR) {
      error_ = path_ + ": cannot be written: " + Reason();
      return false;
    }
    if (written > 0) at += static_cast<size_t>(written);
  }
  return true;
}

void GrowingFile::Truncate(int64_t size) {
  if (ftruncate(file_, size) != 0) error_ += "; nor cut off: " + Reason();
}

}  // namespace live
