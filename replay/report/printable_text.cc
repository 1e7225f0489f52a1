#include "replay/report/printable_text.h"

#include <fmt/format.h>

#include <algorithm>

namespace replay {
namespace {

// The code point of a whole sequence.
uint32_t CodePoint(const std::string& text, size_t at, size_t length) {
  const auto lead = static_cast<unsigned char>(text[at]);
  uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  for (size_t index = at + 1; index < at + length; ++index) {
    code = code << 6 | (static_cast<unsigned char>(text[index]) & 0x3F);
  }
  return code;
}

// C0, DEL and C1; the marks, embeddings, overrides and isolates of bidirectional text; separators of lines.
bool MustBeEscaped(uint32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E || code == 0x200F ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

size_t SequenceLength(const std::string& text, size_t at) {
  const auto byte = [&text](size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(at);
  const size_t length = lead < 0x80   ? 1
                        : lead < 0xC2 ? 0
                        : lead < 0xE0 ? 2
                        : lead < 0xF0 ? 3
                        : lead < 0xF5 ? 4
                                      : 0;
  if (length == 0 || at + length > text.size()) return 0;
  for (size_t index = at + 1; index < at + length; ++index) {
    if ((byte(index) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (lead == 0xE0 && byte(at + 1) < 0xA0) || (lead == 0xF0 && byte(at + 1) < 0x90);
  const bool outside = (lead == 0xED && byte(at + 1) > 0x9F) || (lead == 0xF4 && byte(at + 1) > 0x8F);
  return overlong || outside ? 0 : length;
}

std::string PrintableText(const std::string& text) {
  std::string printable;
  for (size_t at = 0; at < text.size();) {
    const size_t length = SequenceLength(text, at);
    if (length == 0) {
      printable += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[at++]));
      continue;
    }
    const uint32_t code = CodePoint(text, at, length);
    if (MustBeEscaped(code)) {
      printable += fmt::format("\\u{:04x}", code);
    } else {
      printable.append(text, at, length);
    }
    at += length;
  }
  return printable;
}

}  // namespace replay
