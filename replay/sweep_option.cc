#include "replay/sweep_option.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace replay {
namespace {

constexpr size_t kMostValues = 64;  // each of them is another replay of everything

std::optional<uint32_t> WholeNumber(std::string_view text) {
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

[[noreturn]] void RefuseCount() {
  throw std::runtime_error(fmt::format("must name from two to {} values", kMostValues));
}

std::vector<std::string> RangeOf(std::string_view first, std::string_view last) {
  const auto from = WholeNumber(first), to = WholeNumber(last);
  if (!from || !to || *from >= *to) {
    throw std::runtime_error(fmt::format("'{}..{}' is no range of whole numbers like 1..8", first, last));
  }
  if (*to - *from >= kMostValues) RefuseCount();
  std::vector<std::string> values;
  for (uint32_t value = *from; value <= *to; ++value) values.push_back(std::to_string(value));
  return values;
}

std::vector<std::string> ListOf(std::string_view text) {
  std::vector<std::string> values;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    const std::string value(text.substr(at, end - at));
    if (value.empty())
      throw std::runtime_error("there is a value missing: there must be one before and after each comma");
    if (std::find(values.begin(), values.end(), value) != values.end()) {
      throw std::runtime_error("the value '" + value + "' stands there twice");
    }
    values.push_back(value);
    at = end + 1;
  }
  if (values.size() < 2 || values.size() > kMostValues) RefuseCount();
  return values;
}

}  // namespace

SweepRequest ParseSweep(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw std::runtime_error(fmt::format("'{}' must be like prlimit=1..8 or profile=3g,4g", text));
  }
  const std::string_view values = std::string_view(text).substr(equals + 1);
  const size_t dots = values.find("..");
  return {.name = text.substr(0, equals),
          .values = dots == std::string_view::npos
                        ? ListOf(values)
                        : RangeOf(values.substr(0, dots), values.substr(dots + 2))};
}

}  // namespace replay
