// The benchmark program: conditions, then one row per operation and size.
#include <malloc.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
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
  KeepFreedMemory();
  bench::StartPlugin();
  bench::AddReflectorRows();
  bench::AddTransactionRows();
  bench::AddQueueRows();
  bench::AddBodyRows();
  bench::AddResponseRows();
  bench::AddServingRows();
  bench::AddFlushRows();
  bench::AddMemoryRows();
  const std::unique_ptr<bench::RowReporter> reporter = json ? bench::MakeJsonLines() : bench::MakeTable();
  const size_t ran = benchmark::RunSpecifiedBenchmarks(reporter.get());
  if (ran == 0) std::fprintf(stderr, "kiv_bench: no row matches the filter\n");
  return ran == 0 ? 2 : reporter->Failed() ? 1 : 0;
}
