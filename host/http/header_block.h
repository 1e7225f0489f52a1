// Reads the two kinds of header blocks that this project uses: the raw block of a response (the status line
// and the header lines, each followed by a NUL byte, and one more NUL at the end) and the header text of a
// request
// ("Name: value" CRLF for each header). Views point into the block. Any thread.
#ifndef HOST_HTTP_HEADER_BLOCK_H_
#define HOST_HTTP_HEADER_BLOCK_H_

#include <optional>
#include <string>
#include <string_view>

#include "net/http/header_text.h"

namespace http {

// The header lines of a block and their terminator. A block that contains a NUL byte belongs to a response;
// its first line is never one of the header lines.
struct HeaderLines {
  std::string_view text;
  std::string_view lineEnd;
};
HeaderLines HeaderLinesOf(std::string_view block);

// The first line of a response's block without its NUL; empty for a request.
std::string_view StatusLine(std::string_view block);

// Calls onHeader(name, value) for each header, in the order of the lines and without surrounding blanks.
// Lines without a colon or a name are skipped.
template <typename OnHeader>
void ForEachHeader(std::string_view block, const OnHeader& onHeader) {
  auto [text, lineEnd] = HeaderLinesOf(block);
  std::string_view name, value;
  while (net::TakeHeader(text, lineEnd, name, value)) onHeader(name, value);
}

// The value of the first header with that name; it may be empty. Nothing if there is no such header.
std::optional<std::string_view> FindHeader(std::string_view block, std::string_view name);

// The values of all headers with that name, joined with ", ", for headers that are lists. Nothing if there is
// no such header.
std::optional<std::string> CombinedHeader(std::string_view block, std::string_view name);

bool HasHeader(std::string_view block, std::string_view name);

}  // namespace http

#endif  // HOST_HTTP_HEADER_BLOCK_H_
