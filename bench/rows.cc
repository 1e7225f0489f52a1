#include "bench/rows.h"

#include <time.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {
namespace {

std::map<std::string, Row>& Rows() {
  static std::map<std::string, Row> rows;
  return rows;
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

void AddRow(Row row, int rounds, std::function<void(benchmark::State&)> run) {
  const std::string name = row.operation + ", " + row.size;
  const auto guarded = [run = std::move(run)](benchmark::State& state) {
    try {
      run(state);
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
    }
  };
  benchmark::RegisterBenchmark(name.c_str(), guarded)->Iterations(rounds)->UseManualTime();
  Rows()[name] = std::move(row);
}

const Row& RowNamed(const std::string& name) {
  return Rows().at(name);
}

void RunRounds(benchmark::State& state, const Batch& operation, const Batch& floor) {
  std::vector<double> times;
  std::vector<double> floors;
  std::vector<double> ratios;
  operation();
  floor();
  for ([[maybe_unused]] const auto round : state) {
    double time = operation() / 2;
    double floorTime = floor() / 2;
    floorTime += floor() / 2;
    time += operation() / 2;
    times.push_back(time);
    floors.push_back(floorTime);
    ratios.push_back(time / floorTime);
    state.SetIterationTime(time * 1e-9);
  }
  state.counters["time"] = Median(times);
  state.counters["floor"] = Median(floors);
  state.counters["ratio"] = Median(ratios);
}

double ProcessorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void Expect(bool happened, const char* what) {
  if (!happened) throw std::runtime_error(what);
}

}  // namespace bench
