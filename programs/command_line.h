// What the command lines of all programs have in common. Any thread.
#ifndef PROGRAMS_COMMAND_LINE_H_
#define PROGRAMS_COMMAND_LINE_H_

#include <ostream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace programs {

// Reads the arguments after the program's name into what `app` binds. False after --help or --version, whose
// text went to `out`: the program is then done, with exit status 0. Throws std::runtime_error with one line,
// which ends with where to find help.
bool ParseArguments(CLI::App& app, const std::vector<std::string>& arguments, std::ostream& out);

}  // namespace programs

#endif  // PROGRAMS_COMMAND_LINE_H_
