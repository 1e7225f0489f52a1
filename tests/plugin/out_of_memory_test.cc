// The whole road with memory running out at every allocation that the plugin makes on it: at one only, or at
// one and all that follow. Nothing may crash, leak, be half inserted or be served wrong, and once there is
// memory again everything is as it was.
#include <cstdio>
#include <sstream>

#include "tests/support/watched_host.h"

namespace tests {
namespace {

// Long enough that each copy of them is an allocation.
const std::string kMainPage = "http://page.test/the-front-page-of-the-day.html";
const std::string kScript = "http://static.test/a/script/of/some/length.js";
const std::string kStyle = "http://static.test/a/style/sheet/of/some/length.css";
const std::string kImage = "http://images.test:8080/a/picture/of/some/length.png";
const std::string kFrame = "http://images.test:8080/a/frame/of/some/length.html";
const std::string kHeaders = "Accept: text/html\r\nX-Requested-With: com.example.browser.with.a.name\r\n\r\n";

struct Step {
  const char* name;
  int32_t result;
  int32_t refused;       // what the same call answers when it is out of memory
  std::string served{};  // headers and body, when that is what was asked for

  bool operator==(const Step&) const = default;
};

void PrintTo(const Step& step, std::ostream* out) {
  *out << step.name << " = " << step.result << " " << step.served;
}

struct Walked {
  std::vector<Step> steps;
  std::string story;  // calls and log lines
};

// The road, from the first page to the last sweep. The same calls in the same order whatever they answer, but
// for a chunk that was refused: it is offered once more, and a hole fails the fetch, as the contract asks.
class Road {
 public:
  explicit Road(WatchedHost& host) : host_(host) {}

  Walked Walk() {
    Learn();
    OrderAndLaunch();
    Fetch(kScript, {"Content-Type: text/javascript"}, {"half of it, ", "and the rest"});
    Serve(kScript);
    Fetch(kStyle, {"Content-Type: text/css"}, {"a{}", std::string(200, 'b')});
    Serve(kStyle);
    Fetch(kFrame, {"Content-Type: text/html"}, {"<p>"});
    Serve(kFrame);
    host_.hasLoop = false;
    Send<OrderPreload>("delayed", {7, kImage, host_.Hash(kMainPage.c_str()), 0});
    Send<StartDelayedFetches>("too early");
    host_.hasLoop = true;
    Send<StartDelayedFetches>("start of the delayed");
    OutliveRemovals();
    Sweep();
    return {std::move(steps_), std::move(story_)};
  }

 private:
  void Did(const char* name, int32_t result, int32_t refused = 0) {
    steps_.push_back({name, result, refused});
  }
  template <typename Command>
  void Send(const char* name, const Params& params = {}) {
    Did(name, host_.Send<Command>(params));
  }

  void Learn() {
    Send<PageRequested>("page requested", {kMainPage, "GET", kHeaders});
    Send<PageRequested>("page requested again", {kMainPage, "GET", kHeaders});  // posts the bypass command
    Send<RequestSeen>("request seen", {kMainPage, kHeaders, 0, &host_.contexts[0]});
    Send<PageRequested>("another page", {kMainPage + "?another", "GET", kHeaders});
    Send<RequestSeen>("seen without context", {kMainPage + "?another", kHeaders});
    for (int id = 1; id <= 5; ++id) Send<TransactionStarted>("transaction starts", {kScript, 0, id});
    Send<ResourceSeen>("sub-resource seen", {kMainPage, kImage + "?only-known"});
    Send<CacheStatus>("cache status", {host_.Hash((kImage + "?only-known").c_str()), 1});
  }

  void OrderAndLaunch() {
    Send<ResourceSeen>("script seen", {kMainPage, kScript, 0, 0, 1});
    Send<OrderPreload>("style ordered", {7, kStyle, host_.Hash(kMainPage.c_str()), 0});
    Send<OrderPreload>("without page", {7, kStyle + "?b", 0, 0, kHeaders});
    Send<WithdrawPreloads>("withdrawn", {host_.Hash(kStyle.c_str())});
    Send<OrderPreload>("frame ordered", {7, kFrame, host_.Hash(kMainPage.c_str()), 0x800000});
    for (int id = 1; id <= 5; ++id) Send<TransactionDone>("transaction ends", {kScript, id});
    Send<OrderPreload>("style seen", {7, kStyle, host_.Hash(kMainPage.c_str()), 0});
    Send<CheckPreloads>("pass");
  }

