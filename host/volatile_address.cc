#include "host/volatile_address.h"

#include <cstddef>

namespace host {
namespace {

constexpr size_t kDigits = 10;  // seconds since 1970
constexpr size_t kHexDigits = 16;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsHexLetter(char c) {
  return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

bool LooksVolatile(std::string_view url) {
  size_t digits = 0;          // that end here, without a break
  size_t hexDigits = 0;       // the same
  size_t digitsAmongHex = 0;  // of these
  for (const char c : url) {
    digits = IsDigit(c) ? digits + 1 : 0;
    const bool isHex = IsDigit(c) || IsHexLetter(c);
    hexDigits = isHex ? hexDigits + 1 : 0;
    digitsAmongHex = isHex ? digitsAmongHex + (IsDigit(c) ? 1 : 0) : 0;
    const bool isMixed = digitsAmongHex > 0 && digitsAmongHex < hexDigits;
    if (digits >= kDigits || (hexDigits >= kHexDigits && isMixed)) return true;
  }
  return false;
}

}  // namespace host
