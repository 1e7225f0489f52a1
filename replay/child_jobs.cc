#include "replay/child_jobs.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace replay {
namespace {

struct Child {
  size_t index;
  pid_t process;
  int pipe;
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

Child Start(size_t index, const std::function<std::string(size_t)>& work, const std::vector<Child>& running) {
  int ends[2];
  if (pipe(ends) != 0) ThrowErrno("pipe");
  std::fflush(nullptr);  // else the child would print the parent's text again
  const pid_t process = fork();
  if (process < 0) ThrowErrno("fork");
  if (process == 0) {
    close(ends[0]);
    for (const Child& other : running) close(other.pipe);
    WriteAll(ends[1], work(index));
    _exit(0);
  }
  close(ends[1]);
  return {.index = index, .process = process, .pipe = ends[0]};
}

// One chunk; false at the end of the child's output.
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

}  // namespace

std::vector<ChildOutcome> RunInChildren(size_t count, unsigned jobs,
                                        const std::function<std::string(size_t)>& work,
                                        const std::function<void(size_t)>& done) {
  std::vector<ChildOutcome> outcomes(count);
  std::vector<Child> running;
  size_t started = 0, finished = 0;
  while (finished < count) {
    while (started < count && running.size() < jobs) running.push_back(Start(started++, work, running));
    std::vector<pollfd> waits;
    waits.reserve(running.size());
    for (const Child& child : running) waits.push_back({.fd = child.pipe, .events = POLLIN, .revents = 0});
    if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) ThrowErrno("poll");
    for (size_t index = running.size(); index-- > 0;) {
      if (waits[index].revents == 0) continue;
      const Child child = running[index];
      if (ReadSome(child.pipe, outcomes[child.index].output)) continue;
      close(child.pipe);
      outcomes[child.index].failure = WaitFor(child.process);
      running.erase(running.begin() + static_cast<ptrdiff_t>(index));
      done(++finished);
    }
  }
  return outcomes;
}

}  // namespace replay
