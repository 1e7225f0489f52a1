// The header lines of a response, as they come from a server, into the raw block that the host reads. One
// thread.
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

  // One line, with or without its end. False for what no response looks like: lines before a status line, two
  // different lengths or one that is no number, a NUL byte, a transfer coding other than "chunked", more
  // bytes than the limit. What follows the final block (trailers) is ignored.
  bool Add(std::string_view line);

  // The block that the last line has completed: the status line ("HTTP/1.1", whatever the version was) and
  // the header lines, each ended by a NUL byte, and one more NUL. What concerns one connection alone is left
  // out, headers that Connection names among it, and a length that chunks make void.
  std::optional<std::string> TakeBlock();

  // Of the last status line; 0 before. A status of 1xx announces another block.
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
