// What the journal writes of loads and pages, and that the replay can read it.
#include "live/journal/journal.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/virtual_clock.h"
#include "live/journal/page_lines.h"
#include "replay/recording/har_reader.h"
#include "tests/support/header_lines.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace live {
namespace {

constexpr int64_t kStartUs = 1'700'000'000'123'000;  // 2023-11-14T22:13:20.123Z

// The loop's clock is not at 0, which stands for no time.
constexpr int64_t kBeganUs = 5'000'000;
constexpr int64_t kWallUs = kStartUs - kBeganUs;

base::Time At(int64_t ms) {
  return base::Time::FromInternalValue(kBeganUs + ms * 1000);
}

using tests::TextOf;

LoadRecord Load(host::TabId page, const std::string& url, int64_t askedMs) {
  LoadRecord load;
  load.page = page;
  load.pageUrl = "https://shop.test/";
  load.role = url == load.pageUrl ? Role::Page : Role::Resource;
  load.method = "GET";
  load.url = url;
  load.requestHeaders = "Referer: https://shop.test/\r\nAccept: */*\r\n\r\n";
  load.responseBlock = tests::RawBlock(200, "Content-Type: text/html\nContent-Length: 1000\n");
  load.bodyBytes = 1000;
  load.asked = load.transfer.started = At(askedMs);
  load.transfer.connect = At(askedMs + 5);
  load.transfer.sent = At(askedMs + 25);
  load.firstByte = load.transfer.firstByte = At(askedMs + 65);
  load.ended = load.transfer.ended = At(askedMs + 75);
  return load;
}

TEST(PageLines, SayWhatBecameOfAPage) {
  const PageRecord page = {.url = "https://shop.test/\x1b[31m?q=\"",
                           .begun = At(1000),
                           .lastEnd = At(1830),
                           .served = 40,
                           .joined = 5,
                           .fetched = 16,
                           .preloads = 47,
                           .unusedPreloads = 2,
                           .bytes = 1'234'567,
                           .preloadedBytes = 999'999,
                           .unusedBytes = 999};
  EXPECT_EQ(
      PageLine(page),
      "https://shop.test/%1B[31m?q=\"  61 resources: 40 served, 5 joined, 16 fetched; 2 preloads unused; "
      "1.2 MB in 0.83 s");
  EXPECT_EQ(PageJson(page, kWallUs),
            R"({"url":"https://shop.test/\u001b[31m?q=\"","begun":"2023-11-14T22:13:21.123Z",)"
            R"("last_response_ms":830.0,"resources":61,"served":40,"joined":5,"fetched":16,"preloads":47,)"
            R"("unused_preloads":2,"bytes":1234567,"preloaded_bytes":999999,"unused_bytes":999})"
            "\n");
  EXPECT_EQ(PageLine({.url = std::string(200, 'x'), .begun = At(5), .bytes = 20'700}),
            std::string(120, 'x') +
                "...  0 resources: 0 served, 0 joined, 0 fetched; 0 preloads unused; 20.7 kB in 0.00 s")
      << "a page that nothing came for";
}

class JournalTest : public testing::Test {
 protected:
  std::unique_ptr<Journal> Open(const HarLimits& limits = {}) {
    auto journal = Make();
    journal->Open({.jsonPath = jsonPath, .harPath = harPath, .har = limits});
    return journal;
  }
  std::unique_ptr<Journal> Make() {
    return std::make_unique<Journal>(
        clock, [this] { return kWallUs + clock.NowUs() + setBackUs; },
        [this](const std::string& line) { lines.push_back(line); },
        [this](const std::string& message) { told.push_back(message); });
  }
  nlohmann::json Har() { return nlohmann::json::parse(TextOf(harPath))["log"]; }

  const tests::TemporaryFolder folder;
  const std::string jsonPath = folder.File("pages.json"), harPath = folder.File("day.har");
  host::VirtualClock clock;
  int64_t setBackUs = 0;
  std::vector<std::string> lines, told;
};

TEST_F(JournalTest, WritesALinePerPageAtOnceAndBehindWhatIsThere) {
  folder.Write("pages.json", "{\"of\":\"yesterday\"}\n");
  auto journal = Open();
  journal->Observer().onPage({.url = "https://a.test/"});
  EXPECT_EQ(lines.size(), 1u);
  const std::string first = TextOf(jsonPath);
  EXPECT_EQ(first.find("{\"of\":\"yesterday\"}\n{\"url\":\"https://a.test/\""), 0u) << first;
  journal->Observer().onPage({.url = "https://b.test/"});
  EXPECT_EQ(TextOf(jsonPath), first + PageJson({.url = "https://b.test/"}, kWallUs));
}

TEST_F(JournalTest, TheReplayReadsItsHar) {
  {
    auto journal = Open();
    const EngineObserver observer = journal->Observer();
    LoadRecord image = Load(1, "https://cdn.test/logo", 60);
    image.kind = host::ResourceKind::Image;
    image.info = {.source = host::LoadSource::Served};
    image.transfer = {};
    observer.onLoad(image);  // it ends before the document does
    observer.onLoad(Load(1, "https://shop.test/", 0));
    LoadRecord failed = Load(1, "https://shop.test/gone", 70);
    failed.responseBlock.clear();
    failed.result = host::kConnectionFailed;
    observer.onLoad(failed);
    LoadRecord moved = Load(1, "https://shop.test/old?x=1&y", 80);
    moved.responseBlock = tests::RawBlock(302, "Location: /new\n");
    moved.method = "POST";
    observer.onLoad(moved);
    observer.onLoad(Load(2, "https://shop.test/", 10'000));
    observer.onLoad(Load(0, "https://lone.test/", 20'000));
  }
  struct stat found {};
  stat(harPath.c_str(), &found);
  EXPECT_EQ(found.st_mode & 0777, 0600u) << "it tells what somebody has read";

  const replay::Recording recording = replay::ReadHarFile(harPath);
  EXPECT_EQ(recording.creator.find("kiv_proxy"), 0u) << recording.creator;
  EXPECT_EQ(recording.skipped, (std::map<std::string, size_t>{{"status 0 or less", 1}}));
  ASSERT_EQ(recording.pages.size(), 2u);
  const replay::Page& page = recording.pages[0];
  ASSERT_EQ(page.requests.size(), 3u);
  EXPECT_EQ(page.title, "https://shop.test/");
  EXPECT_EQ(page.onLoadMs, -1) << "not known";
  const replay::Request& document = page.requests[0];
  EXPECT_EQ(document.url, "https://shop.test/");
  EXPECT_EQ(document.kind, host::ResourceKind::Document);
  EXPECT_EQ(document.connectMs, 20);
  EXPECT_EQ(document.waitMs, 40);
  EXPECT_EQ(document.receiveMs, 10);
  EXPECT_EQ(document.endMs, 75);
  EXPECT_EQ(document.declaredLength, 1000);
  const replay::Request& logo = page.requests[1];
  EXPECT_EQ(logo.kind, host::ResourceKind::Image) << "as the proxy placed it, whatever its type says";
  EXPECT_EQ(logo.startMs, 60);
  EXPECT_EQ(logo.endMs, 135);
  EXPECT_EQ(logo.waitMs, 0) << "no server was waited for";
  EXPECT_EQ(logo.referer, "https://shop.test/");
  EXPECT_EQ(page.requests[2].method, "POST");
  EXPECT_EQ(page.requests[2].status, 302);
  EXPECT_EQ(recording.pages[1].requests.size(), 2u) << "the lone load falls into its time";

  const std::string line = KIV_REPLAY_PATH " --json " + folder.File("figures") + " " + harPath + " >" +
                           folder.File("out") + " 2>&1";
  ASSERT_EQ(std::system(line.c_str()), 0) << TextOf(folder.File("out"));
  const std::string written = TextOf(folder.File("figures"));  // of the recording, and of all
  const nlohmann::json figures = nlohmann::json::parse(written.substr(0, written.find('\n')));
  EXPECT_EQ(figures["visits"], 2);
  EXPECT_EQ(figures["repeat_visits"], 1);
}

TEST_F(JournalTest, WritesNoSecretsIntoItsHar) {
  LoadRecord load = Load(1, "https://shop.test/", 0);
  load.requestHeaders =
      "Cookie: sid=hunter2; theme=hunter3; hunter4\r\nAuthorization: Basic hunter5\r\nX-Api-Key: hunter6\r\n"
      "Accept: text/\xff\r\n\r\n";
  load.responseBlock = tests::RawBlock(200,
                                       "Set-Cookie: sid=hunter7; Path=/; HttpOnly\nSet-Cookie: hunter8\n"
                                       "X-CSRF-Token: hunter9\nContent-Type: text/html\n");
  {
    auto journal = Open();
    journal->Observer().onLoad(load);
  }
  EXPECT_EQ(TextOf(harPath).find("hunter"), std::string::npos) << TextOf(harPath);
  const nlohmann::json entry = Har()["entries"][0];
  const nlohmann::json& sent = entry["request"]["headers"];
  EXPECT_EQ(sent[0], (nlohmann::json{{"name", "Cookie"}, {"value", "sid=; theme=; ="}}));
  EXPECT_EQ(sent[1]["value"], "(removed)");
  EXPECT_EQ(sent[3]["value"], "text/\xEF\xBF\xBD") << "what is no UTF-8 is replaced";
  EXPECT_EQ(entry["response"]["headers"][0]["value"], "sid=; Path=/; HttpOnly");
}

TEST_F(JournalTest, TimesOfAHarAddUp) {
  LoadRecord cached = Load(1, "https://shop.test/cached", 100);
  cached.transfer.connect = cached.transfer.sent = cached.transfer.firstByte = cached.firstByte = At(101);
  LoadRecord reused = Load(1, "https://shop.test/reused", 200);
  reused.transfer.connect = reused.transfer.sent;
  LoadRecord refused = Load(1, "https://shop.test/refused", 300);
  refused.transfer = {};
  refused.firstByte = {};
  refused.responseBlock.clear();
  {
    auto journal = Open();
    for (const LoadRecord& load : {cached, reused, refused}) journal->Observer().onLoad(load);
  }
  const double expected[][4] = {{1, -1, 0, 74}, {25, -1, 40, 10}, {75, -1, 0, 0}};
  for (size_t row = 0; row < 3; ++row) {
    const nlohmann::json entry = Har()["entries"][row], timings = entry["timings"];
    const char* const names[] = {"blocked", "connect", "wait", "receive"};
    for (size_t name = 0; name < 4; ++name)
      EXPECT_EQ(timings[names[name]], expected[row][name]) << row << name;
    EXPECT_EQ(entry["time"], 75) << "what the browser has waited";
  }
  EXPECT_EQ(Har()["entries"][1]["startedDateTime"], "2023-11-14T22:13:20.323Z");
  EXPECT_EQ(Har()["pages"][0]["startedDateTime"], "2023-11-14T22:13:20.223Z") << "of the earliest entry";
}

TEST_F(JournalTest, ItsClockFollowsTheWallClockOnlyWhenThatJumps) {
  auto journal = Open();
  for (const int64_t setBack : {0, -1'500'000, -60'000'000}) {
    setBackUs = setBack;
    journal->Observer().onLoad(Load(1, "https://shop.test/", 0));
  }
  journal.reset();
  const nlohmann::json entries = Har()["entries"];
  EXPECT_EQ(entries[0]["startedDateTime"], "2023-11-14T22:13:20.123Z");
  EXPECT_EQ(entries[1]["startedDateTime"], "2023-11-14T22:13:20.123Z");
  EXPECT_EQ(entries[2]["startedDateTime"], "2023-11-14T22:12:20.123Z");
}

TEST_F(JournalTest, TheHarIsWholeWheneverTheProgramIsKilled) {
  EXPECT_NO_THROW({
    auto journal = Open();
    EXPECT_EQ(Har()["entries"].size(), 0u) << "from the start";
  });
  unlink(harPath.c_str());
  int reports[2];
  ASSERT_EQ(pipe(reports), 0);
  const pid_t child = fork();
  if (child == 0) {
    auto journal = Open({.buffered = 1});
    char byte = 'x';
    for (host::TabId page = 1;; ++page) {
      for (int i = 0; i < 5; ++i) journal->Observer().onLoad(Load(page, "https://shop.test/", 0));
      journal->Observer().onPage({.url = "https://shop.test/"});
      if (write(reports[1], &byte, 1) != 1 || page == 40) pause();
    }
  }
  close(reports[1]);
  char byte = 0;
  for (int i = 0; i < 40; ++i) ASSERT_EQ(read(reports[0], &byte, 1), 1);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(reports[0]);
  EXPECT_EQ(Har()["entries"].size(), 200u);
  EXPECT_EQ(Har()["pages"].size(), 40u);
  EXPECT_EQ(replay::ReadHarFile(harPath).pages.size(), 40u);
}

TEST_F(JournalTest, EntriesReachTheHarWithinASecondAndWithEachPage) {
  auto journal = Open();
  journal->Observer().onLoad(Load(1, "https://shop.test/", 0));
  EXPECT_EQ(Har()["entries"].size(), 0u);
  clock.RunFor(1'000'000);
  EXPECT_EQ(Har()["entries"].size(), 1u);
  journal->Observer().onLoad(Load(1, "https://shop.test/a", 0));
  journal->Observer().onPage({.url = "https://shop.test/"});
  EXPECT_EQ(Har()["entries"].size(), 2u);
  EXPECT_EQ(Har()["pages"].size(), 1u);
}

TEST_F(JournalTest, EndsTheHarWholeWhenALimitIsReached) {
  const struct {
    HarLimits limits;
    size_t entries;
    std::string why;
  } cases[] = {
      {{.bytes = 5000}, 5, "large"},
      {{.pages = 4}, 4, "4 pages"},
  };
  for (const auto& row : cases) {
    told.clear();
    {
      auto journal = Open(row.limits);
      for (host::TabId page = 1; page < 10; ++page) {
        journal->Observer().onLoad(Load(page, "https://shop.test/", 0));
        clock.RunFor(1'000'000);
      }
    }
    EXPECT_EQ(Har()["entries"].size(), row.entries) << row.why;
    EXPECT_EQ(Har()["pages"].size(), row.entries) << row.why;
    ASSERT_EQ(told.size(), 1u) << row.why;
    EXPECT_NE(told[0].find(row.why), std::string::npos) << told[0];
    unlink(harPath.c_str());
  }
}

TEST_F(JournalTest, GoesOnWithoutItsFilesOnAFullDisk) {
  signal(SIGXFSZ, SIG_IGN);
  auto journal = Open();
  const auto pass = [&] {
    journal->Observer().onLoad(Load(1, "https://shop.test/", 0));
    journal->Observer().onPage({.url = "https://shop.test/"});
  };
  pass();
  const std::string json = TextOf(jsonPath);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full = {.rlim_cur = json.size() + 10, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  pass();
  setrlimit(RLIMIT_FSIZE, &before);
  pass();
  EXPECT_EQ(lines.size(), 3u) << "for people there is a line all the same";
  EXPECT_EQ(TextOf(jsonPath), json) << "no half line";
  EXPECT_EQ(told.size(), 2u) << "once for each file";
}

TEST_F(JournalTest, RefusesFilesThatItWouldSpoil) {
  const std::string notes = folder.Write("notes.har", "mine");
  const struct {
    JournalSettings settings;
    std::string error;
  } cases[] = {
      {{.harPath = notes}, notes + ": exists already"},
      {{.harPath = "/dev/null"}, "/dev/null: is not a file"},
      {{.harPath = "/nowhere/at/all"}, "/nowhere/at/all: cannot be written: No such file"},
      {{.jsonPath = folder.Path()}, folder.Path() + ": cannot be written: Is a directory"},
  };
  for (const auto& row : cases) {
    const std::string error = tests::ErrorOf([&] { Make()->Open(row.settings); });
    EXPECT_EQ(error.find(row.error), 0u) << error;
  }
  EXPECT_EQ(TextOf(notes), "mine");
}

}  // namespace
}  // namespace live
