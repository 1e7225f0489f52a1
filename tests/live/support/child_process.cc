#include "tests/live/support/child_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tests {
namespace {

sockaddr_in Local(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& outputFile) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  process_ = fork();
  if (process_ < 0) throw std::runtime_error("no process can be made");
  if (process_ > 0) return;
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int output =
      open(outputFile.empty() ? "/dev/null" : outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(output, STDOUT_FILENO);
  if (outputFile.empty()) dup2(output, STDERR_FILENO);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

ChildProcess::~ChildProcess() {
  if (process_ <= 0) return;
  kill(-process_, SIGKILL);
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

int ChildProcess::Wait() {
  int status = 0;
  while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
  }
  process_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ChildProcess::Kill(int signal) const {
  kill(process_, signal);
}

bool IsInstalled(const std::string& program) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

bool WaitForPort(int port) {
  for (int attempt = 0; attempt < 1000; ++attempt) {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Local(port);
    const bool connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    if (connected) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

int FreePort() {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Local(0);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(probe, generic, length) != 0 || getsockname(probe, generic, &length) != 0) {
    throw std::runtime_error("no port is free");
  }
  close(probe);
  return ntohs(address.sin_port);
}

bool MakeCertificate(const std::string& folder) {
  ChildProcess openssl({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=localhost",
                        "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout",
                        folder + "/key.pem", "-out", folder + "/cert.pem"});
  return openssl.Wait() == 0;
}

}  // namespace tests