  void Fetch(const std::string& url, std::vector<std::string> headers,
             const std::vector<std::string>& chunks) {
    TakeRequest(url);
    headers.insert(headers.begin(), "HTTP/1.1 200 OK");
    headers.push_back("Content-Length: 24");
    const int32_t started = host_.StartComplete(url, RawHeaders(headers));
    Did("start complete", started);
    bool hole = false;
    for (const std::string& chunk : chunks) hole = !Read(url, chunk) || hole;
    Did("done", host_.Done(url, hole ? -1 : 0));
    complete_[url] = started == 1 && !hole;  // also when there was no memory to give the host's slot back
  }

  bool TakeRequest(const std::string& url) {
    const bool taken = host_.RequestInfo(url) != nullptr;
    return Did("request info", taken ? 1 : 0), taken;
  }

  bool Read(const std::string& url, const std::string& chunk) {
    const bool stored = host_.Read(url, chunk) == 1 || host_.Read(url, chunk) == 1;
    return Did("read complete", stored ? 1 : 0), stored;
  }
  void Lend(const std::string& url) {
    const size_t refusedBefore = watchedMemory.refused;
    const Answer answer = host_.Ask(url);
    if (watchedMemory.refused == refusedBefore) {
      EXPECT_EQ(answer.result == 1, complete_[url] && url != kFrame) << url;
    }
    steps_.push_back(
        {"is preloaded", answer.result, 0, answer.result == 1 ? answer.headers + answer.body() : ""});
    if (answer.result == 1) loans_.push_back({url, answer, answer.body()});
  }

  void ReturnLoans() {
    for (const Loan& loan : std::exchange(loans_, {})) {
      EXPECT_EQ(loan.answer.body(), loan.body) << loan.url << ": a lent body changed";
      host_.plugin.ReleasePreloaded(loan.url.c_str());
    }
  }
  void Serve(const std::string& url) {
    for (int i = 0; i < 2; ++i) Lend(url);
    ReturnLoans();
    Did("asked again", host_.Ask(url).result);
    Did("frame released", host_.plugin.ReleasePreloaded(kFrame.c_str()));
  }

  // Lent bodies that grow, are flushed away, replaced, and reported as held by the disk cache.
  void OutliveRemovals() {
    Fetch(kImage, {}, {"picture"});
    Lend(kImage);
    Read(kImage, std::string(100, 'l'));  // late, and more than fits
    Lend(kImage);
    Did("flush", host_.plugin.OnFlushDb(0), 1);
    Send<RequestSeen>("request seen", {kMainPage, kHeaders, 0, &host_.contexts[0]});
    Send<PageRequested>("page requested", {kMainPage, "GET", kHeaders});
    Send<RequestSeen>("request seen", {kMainPage, kHeaders, 0, &host_.contexts[0]});
    Send<OrderPreload>("ordered again", {7, kImage, host_.Hash(kMainPage.c_str()), 0});
    Fetch(kImage, {}, {"another"});
    Lend(kImage);
    Did("in the disk cache", host_.plugin.IsInDC(kImage.c_str()));
    ReturnLoans();
  }

  void Sweep() {
    std::string name, version;
    Did("proc info", host_.plugin.OnGetProcInfo(name, version), 1);
    Did("fetch db", host_.plugin.OnFetchDb(), 1);
    Did("preloader enabled", host_.plugin.IsPreloaderEnabled(), 1);
    const std::string left = kScript + "?left";
    Send<OrderPreload>("left running", {7, left, host_.Hash(kMainPage.c_str()), 0});
    const bool running = TakeRequest(left);
    Send<TransactionStarted>("left waiting", {kScript, 0, 1});
    Did("flush", host_.plugin.OnFlushDb(0), 1);
    Did("clear", host_.plugin.OnClearDb(0), 1);
    story_ = host_.Take();
    EXPECT_EQ(story_.find("Stuck preload: " + left + " (2)") != std::string::npos, running);
  }

