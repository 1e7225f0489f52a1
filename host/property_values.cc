#include "host/property_values.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "plugin/properties.h"

namespace host {
namespace {

std::string KnownNames() {
  std::string names;
  for (const kiv::Property& row : kiv::property::kAll)
    names += (names.empty() ? "" : ", ") + std::string(row.name);
  return names;
}

bool IsInRange(const std::string& text, const kiv::Property& property) {
  int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end && value >= property.least && value <= property.most &&
         text.size() < PROPERTY_VALUE_MAX;
}

}  // namespace

std::pair<std::string, std::string> ParsePropertySetting(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) throw std::runtime_error("'" + text + "' is not name=value");
  const std::string name = text.substr(0, equals);
  const std::string value = text.substr(equals + 1);
  const auto& all = kiv::property::kAll;
  const auto found =
      std::find_if(all.begin(), all.end(), [&name](const kiv::Property& row) { return row.name == name; });
  if (found == all.end()) {
    throw std::runtime_error("unknown property '" + name + "'; known are " + KnownNames());
  }
  if (!IsInRange(value, *found)) {
    throw std::runtime_error(name + " must be a whole number from " + std::to_string(found->least) + " to " +
                             std::to_string(found->most) + ", got '" + value + "'");
  }
  return {name, value};
}

}  // namespace host
