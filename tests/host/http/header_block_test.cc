// Header blocks of both kinds, well formed and not.
#include "host/http/header_block.h"

#include <gtest/gtest.h>

#include "tests/support/header_lines.h"

namespace http {
namespace {

using namespace std::string_literals;

TEST(HeaderBlock, ListsHeadersOfBothKinds) {
  const struct {
    std::string block;
    const char* headers;
    const char* why;
  } rows[] = {
      {"HTTP/1.1 200 OK\0A: b\0C:d\0\0"s, "A=b|C=d|", "a response"},
      {"A: b\r\nC:d\r\n\r\n", "A=b|C=d|", "a request"},
      {"A: b\r\nC:d", "A=b|C=d|", "a last line that is not ended"},
      {"HTTP/1.1 404 Not: found\0A: b"s, "A=b|", "a status line with a colon is no header"},
      {"HTTP/1.1 200 OK\0A: b\r\nC: d\0\0"s, "A=b\r\nC: d|", "CRLF ends no line of a response"},
      {"A: b\nC: d\rE: f\r\n", "A=b\nC: d\rE: f|", "half an end ends no line of a request"},
      {"A \t: \t b: c \t\r\nB:\r\n", "A=b: c|B=|", "blanks around both sides; an empty value"},
      {"no colon\r\n: no name\r\n \t: nor here\r\nA: b\r\n", "A=b|", "lines that are no headers"},
      {"\0"s, "", "an end alone"},
  };
  for (const auto& row : rows) {
    std::string listed;
    ForEachHeader(row.block, [&listed](std::string_view name, std::string_view value) {
      listed.append(name).append("=").append(value).append("|");
    });
    EXPECT_EQ(listed, row.headers) << row.why;
  }
  EXPECT_EQ(StatusLine(rows[0].block), "HTTP/1.1 200 OK");
  EXPECT_EQ(StatusLine(rows[1].block), "");
}

TEST(HeaderBlock, FindsTheFirstAndCombinesAll) {
  const std::string lines = "Vary: a\nX: 1\nVARY: b , c\nvary:\nVarying: d\n";
  for (const std::string& block : {tests::RawBlock(200, lines), tests::HeaderText(lines)}) {
    EXPECT_EQ(FindHeader(block, "vary"), "a");
    EXPECT_EQ(CombinedHeader(block, "vary"), "a, b , c, ");
    EXPECT_EQ(FindHeader(block, "Var"), std::nullopt);
    EXPECT_EQ(CombinedHeader(block, "Var"), std::nullopt);
  }
}

}  // namespace
}  // namespace http
