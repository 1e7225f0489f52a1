#include "bench/table.h"

#include <cstdio>
#include <string>

#include "bench/rows.h"

namespace bench {
namespace {

struct Figures {
  double time;
  double floor;
  double ratio;
};

// Four significant digits in the unit that suits the size.
std::string Readable(double value, Unit unit) {
  static const char* const kTimes[] = {"ns", "us", "ms", "s"};
  static const char* const kBytes[] = {"B", "kB", "MB", "GB"};
  size_t step = 0;
  for (; value >= 10000 && step < 3; ++step) value /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%.*f %s", value < 100 ? 1 : 0, value,
                unit == Unit::Bytes ? kBytes[step] : kTimes[step]);
  return text;
}

std::string Times(double factor) {
  char text[32];
  std::snprintf(text, sizeof text, "x%.*f", factor < 10 ? 2 : 0, factor);
  return text;
}

class Reporter : public RowReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
        failed_ = true;
        continue;
      }
      const auto& counters = run.counters;
      Print(RowNamed(run.run_name.function_name),
            {counters.at("time").value, counters.at("floor").value, counters.at("ratio").value});
      std::fflush(stdout);
    }
  }

 private:
  virtual void Print(const Row& row, const Figures& figures) = 0;
};

class Table : public Reporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

 private:
  // Growth is against the first row of the same operation, which carries the smallest size.
  void Print(const Row& row, const Figures& figures) override {
    if (row.operation != firstOperation_) {
      firstOperation_ = row.operation;
      first_ = figures;
    }
    char aim[16] = "-";
    if (row.aim != 0) std::snprintf(aim, sizeof aim, "%.1f", row.aim);
    const bool missed = row.aim != 0 && figures.ratio > row.aim;
    std::printf("%-34s %-14s %10s %10s %6.2f %5s %-6s %8s %8s\n", row.operation.c_str(), row.size.c_str(),
                Readable(figures.time, row.unit).c_str(), Readable(figures.floor, row.unit).c_str(),
                figures.ratio, aim, missed ? "missed" : "", Times(figures.time / first_.time).c_str(),
                Times(figures.floor / first_.floor).c_str());
  }

  std::string firstOperation_;
  Figures first_{};
};

// Names and sizes come from this program and need no escaping.
class JsonLines : public Reporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

 private:
  void Print(const Row& row, const Figures& figures) override {
    std::printf("{\"operation\": \"%s\", \"size\": \"%s\", ", row.operation.c_str(), row.size.c_str());
    if (row.unit == Unit::Nanoseconds) {
      std::printf("\"time_ns\": %.2f, \"floor_ns\": %.2f, ", figures.time, figures.floor);
    } else {
      std::printf("\"time_ns\": null, \"floor_ns\": null, \"bytes\": %.1f, \"floor_bytes\": %.1f, ",
                  figures.time, figures.floor);
    }
    std::printf("\"ratio\": %.3f, ", figures.ratio);
    if (row.aim != 0) {
      std::printf("\"aim\": %.1f}\n", row.aim);
    } else {
      std::printf("\"aim\": null}\n");
    }
  }
};

}  // namespace

void PrintTableHead() {
  std::printf("%-34s %-14s %10s %10s %6s %5s %-6s %8s %8s\n", "operation", "size", "time", "floor", "ratio",
              "aim", "", "growth", "floor's");
}

std::unique_ptr<RowReporter> MakeTable() {
  return std::make_unique<Table>();
}
std::unique_ptr<RowReporter> MakeJsonLines() {
  return std::make_unique<JsonLines>();
}

}  // namespace bench
