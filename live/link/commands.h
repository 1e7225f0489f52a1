// Starts the commands on both sides of the link, and ends them and everything that they have started. One
// thread.
#ifndef LIVE_LINK_COMMANDS_H_
#define LIVE_LINK_COMMANDS_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace live_link {

struct Command {
  std::vector<std::string> arguments;  // the first is the program
  int networkNamespace = -1;
  bool isClient = false;  // the client has this program's standard input and output, and its terminal
  pid_t process = -1;     // -1 until it is started
  std::optional<int> status =
      std::nullopt;  // as a shell has it, 128 and the signal included; once it has ended
};

// From here on SIGINT, SIGTERM, SIGHUP and SIGCHLD are read from the descriptor returned, and orphans of
// commands become children of this process. To be called once, before anything is started. Throws
// std::system_error.
int TakeSignals();

// Starts the command in its namespace, in a process group of its own, with KIV_LINK_SERVER and
// KIV_LINK_CLIENT in its environment. A program that does not exist is told on standard error and ends with
// status 127. Throws std::system_error.
void Start(Command& command);

// Reads the pending signals from the descriptor, and stores the exit statuses of ended processes in
// `commands`. Returns the signal that asked this program to end, if there was one.
std::optional<int> HandleSignals(int signals, std::vector<Command>& commands);

// Ends every process that the commands have started, whatever process group or session it has moved to. It
// asks them first, and kills those that remain after two seconds, or at once if another signal arrives.
void EndCommands();

}  // namespace live_link

#endif  // LIVE_LINK_COMMANDS_H_
