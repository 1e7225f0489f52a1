#include "live/state/privacy_rules.h"

#include <algorithm>
#include <array>
#include <string>

#include "host/http/header_block.h"
#include "net/http/header_text.h"

namespace live {
namespace {

constexpr size_t kMaxUrlBytes = 4096;
constexpr int kMaxNesting = 3;  // of URLs inside of parameters

// Names are compared in lower case and without anything but letters and digits.
constexpr std::array<std::string_view, 18> kSecretParts = {
    "token",      "session",   "sessid",     "password", "passwd",    "passphrase",
    "secret",     "signature", "credential", "apikey",   "accesskey", "accountkey",
    "privatekey", "authoriz",  "authentic",  "oauth",    "saml",      "csrf"};
constexpr std::array<std::string_view, 18> kSecretNames = {
    "auth", "authkey", "code", "hmac", "jwt", "key", "magic", "nonce",  "otp",
    "pass", "pin",     "pwd",  "sess", "sid", "sig", "state", "ticket", "xsrf"};

constexpr std::array<std::string_view, 12> kSafeHeaders = {
    "accept",    "accept-charset", "accept-encoding", "accept-language",
    "dnt",       "origin",         "priority",        "referer",
    "save-data", "sec-gpc",        "user-agent",      "upgrade-insecure-requests"};

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

bool IsAlphanumeric(char c) {
  return IsDigit(c) || IsUpper(c) || (c >= 'a' && c <= 'z');
}

int HexValue(char c) {
  if (IsDigit(c)) return c - '0';
  const char lower = net::ToLowerAscii(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  for (size_t at = 0; at < text.size(); ++at) {
    const bool escaped =
        text[at] == '%' && at + 2 < text.size() && HexValue(text[at + 1]) >= 0 && HexValue(text[at + 2]) >= 0;
    decoded += escaped ? static_cast<char>(HexValue(text[at + 1]) * 16 + HexValue(text[at + 2])) : text[at];
    if (escaped) at += 2;
  }
  return decoded;
}

// One run of letters and digits, while it is read.
struct Run {
  size_t length = 0, digits = 0, letters = 0;  // the latter two: in a row
  size_t changes = 0;                          // between digits and letters
  size_t capitals = 0;                         // behind small letters, as words begin in camel case
  char last = 0;

  void Add(char c) {
    ++length;
    digits = IsDigit(c) ? digits + 1 : 0;
    letters = IsDigit(c) ? 0 : letters + 1;
    if (last != 0 && IsDigit(c) != IsDigit(last)) ++changes;
    if (IsUpper(c) && last >= 'a') ++capitals;
    last = c;
  }
  // Of random digits and letters, about two in five differ from the one before; of hexadecimal ones, every
  // other does.
  bool LooksRandom() const {
    return (length >= 16 && (changes * 2 + capitals) * 3 >= length) || digits >= 16 || letters >= 40;
  }
};

bool HoldsRandomText(std::string_view value) {
  Run run;
  for (const char c : value) {
    if (IsAlphanumeric(c)) {
      run.Add(c);
      if (run.LooksRandom()) return true;
    } else if (c == '-' || c == '_') {
      run.last = 0;
      run.digits = run.letters = 0;
    } else {
      run = {};
    }
  }
  return false;
}

bool IsSecretParameter(std::string_view parameter) {
  const size_t equals = parameter.find('=');
  if (equals == std::string_view::npos) return HoldsRandomText(parameter);
  const std::string_view value = parameter.substr(equals + 1);
  return !value.empty() && (SaysSecret(parameter.substr(0, equals)) || HoldsRandomText(value));
}

// The parameters of a query, and those of URLs in their values, which show when it is decoded.
bool HoldsSecretParameter(std::string_view query) {
  std::string text(query);
  for (int level = 0; level <= kMaxNesting; ++level) {
    for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find_first_of("?&;#", at), text.size());
      if (IsSecretParameter(std::string_view(text).substr(at, end - at))) return true;
      at = end + 1;
    }
    std::string decoded = PercentDecoded(text);
    if (decoded == text) break;
    text = std::move(decoded);
  }
  return false;
}

bool HoldsSecretPathParameter(std::string_view path) {
  for (size_t at = path.find(';'); at != std::string_view::npos; at = path.find(';', at + 1)) {
    const size_t end = std::min(path.find_first_of(";/", at + 1), path.size());
    if (HoldsSecretParameter(path.substr(at + 1, end - at - 1))) return true;
  }
  return false;
}

bool HoldsSignedToken(std::string_view url) {
  for (size_t at = url.find("eyJ"); at != std::string_view::npos; at = url.find("eyJ", at + 1)) {
    const std::string_view rest = url.substr(at, url.find_first_of("/?&;#=", at) - at);
    if (std::count(rest.begin(), rest.end(), '.') >= 2) return true;
  }
  return false;
}

}  // namespace

bool SaysSecret(std::string_view name) {
  std::string plain;
  for (const char c : name) {
    if (IsAlphanumeric(c)) plain += net::ToLowerAscii(c);
  }
  return std::find(kSecretNames.begin(), kSecretNames.end(), plain) != kSecretNames.end() ||
         std::any_of(kSecretParts.begin(), kSecretParts.end(),
                     [&plain](std::string_view part) { return plain.find(part) != std::string::npos; });
}

bool MayStoreUrl(std::string_view url) {
  if (url.size() > kMaxUrlBytes) return false;
  std::string_view rest = url;
  if (rest.starts_with("https://")) {
    rest.remove_prefix(8);
  } else if (rest.starts_with("http://")) {
    rest.remove_prefix(7);
  } else {
    return false;
  }
  if (std::any_of(rest.begin(), rest.end(), [](char c) { return c >= 0 && (c <= ' ' || c == 0x7f); }))
    return false;
  const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  if (authority.empty() || authority.find('@') != std::string_view::npos) return false;
  rest.remove_prefix(authority.size());
  const std::string_view path = rest.substr(0, rest.find_first_of("?#"));
  rest.remove_prefix(path.size());
  return !HoldsSignedToken(url) && !HoldsSecretPathParameter(path) && !HoldsSecretParameter(rest);
}

bool MayStoreHeaders(std::string_view headers) {
  bool may = true;
  http::ForEachHeader(headers, [&may](std::string_view name, std::string_view value) {
    const auto is = [name](std::string_view other) { return net::EqualsIgnoringCase(name, other); };
    const auto begins = [&](std::string_view start) {
      return net::EqualsIgnoringCase(name.substr(0, start.size()), start);
    };
    if (is("referer")) {
      may = may && MayStoreUrl(value);
    } else if (!begins("sec-fetch-") && !begins("sec-ch-")) {
      may = may && std::any_of(kSafeHeaders.begin(), kSafeHeaders.end(), is);
    }
  });
  return may;
}

}  // namespace live
