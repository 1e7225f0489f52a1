// Converts the header lines of a server's response to the raw block that the host reads. One thread.
#ifndef LIVE_TRANSPORT_RESPONSE_LINES_H_
#define LIVE_TRANSPORT_RESPONSE_LINES_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace live {

class ResponseLines {
 public:
  explicit ResponseLines(size_t maxBytes) : maxBytes_(maxBytes) {}

  // Adds one line, with or without its line end. Returns false if this is not a valid response: a line before
  // a status line, two different lengths or one that is not a number, a NUL byte, a transfer coding other
  // than "chunked", or more bytes than the limit. Lines after the final block (trailers) are ignored.
  bool Add(std::string_view line);

  // Returns the block that the last line has completed: the status line ("HTTP/1.1", whatever the version
  // was) and the header lines, each followed by a NUL byte, and one more NUL. Headers of one connection are
  // left out, including those that Connection names, and so is a length that chunks make meaningless.
  std::optional<std::string> TakeBlock();

  // The status in the last status line; 0 before it. Another block follows a status of 1xx.
  int Status() const { return status_; }

 private:
  bool AddStatusLine(std::string_view line);
  bool AddHeader(std::string_view name, std::string_view value);
  void EndBlock();

  const size_t maxBytes_;
  size_t bytes_ = 0;
  int status_ = 0;
  bool inBlock_ = false;
  bool complete_ = false;    // a block waits to be taken
  bool final_ = false;       // the last one was not of status 1xx
  bool lastIsKept_ = false;  // of the header lines
  bool chunked_ = false;
  std::optional<std::string> length_;  // declared
  std::string connection_;             // the values of Connection headers, as one list
  std::string lines_;
};

}  // namespace live

#endif  // LIVE_TRANSPORT_RESPONSE_LINES_H_
