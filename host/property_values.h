// A property and its value as the programs' options take them: --prop NAME=VALUE. Any thread.
#ifndef HOST_PROPERTY_VALUES_H_
#define HOST_PROPERTY_VALUES_H_

#include <string>
#include <utility>

namespace host {

// "name=value" split. The plugin takes any text for a value and reads 0 where there is no number; a person
// who types one means something else, so only the whole numbers that make sense for the property are
// accepted. Throws std::runtime_error with what is wrong: the text, the known names, or the property's range.
std::pair<std::string, std::string> ParsePropertySetting(const std::string& text);

}  // namespace host

#endif  // HOST_PROPERTY_VALUES_H_
