// Header blocks for tests, written as lines that end with LF.
#ifndef TESTS_SUPPORT_HEADER_LINES_H_
#define TESTS_SUPPORT_HEADER_LINES_H_

#include <algorithm>
#include <string>

namespace tests {

// A response's raw block.
inline std::string RawBlock(int status, const std::string& lines) {
  std::string block = "HTTP/1.1 " + std::to_string(status) + "\n" + lines + "\n";
  std::replace(block.begin(), block.end(), '\n', '\0');
  return block;
}

// A request's header text.
inline std::string HeaderText(const std::string& lines) {
  std::string text;
  for (const char c : lines) {
    if (c == '\n') text += '\r';
    text += c;
  }
  return text;
}

}  // namespace tests

#endif  // TESTS_SUPPORT_HEADER_LINES_H_
