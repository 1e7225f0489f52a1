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

bool WriteAll(int file, std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(file, text.data() + at, text.size() - at);
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) at += static_cast<size_t>(written);
  }
  return true;
}

using Maker = std::function<void(const TextPieces& write)>;

void MakeInto(int file, const std::string& path, const Maker& make) {
  make([&](std::string_view text) {
    if (!WriteAll(file, text)) Refuse(path);
  });
}

// Closes what it was given to, unless Close() did.
class File {
 public:
  File(int file, const std::string& path) : file_(file), path_(path) {
    if (file_ < 0) Refuse(path_);
  }
  ~File() {
    if (file_ >= 0) close(file_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int Id() const { return file_; }
  void Close() {
    if (close(std::exchange(file_, -1)) != 0) Refuse(path_);
  }

 private:
  int file_;
  const std::string& path_;
};

void WriteDirectly(const std::string& path, const Maker& make) {
  File file(open(path.c_str(), O_WRONLY | O_CLOEXEC), path);
  MakeInto(file.Id(), path, make);
  file.Close();
}

// Writes a new file in the same folder and renames it. A link stays a link: its target is replaced.
void Replace(const std::string& path, const Maker& make, mode_t mode) {
  std::error_code error;
  std::filesystem::path target = std::filesystem::weakly_canonical(path, error);
  if (error) target = path;
  std::string temporary = target.string() + ".XXXXXX";
  File file(mkostemp(temporary.data(), O_CLOEXEC), path);
  try {
    if (fchmod(file.Id(), mode) != 0) Refuse(path);
    MakeInto(file.Id(), path, make);
    file.Close();
    if (rename(temporary.c_str(), target.c_str()) != 0) Refuse(path);
  } catch (...) {
    unlink(temporary.c_str());
    throw;
  }
}

mode_t ModeOfNewFiles() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

void WriteOutput(const std::string& path, const std::string& text) {
  WriteOutput(path, [&text](const TextPieces& write) { write(text); });
}

void WriteOutput(const std::string& path, const Maker& make) {
  struct stat found {};
  if (path == "-") {
    MakeInto(STDOUT_FILENO, "standard output", make);
  } else if (stat(path.c_str(), &found) != 0) {
    Replace(path, make, ModeOfNewFiles());
  } else if (S_ISREG(found.st_mode)) {
    Replace(path, make, found.st_mode & 0777);
  } else {
    WriteDirectly(path, make);
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
