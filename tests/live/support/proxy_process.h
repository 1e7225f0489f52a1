// kiv_proxy as a program of its own, seen from outside. A program that uses this is told where it is by
// KIV_PROXY_PATH.
#ifndef TESTS_LIVE_SUPPORT_PROXY_PROCESS_H_
#define TESTS_LIVE_SUPPORT_PROXY_PROCESS_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>

#include "tests/live/support/child_process.h"
#include "tests/support/text.h"

namespace tests {

// Looks every 20 ms, for 20 seconds at most.
template <typename Condition>
bool Eventually(const Condition& condition) {
  for (int look = 0; look < 1000; ++look) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

class ProxyProcess {
 public:
  // It listens at any port that is free. `words`: further options; `environment`: "NAME=VALUE ...". Its
  // output and errors go to files of the folder.
  ProxyProcess(const TemporaryFolder& folder, const std::string& words, const std::string& environment = "");

  bool Started() const { return !address_.empty(); }
  const std::string& Address() const { return address_; }
  int Port() const { return std::stoi(address_.substr(address_.rfind(':') + 1)); }
  std::string Output() const { return TextOf(output_); }
  std::string Errors() const { return TextOf(errors_); }

  void Kill(int signal) const { process_->Kill(signal); }
  int Wait() { return process_->Wait(); }  // its exit status
  int Stop();                              // as a user does; its exit status
  bool IsRunning() const;

  size_t Descriptors() const;
  size_t PeakKb() const;  // of its memory

 private:
  const std::string output_, errors_;
  std::optional<ChildProcess> process_;
  std::string address_;
};

}  // namespace tests

#endif  // TESTS_LIVE_SUPPORT_PROXY_PROCESS_H_
