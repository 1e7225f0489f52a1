#include "replay/child_jobs.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "replay/interruption.h"

namespace replay {
namespace {

struct Child {
  size_t index;
  pid_t process;
  int pipe;
  std::string output;
};

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void WriteAll(int file, const std::string& text) {
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(file, text.data() + at, text.size() - at);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) _exit(1);
    at += static_cast<size_t>(written);
  }
}

// The running children. The destructor kills those that are left.
class Children {
 public:
  Children() = default;
  ~Children() {
    for (const Child& child : running) kill(child.process, SIGKILL);
    for (const Child& child : running) {
      close(child.pipe);
      while (waitpid(child.process, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
  }
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  std::vector<Child> running;
};

Child Start(size_t index, const std::function<std::string(size_t)>& work, const std::vector<Child>& running,
            const InterruptionWatch& watch) {
  int ends[2];
  if (pipe(ends) != 0) ThrowErrno("pipe");
  std::fflush(nullptr);  // otherwise the child would print the parent's text again
  const pid_t process = fork();
  if (process < 0) ThrowErrno("fork");
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // nobody would read its output
    watch.LetGoInChild();
    close(ends[0]);
    for (const Child& other : running) close(other.pipe);
    WriteAll(ends[1], work(index));
    _exit(0);
  }
  close(ends[1]);
  return {.index = index, .process = process, .pipe = ends[0]};
}

// Reads one chunk. Returns false at the end of the child's output.
bool ReadSome(int file, std::string& output) {
  char chunk[65536];
  const ssize_t length = read(file, chunk, sizeof(chunk));
  if (length < 0) return errno == EINTR;
  output.append(chunk, static_cast<size_t>(length));
  return length > 0;
}

std::string WaitFor(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    return fmt::format("ended by signal {} ({})", WTERMSIG(status), sigdescr_np(WTERMSIG(status)));
  }
  return WEXITSTATUS(status) == 0 ? "" : fmt::format("ended with status {}", WEXITSTATUS(status));
}

// Which of the children have output to read; none after an interruption.
std::vector<pollfd> WaitForOutput(const std::vector<Child>& running, const InterruptionWatch& watch) {
  std::vector<pollfd> waits;
  waits.reserve(running.size());
  for (const Child& child : running) waits.push_back({.fd = child.pipe, .events = POLLIN, .revents = 0});
  if (ppoll(waits.data(), waits.size(), nullptr, &watch.WaitMask()) < 0) {
    if (errno != EINTR) ThrowErrno("poll");
    for (pollfd& wait : waits) wait.revents = 0;
  }
  return waits;
}

}  // namespace

void RunInChildren(size_t count, unsigned jobs, const std::function<std::string(size_t)>& work,
                   const std::function<void(size_t, ChildOutcome)>& onOutcome) {
  const InterruptionWatch watch;
  Children children;
  std::vector<Child>& running = children.running;
  size_t started = 0;
  while (started < count || !running.empty()) {
    while (started < count && running.size() < jobs) {
      running.push_back(Start(started, work, running, watch));
      ++started;
    }
    const std::vector<pollfd> waits = WaitForOutput(running, watch);
    if (Interruption() != 0) return;
    for (size_t index = running.size(); index-- > 0;) {
      if (waits[index].revents == 0 || ReadSome(running[index].pipe, running[index].output)) continue;
      Child child = std::move(running[index]);
      running.erase(running.begin() + static_cast<ptrdiff_t>(index));
      close(child.pipe);
      std::string failure = WaitFor(child.process);
      onOutcome(child.index, {.output = std::move(child.output), .failure = std::move(failure)});
    }
  }
}

}  // namespace replay
