// A file that grows while the program runs, readable by its user alone. One thread.
#ifndef LIVE_JOURNAL_GROWING_FILE_H_
#define LIVE_JOURNAL_GROWING_FILE_H_

#include <cstdint>
#include <string>

namespace live {

class GrowingFile {
 public:
  enum class Existing { Kept, Refused };

  // Opens the file, or makes it, with mode 0600. `existing`: whether it may hold something already, which is
  // then written behind. "-" is standard output. Throws std::runtime_error with one line that names the file.
  GrowingFile(const std::string& path, Existing existing);
  ~GrowingFile();
  GrowingFile(const GrowingFile&) = delete;
  GrowingFile& operator=(const GrowingFile&) = delete;

  // Both return false, with the reason in Error(), when not all could be written; what was there before the
  // call is then there still, as far as the disk allows it.
  bool Append(const std::string& text);
  // Writes from `offset` on instead of at the end, in one step as far as the system can.
  bool WriteAt(int64_t offset, const std::string& text);
  // Cuts the file off.
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
