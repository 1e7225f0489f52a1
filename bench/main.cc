// The benchmark program: conditions, then one row per operation and size.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <vector>

#include "bench/conditions.h"
#include "bench/plugin_driver.h"
#include "bench/rows.h"
#include "bench/table.h"

namespace {

constexpr char kUsage[] =
    "usage: bench [--json] [--benchmark_filter=REGEX]\n"
    "  --json                    one JSON object per row; the conditions go to standard error\n"
    "  --benchmark_filter=REGEX  only the rows whose \"operation, size\" matches\n";

// Memory that was freed stays with the process and large blocks come from the heap like small ones: else the
// kernel's page faults would drown what is measured, and fall on whichever side freed last.
void KeepFreedMemory() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

// Related rows, smallest size first. Each group runs in a process of its own: a heap that earlier rows left
// in pieces would decide where the two sides of a row lie.
constexpr void (*kGroups[])() = {
    bench::AddPageRequestRows, bench::AddSubResourceRows, bench::AddCacheStatusRows,
    bench::AddTransactionRows, bench::AddQueueRows,       bench::AddLaunchRows,
    bench::AddBodyRows,        bench::AddResponseRows,    bench::AddServingRows,
    bench::AddFlushRows,       bench::AddMemoryRows,
};

constexpr int kFailed = 1;
constexpr int kNothingRan = 2;

int RunGroup(void (*addRows)(), bool json) {
  KeepFreedMemory();
  bench::StartPlugin();
  addRows();
  const std::unique_ptr<bench::RowReporter> reporter = json ? bench::MakeJsonLines() : bench::MakeTable();
  std::ostream silent(nullptr);
  reporter->SetErrorStream(&silent);  // it complains when the filter matches no row of this group
  if (benchmark::RunSpecifiedBenchmarks(reporter.get()) == 0) return kNothingRan;
  return reporter->Failed() ? kFailed : 0;
}

// The exit status: failed when one group failed, nothing ran when that is so of all.
int RunGroups(bool json) {
  int result = kNothingRan;
  for (const auto addRows : kGroups) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
      std::perror("kiv_bench: cannot start a process for the next rows");
      return kFailed;
    }
    if (child == 0) {
      const int status = RunGroup(addRows, json);
      std::fflush(nullptr);
      _exit(status);
    }
    int ended = 0;
    if (waitpid(child, &ended, 0) != child || !WIFEXITED(ended)) {
      std::fprintf(stderr, "kiv_bench: the process of the last rows ended before its time\n");
      return kFailed;
    }
    if (WEXITSTATUS(ended) == kFailed) result = kFailed;
    if (WEXITSTATUS(ended) == 0 && result == kNothingRan) result = 0;
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (!bench::FitToMeasure()) return 2;
  bool json = false;
  std::vector<char*> others;
  for (int i = 0; i < argc; ++i) {
    if (i != 0 && std::strcmp(argv[i], "--json") == 0) {
      json = true;
    } else if (i != 0 && std::strcmp(argv[i], "--help") == 0) {
      std::fputs(kUsage, stdout);
      return 0;
    } else {
      others.push_back(argv[i]);
    }
  }
  int otherCount = static_cast<int>(others.size());
  others.push_back(nullptr);
  benchmark::Initialize(&otherCount, others.data());
  if (otherCount > 1) {
    std::fprintf(stderr, "kiv_bench: unknown argument %s\n%s", others[1], kUsage);
    return 2;
  }

  bench::PrintConditions(json ? stderr : stdout);
  if (!json) bench::PrintTableHead();
  const int status = RunGroups(json);
  if (status == kNothingRan) std::fprintf(stderr, "kiv_bench: no row matches the filter\n");
  return status;
}
