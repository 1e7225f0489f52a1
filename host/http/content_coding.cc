#include "host/http/content_coding.h"

#include <optional>
#include <string>

#include "host/http/header_block.h"
#include "host/http/lists.h"
#include "net/http/header_text.h"

namespace http {
namespace {

// "x-gzip" and "x-compress" are older names.
std::string_view CanonicalName(std::string_view coding) {
  const bool older =
      net::EqualsIgnoringCase(coding, "x-gzip") || net::EqualsIgnoringCase(coding, "x-compress");
  return older ? coding.substr(2) : coding;
}

// Whether the text is a valid quality above 0: "0", "0.5", "1.000", with at most three decimals.
bool IsPositiveQuality(std::string_view text) {
  if (text.empty() || text.size() > 5 || (text[0] != '0' && text[0] != '1')) return false;
  if (text.size() > 1 && text[1] != '.') return false;
  const std::string_view decimals = text.substr(text.size() > 1 ? 2 : 1);
  if (decimals.find_first_not_of(text[0] == '1' ? "0" : "0123456789") != std::string_view::npos) return false;
  return text[0] == '1' || decimals.find_first_not_of('0') != std::string_view::npos;
}

// Whether a coding is accepted, by what follows it: ";q=0.5" in "gzip;q=0.5".
bool AllowedByQuality(std::string_view parameters) {
  while (!parameters.empty()) {
    const Directive parameter = ParseDirective(TakeItem(parameters, ';'));
    if (net::EqualsIgnoringCase(parameter.name, "q")) return IsPositiveQuality(parameter.value.value_or(""));
  }
  return true;
}

// What the list says about a coding; nothing if it does not name it.
std::optional<bool> Listed(std::string_view acceptEncoding, std::string_view coding) {
  while (!acceptEncoding.empty()) {
    std::string_view parameters = TakeItem(acceptEncoding);
    if (parameters.empty()) continue;
    const std::string_view name = TakeItem(parameters, ';');
    if (net::EqualsIgnoringCase(CanonicalName(name), coding)) return AllowedByQuality(parameters);
  }
  return std::nullopt;
}

bool Accepts(std::string_view acceptEncoding, std::string_view coding) {
  if (const auto named = Listed(acceptEncoding, coding)) return *named;
  if (const auto anyOther = Listed(acceptEncoding, "*")) return *anyOther;
  return net::EqualsIgnoringCase(coding, "identity");
}

}  // namespace

bool AcceptsCodingOf(std::string_view requestHeaders, std::string_view responseBlock) {
  const std::optional<std::string> acceptEncoding = CombinedHeader(requestHeaders, "Accept-Encoding");
  if (!acceptEncoding) return true;
  bool coded = false;
  bool accepted = true;
  ForEachItem(CombinedHeader(responseBlock, "Content-Encoding").value_or(""), [&](std::string_view coding) {
    coded = true;
    accepted = accepted && Accepts(*acceptEncoding, CanonicalName(coding));
  });
  return coded ? accepted : Accepts(*acceptEncoding, "identity");
}

}  // namespace http
