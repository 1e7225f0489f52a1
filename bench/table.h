// What the run prints: one aligned line per row, or one JSON object per row. Main thread.
#ifndef BENCH_TABLE_H_
#define BENCH_TABLE_H_

#include <benchmark/benchmark.h>

#include <memory>

namespace bench {

// Prints rows to standard output as they finish. A row that failed is named on standard error and remembered.
class RowReporter : public benchmark::BenchmarkReporter {
 public:
  bool Failed() const { return failed_; }

 protected:
  bool failed_ = false;
};

// The first line of the table, above all rows.
void PrintTableHead();
std::unique_ptr<RowReporter> MakeTable();
std::unique_ptr<RowReporter> MakeJsonLines();

}  // namespace bench

#endif  // BENCH_TABLE_H_
