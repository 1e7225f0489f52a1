// What request and response headers share: names without regard to case, values without blanks around them.
#ifndef NET_HTTP_HEADER_TEXT_H_
#define NET_HTTP_HEADER_TEXT_H_

#include <algorithm>

#include "base/strings/string_piece.h"

namespace net {

// ASCII only, whatever the locale.
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

}  // namespace net

#endif  // NET_HTTP_HEADER_TEXT_H_
