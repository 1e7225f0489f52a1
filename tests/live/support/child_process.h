// A program that runs beside the test, and ends with it.
#ifndef TESTS_LIVE_SUPPORT_CHILD_PROCESS_H_
#define TESTS_LIVE_SUPPORT_CHILD_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace tests {

class ChildProcess {
 public:
  // Looks the program up in the PATH. Its standard output goes to the file, if one is given.
  explicit ChildProcess(const std::vector<std::string>& command, const std::string& outputFile = "");
  // Ends the program's process group and waits for it.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Id() const { return process_; }
  // Its exit status, when it ends by itself; -1 when a signal ended it.
  int Wait();
  void Kill(int signal) const;

 private:
  pid_t process_ = -1;
};

bool IsInstalled(const std::string& program);

// Waits until something listens on the port of this machine, for ten seconds at most.
bool WaitForPort(int port);
// A port that nobody listens on now.
int FreePort();

// A certificate and its key, for 127.0.0.1 and localhost, signed by itself: files "cert.pem" and "key.pem" in
// the folder. False when they cannot be made.
bool MakeCertificate(const std::string& folder);

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_CHILD_PROCESS_H_
