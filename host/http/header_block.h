// Reads the two kinds of header blocks that this project hands around: a response's raw block (the status
// line and the header lines, each ended by a NUL byte, and one more NUL at the end) and a request's header
// text ("Name: value" CRLF for each header). Views point into the block. Any thread.
#ifndef HOST_HTTP_HEADER_BLOCK_H_
#define HOST_HTTP_HEADER_BLOCK_H_

#include <optional>
#include <string>
#include <string_view>

#include "net/http/header_text.h"

namespace http {

// The header lines of a block and what ends each of them. A block with a NUL byte in it is a response's; its
// first line is not among them, whatever it says.
struct HeaderLines {
  std::string_view text;
  std::string_view lineEnd;
};
HeaderLines HeaderLinesOf(std::string_view block);

// The first line of a response's block without its NUL; empty for a request.
std::string_view StatusLine(std::string_view block);

// Calls onHeader(name, value) for each header in the order of the lines, without the blanks around them.
// Lines without a colon or a name are skipped.
template <typename OnHeader>
void ForEachHeader(std::string_view block, const OnHeader& onHeader) {
  auto [text, lineEnd] = HeaderLinesOf(block);
  std::string_view name, value;
  while (net::TakeHeader(text, lineEnd, name, value)) onHeader(name, value);
}

// The value of the first header with that name, which may be empty; nothing if there is none.
std::optional<std::string_view> FindHeader(std::string_view block, std::string_view name);

// The values of all headers with that name, joined with ", ", for headers that are lists. Nothing if there
// is none.
std::optional<std::string> CombinedHeader(std::string_view block, std::string_view name);

bool HasHeader(std::string_view block, std::string_view name);

}  // namespace http

#endif  // HOST_HTTP_HEADER_BLOCK_H_
