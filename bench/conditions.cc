#include "bench/conditions.h"

#include <gnu/libc-version.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>

#include "bench/floor_records.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

#ifdef __OPTIMIZE__
constexpr bool kOptimised = true;
#else
constexpr bool kOptimised = false;
#endif

#ifdef __clang__
constexpr const char* kCompiler = __VERSION__;
#else
constexpr const char* kCompiler = "g++ " __VERSION__;
#endif

// The first processor's name, or what the kernel calls the architecture.
std::string Processor(const utsname& system) {
  std::ifstream cpus("/proc/cpuinfo");
  for (std::string line; std::getline(cpus, line);) {
    if (line.starts_with("model name")) return line.substr(std::min(line.find(':') + 2, line.size()));
  }
  return system.machine;
}

}  // namespace

bool FitToMeasure() {
  if (!kOptimised) {
    std::fprintf(stderr, "kiv_bench: build type %s is not optimised; build the release preset\n",
                 KIV_BUILD_TYPE);
    return false;
  }
  if (*KIV_SANITIZERS != '\0') {
    std::fprintf(stderr, "kiv_bench: built with sanitizers (%s); build the release preset\n", KIV_SANITIZERS);
    return false;
  }
  return true;
}

void PrintConditions(std::FILE* out) {
  utsname system{};
  uname(&system);
  double load = 0;
  if (getloadavg(&load, 1) != 1) load = 0;
  const double gigabytes =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e9;
  const std::vector<std::string> urls = MakeUrls("known", 1000, 100);
  size_t longest = 0;
  size_t bytes = 0;
  for (const std::string& url : urls) {
    longest = std::max(longest, url.size());
    bytes += url.size();
  }

  std::fprintf(out, "machine:  %s, %ld processors, %.0f GB, %s %s, load %.2f at the start\n",
               Processor(system).c_str(), sysconf(_SC_NPROCESSORS_ONLN), gigabytes, system.sysname,
               system.release, load);
  std::fprintf(out,
               "compiler: %s, build type %s, glibc %s (freed memory is kept, large blocks are not mapped)\n",
               kCompiler, KIV_BUILD_TYPE, gnu_get_libc_version());
  std::fprintf(
      out,
      "sizes:    URLs of %zu bytes (longest %zu); records of %zu bytes per URL, %zu per host, %zu per "
      "preload\n",
      bytes / urls.size(), longest, sizeof(KnownUrl), sizeof(HostRecord), sizeof(HeldPreload));
  std::fprintf(out, "rounds:   %d (%d of the heavy rows) of operation, floor, floor, operation; medians\n\n",
               kRounds, kRoundsOfHeavyRows);
}

}  // namespace bench
