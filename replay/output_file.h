// Writes a report to its file: either the whole file or nothing, or line by line as the report is made.
#ifndef REPLAY_OUTPUT_FILE_H_
#define REPLAY_OUTPUT_FILE_H_

#include <functional>
#include <string>
#include <string_view>

namespace replay {

// Replaces the file at `path` in one step; "-" is standard output. A device or a pipe is written to directly.
// Throws std::runtime_error with one line that names the file, which is then unchanged.
void WriteOutput(const std::string& path, const std::string& text);

// The same for a text that `make` writes piece by piece. An exception of `make` is passed on, and the file is
// then unchanged as well.
using TextPieces = std::function<void(std::string_view)>;
void WriteOutput(const std::string& path, const std::function<void(const TextPieces& write)>& make);

// Writes to `path` piece by piece. The first Write() creates or empties the file; "-" is standard output.
class OutputStream {
 public:
  explicit OutputStream(std::string path);
  ~OutputStream();
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  // Returns when the system has the text. Throws std::runtime_error with one line that names the file.
  void Write(const std::string& text);

 private:
  const std::string path_;
  int file_ = -1;
};

}  // namespace replay

#endif  // REPLAY_OUTPUT_FILE_H_
