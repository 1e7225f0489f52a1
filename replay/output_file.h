// Writes a report to its place: wholly or not at all, or line by line as it is made.
#ifndef REPLAY_OUTPUT_FILE_H_
#define REPLAY_OUTPUT_FILE_H_

#include <functional>
#include <string>
#include <string_view>

namespace replay {

// Replaces the file at `path` in one step; "-" is standard output. What is no regular file (a device, a pipe)
// is written to directly. Throws std::runtime_error with one line that names the file; it is then as before.
void WriteOutput(const std::string& path, const std::string& text);

// The same for a text that is made piece by piece: `make` is given what takes the pieces. What it throws is
// thrown on, and the file is then as before as well.
using TextPieces = std::function<void(std::string_view)>;
void WriteOutput(const std::string& path, const std::function<void(const TextPieces& write)>& make);

// Writes to `path` as it is told to. The file is created, or emptied, by the first Write(); "-" is standard
// output.
class OutputStream {
 public:
  explicit OutputStream(std::string path);
  ~OutputStream();
  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  // The text is with the system when it returns. Throws std::runtime_error with one line that names the file.
  void Write(const std::string& text);

 private:
  const std::string path_;
  int file_ = -1;
};

}  // namespace replay

#endif  // REPLAY_OUTPUT_FILE_H_
