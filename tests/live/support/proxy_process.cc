#include "tests/live/support/proxy_process.h"

#include <signal.h>

#include <filesystem>
#include <iterator>
#include <sstream>

namespace tests {

ProxyProcess::ProxyProcess(const TemporaryFolder& folder, const std::string& words,
                           const std::string& environment)
    : output_(folder.Write("out", "")), errors_(folder.Write("errors", "")) {
  const std::string line = environment + " exec " KIV_PROXY_PATH " --listen 127.0.0.1:0 " + words;
  process_.emplace(std::vector<std::string>{"sh", "-c", line + " 2>" + errors_}, output_);
  const auto hasLine = [this] { return Output().find('\n') != std::string::npos; };
  if (Eventually([&] { return hasLine() || !IsRunning(); }) && hasLine()) {
    address_ = Output().substr(0, Output().find('\n'));
  }
}

int ProxyProcess::Stop() {
  Kill(SIGTERM);
  return Wait();
}

bool ProxyProcess::IsRunning() const {
  std::string state;
  std::istringstream status(TextOf("/proc/" + std::to_string(process_->Id()) + "/status"));
  for (std::string key; status >> key;) {
    if (key == "State:") return status >> state && state != "Z";
  }
  return false;
}

size_t ProxyProcess::Descriptors() const {
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(process_->Id()) + "/fd");
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

size_t ProxyProcess::PeakKb() const {
  const std::string status = TextOf("/proc/" + std::to_string(process_->Id()) + "/status");
  return std::stoul(status.substr(status.find("VmHWM:") + 6));
}

}  // namespace tests
