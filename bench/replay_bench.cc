// What kiv_replay costs: per recording the time and peak memory of reading it, beside the bare parse of the
// same text by the JSON library, and the time to replay it four ways. Each recording is measured in a process
// of its own, because both the plugin's state and the peak memory belong to a process.
#include <simdjson.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "host/plugin_functions.h"
#include "replay/model/replay.h"
#include "replay/recording/har_reader.h"

namespace {

constexpr int kRounds = 5;

// A load of a page with `requests` resources of 20 hosts, in the form that recorders give it.
std::string SyntheticHar(size_t requests) {
  std::string har =
      R"({"log":{"version":"1.2","creator":{"name":"bench","version":"1"},"pages":[{"id":"p",)"
      R"("startedDateTime":"2026-01-01T00:00:00.000Z","title":"","pageTimings":{"onLoad":9000}}],)"
      R"("entries":[)";
  for (size_t i = 0; i < requests; ++i) {
    const std::string host = "host" + std::to_string(i % 20) + ".example.test";
    const std::string path = i == 0 ? "/" : "/assets/2026/resource-" + std::to_string(i) + ".js?v=1700000000";
    char started[40];
    std::snprintf(started, sizeof started, "2026-01-01T00:00:%02zu.%03zuZ",
                  std::min<size_t>(i * 8 / 1000, 59), i * 8 % 1000);
    har += i == 0 ? "" : ",";
    har +=
        R"({"pageref":"p","startedDateTime":")" + std::string(started) +
        R"(","time":120,"request":{"method":"GET","url":"https://)" + host + path +
        R"(","httpVersion":"h2","headers":[{"name":"Accept","value":"*/*"},{"name":"Accept-Encoding","value":)"
        R"("gzip, deflate, br"},{"name":"User-Agent","value":"Mozilla/5.0 (Linux; Android 10; K) AppleWebKit"},)"
        R"({"name":"Referer","value":"https://host0.example.test/"}],"queryString":[],"cookies":[],)"
        R"("headersSize":-1,"bodySize":0},"response":{"status":200,"statusText":"OK","httpVersion":"h2",)"
        R"("headers":[{"name":"Content-Type","value":")" +
        (i == 0 ? "text/html" : "application/javascript") +
        R"("},{"name":"Content-Length","value":"12000"},{"name":"Cache-Control","value":"no-cache"},{"name":)"
        R"("Date","value":"Thu, 01 Jan 2026 00:00:00 GMT"},{"name":"ETag","value":"\"5f3c-1a2b3c4d5e6f\""}],)"
        R"("cookies":[],"content":{"size":12000,"mimeType":"application/javascript"},"redirectURL":"",)"
        R"("headersSize":-1,"bodySize":12000},"cache":{},"timings":{"blocked":1,"dns":-1,"connect":-1,)"
        R"("send":0,"wait":100,"receive":19},"_initiator":"https://host0.example.test/"})";
  }
  return har + "]}}";
}

double MedianMs(const std::function<void()>& work) {
  std::vector<double> times;
  for (int round = 0; round < kRounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    work();
    times.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::nth_element(times.begin(), times.begin() + kRounds / 2, times.end());
  return times[kRounds / 2];
}

double PeakMb() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

// Runs `measure` in a child and gives back the number that it returns; -1 when it failed.
double InChild(const std::function<double()>& measure) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    double value = -1;
    try {
      value = measure();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "replay_bench: %s\n", error.what());
    }
    const bool sent = write(ends[1], &value, sizeof value) == sizeof value;
    _exit(sent ? 0 : 1);
  }
  close(ends[1]);
  double value = -1;
  if (child < 0 || read(ends[0], &value, sizeof value) != sizeof value) value = -1;
  close(ends[0]);
  if (child > 0) waitpid(child, nullptr, 0);
  return value;
}

void Measure(const std::string& name, const std::string& text, const host::PluginFunctions& plugin) {
  using replay::ReadHar;
  const double parseMs = InChild([&] {
    const simdjson::padded_string json(text);
    simdjson::dom::parser parser;
    return MedianMs([&] { static_cast<void>(parser.parse(json).error()); });
  });
  const double readMs = InChild([&] { return MedianMs([&] { ReadHar(text, name); }); });
  // The text that this process holds counts once: the reader would hold it itself.
  const double bareMb = InChild([] { return PeakMb(); });
  const double peakMb = InChild([&] {
    ReadHar(text, name);
    return PeakMb();
  });
  size_t requests = 0;
  const double replayMs = InChild([&] {
    const replay::Recording recording = ReadHar(text, name);
    const auto start = std::chrono::steady_clock::now();
    ReplayRecording(recording, {.visits = 2}, plugin);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  });
  for (const replay::Page& page : ReadHar(text, name).pages) requests += page.requests.size();
  const double sizeMb = static_cast<double>(text.size()) / 1e6;
  const double readerMb = (peakMb - bareMb) * 1.048576;  // a copy of the text included
  std::printf("%-38.38s %8.1f %9zu %10.1f %10.1f %7.1f %11.1f %7.1f %11.1f\n", name.c_str(), sizeMb, requests,
              parseMs, readMs, readMs / parseMs, readerMb, readerMb / sizeMb, replayMs);
}

}  // namespace

int main(int argc, char** argv) {
#ifndef NDEBUG
  std::fputs("replay_bench: not optimised, figures would mean nothing\n", stderr);
  return 2;
#endif
  try {
    const host::LoadedPlugin plugin(KIV_PLUGIN_PATH);
    std::printf("%-38s %8s %9s %10s %10s %7s %11s %7s %11s\n", "recording", "MB", "requests", "parse ms",
                "read ms", "ratio", "memory MB", "/ size", "replay ms");
    for (int i = 1; i < argc; ++i) {
      const std::string path = argv[i];
      std::ifstream file(path, std::ios::binary);
      const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      if (!file) throw std::runtime_error(path + ": cannot be read");
      Measure(path.substr(path.rfind('/') + 1), text, plugin.Functions());
    }
    Measure("synthetic, 1000 requests", SyntheticHar(1000), plugin.Functions());
    Measure("synthetic, 100 MB", SyntheticHar(82000), plugin.Functions());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "replay_bench: %s\n", error.what());
    return 2;
  }
  return 0;
}