  struct Loan {
    std::string url;
    Answer answer;
    std::string body;
  };

  WatchedHost& host_;
  std::vector<Step> steps_;
  std::string story_;
  std::map<std::string, bool> complete_;  // by URL, whether its fetch left something to serve
  std::vector<Loan> loans_;
};

// How often each line was written that tells of something inserted or launched.
std::map<std::string, int> Inserted(const std::string& story) {
  std::map<std::string, int> counts;
  std::istringstream lines(story);
  for (std::string line; std::getline(lines, line);) {
    for (const char* prefix : {"I Do Preload - ", "I Remove from cached list: ", "Fetch "}) {
      if (line.starts_with(prefix)) ++counts[line];
    }
  }
  return counts;
}

// Each call answered as ever or as refused, and nothing was inserted or launched that was not before, or
// twice.
void ExpectLessAtWorst(const Walked& walked, const Walked& normal) {
  ASSERT_EQ(walked.steps.size(), normal.steps.size());
  for (size_t i = 0; i < walked.steps.size(); ++i) {
    if (walked.steps[i].result == normal.steps[i].refused) continue;
    EXPECT_EQ(walked.steps[i], normal.steps[i]) << "step " << i;
  }
  std::map<std::string, int> allowed = Inserted(normal.story);
  for (const auto& [line, count] : Inserted(walked.story)) EXPECT_LE(count, allowed[line]) << line;
}

// Walks the road until no allocation of it fails any more, and after each walk once more undisturbed.
void TryEveryPoint(size_t failCount, const char* mode) {
  WatchedHost host;
  watchedMemory.failFrom = 0;
  host.Start({{"bypassen", "1"}, {"prlimit", "9"}});
  Road(host).Walk();  // the first one also makes what stays for the life of the library
  const size_t blocksBefore = watchedMemory.blocks;
  const Walked normal = Road(host).Walk();
  ASSERT_EQ(watchedMemory.blocks, blocksBefore);

  watchedMemory.failCount = failCount;
  size_t point = 1;
  for (;; ++point) {
    SCOPED_TRACE(std::string(mode) + " allocation " + std::to_string(point));
    watchedMemory.allocations = watchedMemory.refused = 0;
    watchedMemory.failFrom = point;
    const Walked disturbed = Road(host).Walk();
    watchedMemory.failFrom = 0;
    if (watchedMemory.refused == 0) break;
    ExpectLessAtWorst(disturbed, normal);
    EXPECT_EQ(watchedMemory.blocks, blocksBefore) << "leaked";
    const Walked after = Road(host).Walk();
    EXPECT_EQ(after.steps, normal.steps) << "the road after it";
    EXPECT_EQ(after.story, normal.story) << "the road after it";
    if (testing::Test::HasFailure()) return;
  }
  std::printf("points tried, %s: %zu\n", mode, point - 1);
  EXPECT_EQ(point, watchedMemory.allocations + 1);
}

TEST(OutOfMemoryTest, EveryAllocationOfTheRoadFailsOnceAndWithAllThatFollow) {
  TryEveryPoint(1, "failing alone");
  TryEveryPoint(SIZE_MAX, "failing from there on");
}
TEST(OutOfMemoryTest, WithoutMemoryForItsTableThePluginAsksForNoCommands) {
  size_t point = 1;
  for (;; ++point) {
    WatchedHost host;
    watchedMemory = {.failFrom = point};
    uint32_t mask = 0xFFFFFFFF;
    EXPECT_EQ(host.plugin.OnInit(0), 1);
    EXPECT_EQ(host.plugin.OnGetCmdMask(&mask), 1);
    watchedMemory.failFrom = 0;
    if (watchedMemory.refused == 0) break;
    EXPECT_EQ(mask, 0u);
    EXPECT_EQ(host.Send<CheckPreloads>(), 0);
    EXPECT_EQ(host.plugin.OnGetCmdMask(&mask), 1);
    EXPECT_EQ(mask, 0x30Cu) << "there is memory again";
    EXPECT_EQ(host.Send<CheckPreloads>(), 1);
  }
  std::printf("points tried, start: %zu\n", point - 1);
  EXPECT_GT(point, 1u);
}

}  // namespace
}  // namespace tests
