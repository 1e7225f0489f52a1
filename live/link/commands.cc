#include "live/link/commands.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <system_error>

#include "live/link/addresses.h"
#include "live/link/network_namespace.h"
#include "live/link/packet_shuttle.h"

namespace live_link {
namespace {

constexpr int64_t kGraceNs = 2'000'000'000;

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

sigset_t SignalsTaken() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
  return set;
}

bool terminalGiven = false;  // to the client, which may then read from it and gets its Ctrl-C

// In the new process; what is wrong there can only be told on standard error.
[[noreturn]] void Become(const Command& command) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  EnterNetworkNamespace(command.networkNamespace);
  setenv("KIV_LINK_SERVER", kServerAddress, 1);
  setenv("KIV_LINK_CLIENT", kClientAddress, 1);
  if (!command.isClient) {
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
  } else if (terminalGiven) {
    tcsetpgrp(STDIN_FILENO, getpid());
  }
  signal(SIGPIPE, SIG_DFL);
  signal(SIGTTOU, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  std::vector<char*> arguments;
  for (const std::string& argument : command.arguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  fprintf(stderr, "kiv_link: cannot run '%s': %s\n", arguments[0], strerror(errno));
  _exit(127);
}

// Children of this process, among them those whose parents have ended.
std::vector<pid_t> Children() {
  std::ifstream file("/proc/thread-self/children");
  std::vector<pid_t> children;
  for (pid_t child = 0; file >> child;) children.push_back(child);
  return children;
}

// Takes ended children off the kernel's list. Says whether any child is left.
bool ReapAnyChildLeft() {
  pid_t ended = 0;
  while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) continue;
  return ended == 0;
}

// With its group, unless that is this program's own or none that can be named here.
void AskToEnd(pid_t child) {
  const pid_t group = getpgid(child);
  const pid_t target = group > 1 && group != getpgrp() ? -group : child;
  kill(target, SIGTERM);
  kill(target, SIGCONT);
}

}  // namespace

int TakeSignals() {
  const sigset_t taken = SignalsTaken();
  if (sigprocmask(SIG_BLOCK, &taken, nullptr) != 0) ThrowErrno("cannot block signals");
  signal(SIGPIPE, SIG_IGN);  // whoever reads this program's output may leave early
  signal(SIGTTOU, SIG_IGN);  // takes the terminal back from the background
  if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) ThrowErrno("cannot become the parent of orphans");
  const int signals = signalfd(-1, &taken, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signals < 0) ThrowErrno("cannot read signals from a descriptor");
  return signals;
}

void Start(Command& command) {
  if (command.isClient) terminalGiven = tcgetpgrp(STDIN_FILENO) == getpgrp();
  fflush(nullptr);  // else both processes would write what is buffered
  command.process = fork();
  if (command.process < 0) ThrowErrno("cannot start a process");
  if (command.process == 0) {
    try {
      Become(command);
    } catch (const std::exception& error) {
      fprintf(stderr, "kiv_link: %s\n", error.what());
      _exit(127);
    }
  }
  setpgid(command.process, command.process);  // here as well, so that it is done when either goes on
}

std::optional<int> HandleSignals(int signals, std::vector<Command>& commands) {
  std::optional<int> asked;
  signalfd_siginfo info{};
  while (read(signals, &info, sizeof(info)) == sizeof(info)) {
    if (info.ssi_signo != SIGCHLD) asked = static_cast<int>(info.ssi_signo);
  }
  int status = 0;
  for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [ended](const Command& command) { return command.process == ended; });
    if (found == commands.end()) continue;  // an orphan
    found->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return asked;
}

void EndCommands() {
  const sigset_t taken = SignalsTaken();
  const auto wait = [&taken](int64_t ns) {
    const timespec pause = {.tv_sec = 0, .tv_nsec = ns};
    return sigtimedwait(&taken, nullptr, &pause);
  };
  std::set<pid_t> asked;
  for (const int64_t endNs = NowNs() + kGraceNs; ReapAnyChildLeft() && NowNs() < endNs;) {
    for (const pid_t child : Children()) {  // more of them as parents end
      if (asked.insert(child).second) AskToEnd(child);
    }
    const int signal = wait(20'000'000);
    if (signal > 0 && signal != SIGCHLD) break;
  }
  for (const int64_t endNs = NowNs() + kGraceNs; ReapAnyChildLeft() && NowNs() < endNs;) {
    for (const pid_t child : Children()) kill(child, SIGKILL);
    wait(1'000'000);
  }
  if (terminalGiven) tcsetpgrp(STDIN_FILENO, getpgrp());
}

}  // namespace live_link
