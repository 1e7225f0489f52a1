// A file that grows while the program runs, and that only its user can read. One thread.
#ifndef LIVE_JOURNAL_GROWING_FILE_H_
#define LIVE_JOURNAL_GROWING_FILE_H_

#include <cstdint>
#include <string>

namespace live {

class GrowingFile {
 public:
  enum class Existing { Kept, Refused };

  // Opens or creates the file with mode 0600. `existing` says whether it may already have content, to which
  // the program then appends. "-" is standard output. Throws std::runtime_error with one line that names the
  // file.
  GrowingFile(const std::string& path, Existing existing);
  ~GrowingFile();
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;

  // Both return false, with the reason in Error(), if not everything could be written. The earlier content is
  // then still there, as far as the disk permits.
  bool Append(const std::string& text);
  // Writes at `offset` instead of at the end, in one step as far as the system permits.
  bool WriteAt(int64_t offset, const std::string& text);
  // Truncates the file.
  void Truncate(int64_t size);

  const std::string& Error() const { return error_; }

 private:
  const std::string path_;
  int file_;
  bool isOwn_ = true;
  std::string error_;
};

}  // namespace live

#endif  // LIVE_JOURNAL_GROWING_FILE_H_
