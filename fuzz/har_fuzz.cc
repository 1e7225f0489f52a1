// Any bytes as a file that may be compressed: read into a recording that keeps its promises, or refused with
// one line that names it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "fuzz/check.h"
#include "net/http/http_response_headers.h"
#include "replay/recording/har_reader.h"
#include "replay/recording/input_text.h"
#include "replay/recording/recording_check.h"

namespace {

constexpr size_t kChunk = 100;  // what a read brings, so that borders fall everywhere
constexpr size_t kMostText = 1 << 20;

void CheckTimes(const replay::Request& request) {
  for (const double ms : {request.startMs, request.dnsMs, request.connectMs, request.sslMs, request.waitMs,
                          request.receiveMs, request.endMs}) {
    FUZZ_CHECK(std::isfinite(ms) && ms >= 0);
  }
  FUZZ_CHECK(request.sslMs <= request.connectMs);
  FUZZ_CHECK(request.endMs >= request.startMs);
  FUZZ_CHECK(!request.freshForMs || *request.freshForMs >= 0);
}

void CheckRequest(const replay::Request& request) {
  CheckTimes(request);
  FUZZ_CHECK(!request.url.empty());
  FUZZ_CHECK(request.url.find('\0') == std::string::npos);
  FUZZ_CHECK(request.bodyBytes >= 0);
  FUZZ_CHECK(request.responseHeaders.ends_with(std::string(2, '\0')));
  const net::HttpResponseHeaders headers(request.responseHeaders);
  FUZZ_CHECK(headers.GetContentLength() == request.declaredLength);
  FUZZ_CHECK(headers.response_code() == request.status);
}

void CheckRecording(const replay::Recording& recording) {
  FUZZ_CHECK(recording.name == "fuzz.har");
  for (const replay::Page& page : recording.pages) {
    FUZZ_CHECK(page.document < page.requests.size());
    FUZZ_CHECK(std::is_sorted(page.requests.begin(), page.requests.end(),
                              [](const auto& a, const auto& b) { return a.startMs < b.startMs; }));
    for (const replay::Request& request : page.requests) CheckRequest(request);
  }
  FUZZ_CHECK(replay::WhyNothingToReplay(recording).empty() == !recording.pages.empty());
  FUZZ_CHECK(replay::WarningsOf(recording).size() <= recording.pages.size() + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    size_t at = 0;
    const auto source = [&](char* buffer, size_t room) {
      const size_t got = std::min({room, size - at, kChunk});
      std::copy_n(data + at, got, buffer);
      at += got;
      return got;
    };
    std::string text = replay::ReadText(source, "fuzz.har", 0, kMostText);
    FUZZ_CHECK(text.size() <= kMostText);
    CheckRecording(replay::ReadHar(std::move(text), "fuzz.har"));
  } catch (const std::runtime_error& error) {
    const std::string text = error.what();
    FUZZ_CHECK(text.starts_with("fuzz.har"));
    FUZZ_CHECK(text.find('\n') == std::string::npos);
  }
  return 0;
}
