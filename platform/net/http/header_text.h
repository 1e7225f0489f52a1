// What request and response headers have in common: lines with a name and a value. Names are compared without
// regard to case, and blanks around values are removed.
#ifndef NET_HTTP_HEADER_TEXT_H_
#define NET_HTTP_HEADER_TEXT_H_

#include <algorithm>

#include "base/strings/string_piece.h"

namespace net {

// Only ASCII letters, independent of the locale.
constexpr char ToLowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline bool EqualsIgnoringCase(base::StringPiece a, base::StringPiece b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return ToLowerAscii(x) == ToLowerAscii(y); });
}

inline base::StringPiece TrimBlanks(base::StringPiece text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == base::StringPiece::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The ends of lines in a request's header text and in a response's raw block.
inline constexpr base::StringPiece kRequestLineEnd("\r\n", 2);
inline constexpr base::StringPiece kResponseLineEnd("\0", 1);

// Removes lines from `block` up to and including the first one that is a header, which has a name and a
// colon. Sets `name` and `value` without the blanks around them. The last line need not have a line end. If
// no header is left, removes everything, sets nothing and returns false.
inline bool TakeHeader(base::StringPiece& block, base::StringPiece lineEnd, base::StringPiece& name,
                       base::StringPiece& value) {
  while (!block.empty()) {
    const size_t length = std::min(block.find(lineEnd), block.size());
    const base::StringPiece line = block.substr(0, length);
    block.remove_prefix(std::min(length + lineEnd.size(), block.size()));
    const size_t colon = line.find(':');
    if (colon == base::StringPiece::npos) continue;
    const base::StringPiece before = TrimBlanks(line.substr(0, colon));
    if (before.empty()) continue;
    name = before;
    value = TrimBlanks(line.substr(colon + 1));
    return true;
  }
  return false;
}

}  // namespace net

#endif  // NET_HTTP_HEADER_TEXT_H_
