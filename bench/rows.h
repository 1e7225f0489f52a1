// The rows of the table: what each measures, and how operation and floor take turns. Rows are added before
// the run, by the functions at the end, and run one after the other on the main thread.
#ifndef BENCH_ROWS_H_
#define BENCH_ROWS_H_

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>

namespace bench {

enum class Unit { Nanoseconds, Bytes };

struct Row {
  std::string operation;
  std::string size;
  double aim = 0;  // largest ratio wanted; 0 for a row that is only watched
  Unit unit = Unit::Nanoseconds;
};

// How many rounds a row runs: the operation's batch, the floor's twice, the operation's again, so that
// neither side gains by what the other leaves in the caches and in the heap.
constexpr int kRounds = 21;
constexpr int kRoundsOfHeavyRows = 5;

// Adds a row that `run` measures.
void AddRow(Row row, int rounds, std::function<void(benchmark::State&)> run);

// The row that was added under a benchmark's name.
const Row& RowNamed(const std::string& name);

// One batch: sets itself up, times `operations` operations and cleans up; nanoseconds (or bytes) per
// operation.
using Batch = std::function<double()>;

// Runs the rounds, after one batch of each that does not count, and reports the medians of the rounds' times,
// floors and ratios as counters of the names "time", "floor" and "ratio".
void RunRounds(benchmark::State& state, const Batch& operation, const Batch& floor);

// Nanoseconds of this thread's processor time: what other programs take of a shared machine does not count.
double ProcessorTime();

// Nanoseconds that `body` took.
template <typename Body>
double Nanoseconds(const Body& body) {
  const double start = ProcessorTime();
  body();
  benchmark::ClobberMemory();
  return ProcessorTime() - start;
}

// Fails the row being run (and the whole run) unless `happened`: a batch that the plugin refused costs little
// and says nothing.
void Expect(bool happened, const char* what);

void AddPageRequestRows();
void AddSubResourceRows();
void AddCacheStatusRows();
void AddTransactionRows();
void AddQueueRows();
void AddLaunchRows();
void AddBodyRows();
void AddResponseRows();
void AddServingRows();
void AddFlushRows();
void AddMemoryRows();

}  // namespace bench

#endif  // BENCH_ROWS_H_
