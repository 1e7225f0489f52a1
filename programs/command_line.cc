#include "programs/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

namespace programs {

bool ParseArguments(CLI::App& app, const std::vector<std::string>& arguments, std::ostream& out) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser wants them
  try {
    app.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return false;
  } catch (const CLI::CallForVersion& version) {
    out << version.what() << '\n';
    return false;
  } catch (const CLI::ParseError& error) {
    std::string what = error.what();
    std::replace(what.begin(), what.end(), '\n', ' ');
    throw std::runtime_error(what + " (see --help)");
  }
  return true;
}

}  // namespace programs
