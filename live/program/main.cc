// kiv_proxy: preloads for a browser on this machine. One thread, but for the look-up of names.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "live/program/authority_folder.h"
#include "live/program/options.h"
#include "live/program/run_proxy.h"
#include "live/state/page_store.h"

namespace live {
namespace {

constexpr int kFault = 1;
constexpr int kBadOptions = 2;

int ForgetPages(const ProxyOptions& options) {
  bool complete = true;
  const auto complain = [&complete](const std::string& message) {
    std::fprintf(stderr, "kiv_proxy: %s\n", message.c_str());
    complete = false;
  };
  size_t count = 0;
  try {
    if (std::filesystem::exists(options.statePath)) {  // else it is not made for this
      PageStore store(options.statePath, 0, complain);
      count = options.forgetHost.empty() ? store.ForgetAll() : store.Forget(options.forgetHost);
    }
  } catch (const std::runtime_error& error) {
    complain(error.what());
  }
  if (complete) std::printf("%zu pages forgotten\n", count);
  return complete ? EXIT_SUCCESS : kFault;
}

int Run(const std::vector<std::string>& arguments) {
  try {
    const auto options = ParseProxyOptions(arguments, std::cout);
    if (!options) return EXIT_SUCCESS;
    switch (options->task) {
      case Task::Browse:
        RunProxy(*options);
        break;
      case Task::MakeCa:
        std::cout << HowToTrust(OpenAuthority(options->caFolder, options->onlyHosts), options->caFolder);
        break;
      case Task::Forget:
        return ForgetPages(*options);
    }
    return EXIT_SUCCESS;
  } catch (const std::system_error&) {
    throw;
  } catch (const std::runtime_error& error) {
    std::fprintf(stderr, "kiv_proxy: %s\n", error.what());
    return kBadOptions;
  }
}

}  // namespace
}  // namespace live

int main(int argc, char** argv) {
  try {
    return live::Run({argv + 1, argv + argc});
  } catch (const std::bad_alloc&) {
    std::fputs("kiv_proxy: out of memory\n", stderr);
    return live::kFault;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kiv_proxy: %s\n", error.what());
    return live::kFault;
  }
}
