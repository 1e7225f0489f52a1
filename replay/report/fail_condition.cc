#include "replay/report/fail_condition.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "replay/report/report_json.h"

namespace replay {
namespace {

using Json = nlohmann::json;

// Longer operators come first, so that "<=" is not read as "<".
constexpr std::array<std::string_view, 6> kComparisons = {"<=", ">=", "==", "!=", "<", ">"};

[[noreturn]] void Refuse(const std::string& text, const std::string& what) {
  throw std::runtime_error("'" + text + "': " + what);
}

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::optional<double> FiniteNumber(std::string_view text) {
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

// The value of the key; null if there is none.
const Json* Find(const Json& object, std::string_view key) {
  const size_t dot = key.find('.');
  const auto found = object.is_object() ? object.find(std::string(key.substr(0, dot))) : object.end();
  if (found == object.end()) return nullptr;
  return dot == std::string_view::npos ? &*found : Find(*found, key.substr(dot + 1));
}

// Objects that have a key for everything that occurred: a missing key means that it did not occur.
bool CountsWhatOccurred(std::string_view key) {
  return key.starts_with("reasons.") || key.starts_with("skipped.");
}

bool Holds(double figure, const std::string& comparison, double number) {
  if (comparison == "<=") return figure <= number;
  if (comparison == ">=") return figure >= number;
  if (comparison == "==") return figure == number;
  if (comparison == "!=") return figure != number;
  return comparison == "<" ? figure < number : figure > number;
}

}  // namespace

FailCondition ParseFailCondition(const std::string& text) {
  size_t at = text.size();
  std::string_view comparison;
  for (const std::string_view candidate : kComparisons) {
    const size_t found = text.find(candidate);
    if (found < at) {
      at = found;
      comparison = candidate;
    }
  }
  if (comparison.empty()) Refuse(text, "must be like 'slower_visits > 0'");
  const std::string_view whole = text;
  const auto number = FiniteNumber(Trimmed(whole.substr(at + comparison.size())));
  if (!number) Refuse(text, "there must be a number after " + std::string(comparison));
  const std::string key(Trimmed(whole.substr(0, at)));
  static const Json kKeys = Json::parse(JsonSummaryLines({}, Settings(2)).front());
  const Json* const value = Find(kKeys, key);
  const bool isFigure = value != nullptr && (value->is_number() || value->is_null());
  if (!isFigure && !CountsWhatOccurred(key)) {
    Refuse(text, "the summary has no figure '" + key + "' (docs/replay-json.md lists its keys)");
  }
  return {.text = text,
          .needsSweep = key.starts_with("against_first."),
          .key = key,
          .comparison = std::string(comparison),
          .number = *number};
}

std::string WhyFailed(const FailCondition& condition, const std::string& summaryLine) {
  const Json summary = Json::parse(summaryLine);
  const Json* const value = Find(summary, condition.key);
  if (value == nullptr && !CountsWhatOccurred(condition.key))
    return condition.text + ": there is no such figure";
  if (value != nullptr && !value->is_number()) {
    return condition.text + ": " + condition.key + " has no value for these visits";
  }
  const double figure = value != nullptr ? value->get<double>() : 0;
  if (!Holds(figure, condition.comparison, condition.number)) return "";
  return condition.text + ": " + condition.key + " is " + (value != nullptr ? value->dump() : "0");
}

}  // namespace replay
