// Whole recordings through the real plugin, as a library and as the program: what must hold of every replay,
// whatever its times are.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "cutils/properties.h"
#include "host/plugin_functions.h"
#include "host/settings.h"
#include "replay/model/replay.h"
#include "replay/recording/har_reader.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace replay {
namespace {

const Recording& Example() {
  static const Recording recording = ReadHarFile(KIV_EXAMPLE_RECORDING);
  return recording;
}

const NetworkProfile kProfiles[] = {*FindNetworkProfile("3g"), *FindNetworkProfile("4g"),
                                    *FindNetworkProfile("lte"), *FindNetworkProfile("cable"),
                                    *FindNetworkProfile("native")};

RecordingResult Replay(const Recording& recording, const ReplayOptions& options,
                       const std::function<void(host::PluginFunctions&)>& change = {}) {
  const host::LoadedPlugin library(KIV_PLUGIN_PATH);
  host::PluginFunctions plugin = library.Functions();
  if (change) change(plugin);
  return ReplayRecording(recording, options, plugin);
}

void ExpectSound(const Visit& visit, const Page& page) {
  EXPECT_EQ(visit.unansweredCommands, 0u);
  EXPECT_EQ(visit.warnings, 0u);
  EXPECT_GT(visit.commands, 0u);
  for (const Way way : kWays) {
    if (!visit.repeat && !IsRunOnFirstVisits(way)) continue;
    ASSERT_EQ(Of(visit, way).requests.size(), page.requests.size());
    for (const RequestRow& row : Of(visit, way).requests) {
      const int64_t times[] = {0, row.wantedUs, row.connectUs, row.sentUs, row.firstByteUs, row.endUs};
      EXPECT_TRUE(std::is_sorted(std::begin(times), std::end(times))) << page.requests[row.request].url;
      EXPECT_TRUE(!row.blocksLoad || row.endUs <= Of(visit, way).times.pageLoadUs);
    }
  }
  // Every sub-resource was served or has a reason, and was counted once.
  EXPECT_EQ(visit.served + visit.joined + visit.fetched + visit.fromDiskCache,
            page.requests.size() - page.document - 1);
  std::map<std::string, PreloadFate> preloaded;
  for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
    const std::string& url = page.requests[row.request].url;
    if (row.request <= page.document) continue;
    EXPECT_EQ(row.why == host::NotServed::None, row.source == Source::Served) << url;
    if (row.source == Source::Served) preloaded.try_emplace(url, PreloadFate::Served);
    if (row.source == Source::Joined) preloaded.try_emplace(url, PreloadFate::Joined);
  }
  // A preload reached a request or was wasted.
  uint64_t bytes = 0, wasted = 0;
  for (const PreloadRow& preload : Of(visit, Way::Plugin).preloads) {
    bytes += static_cast<uint64_t>(preload.bytes);
    const auto found = preloaded.find(preload.url);
    if (found == preloaded.end()) {
      wasted += static_cast<uint64_t>(preload.bytes);
      EXPECT_TRUE(preload.fate != PreloadFate::Served && preload.fate != PreloadFate::Joined) << preload.url;
    } else {
      EXPECT_EQ(preload.fate, found->second) << preload.url;
      preloaded.erase(found);
    }
  }
  EXPECT_TRUE(preloaded.empty()) << preloaded.begin()->first << " came from no preload";
  EXPECT_EQ(visit.preloadedBytes, bytes);
  EXPECT_EQ(visit.unusedBytes, wasted);
}

TEST(Replay, TheExampleGainsInEveryProfileAndLosesOnNoVisit) {
  for (const double revisitAfterMs : {3600e3, 40.0 * 86400e3}) {  // then only the longest-lived is fresh
    for (const NetworkProfile& profile : kProfiles) {
      const auto result = Replay(Example(), {.profile = profile, .revisitAfterMs = revisitAfterMs});
      ASSERT_EQ(result.visits.size(), Example().pages.size());
      uint64_t used = 0, wasted = 0;
      int64_t gainUs = 0;
      for (const Visit& visit : result.visits) {
        SCOPED_TRACE(std::string(profile.name) + " " + visit.pageUrl + " " + std::to_string(visit.number));
        ExpectSound(visit, Example().pages[visit.page]);
        const int64_t off = Of(visit, Way::Off).times.pageLoadUs,
                      plugin = Of(visit, Way::Plugin).times.pageLoadUs;
        if (!visit.repeat) {
          EXPECT_EQ(plugin, off) << "nothing is known yet";
          continue;
        }
        const int64_t reachable = Of(visit, Way::Reachable).times.pageLoadUs;
        EXPECT_LE(Of(visit, Way::Oracle).times.pageLoadUs,
                  std::min(reachable, Of(visit, Way::Hints).times.pageLoadUs));
        EXPECT_LE(reachable, plugin);
        EXPECT_LE(plugin, off);
        EXPECT_LE(Of(visit, Way::Preconnect).times.pageLoadUs, off);
        gainUs += off - plugin;
        used += visit.served + visit.joined;
        wasted += visit.unusedBytes;
      }
      EXPECT_GT(used, 30u);
      EXPECT_TRUE(gainUs > 0 || !profile.rttMs) << "as recorded there is no distance";
      EXPECT_GT(wasted, 0u) << "it has addresses that are new on every load";
      EXPECT_EQ(result.log.size(), 0u);
    }
  }
}

// The check of what is served is awake.
TEST(Replay, ABodyThatIsNotWhatWasFetchedEndsTheReplay) {
  static decltype(host::PluginFunctions::IsPreloaded) genuine;
  static std::function<void(std::string & headers, std::string & body)> tamper;
  const std::function<void(std::string&, std::string&)> rows[] = {
      [](std::string&, std::string& body) { body.back() = static_cast<char>(body.back() ^ 1); },
      [](std::string&, std::string& body) { body.pop_back(); },
      [](std::string& headers, std::string&) { headers[9] = '3'; },
  };
  const auto change = [](host::PluginFunctions& plugin) {
    genuine = plugin.IsPreloaded;
    plugin.IsPreloaded = [](const char* url, std::string* headers, const char** body, int32_t* length) {
      static std::string changed;
      if (genuine(url, headers, body, length) == 0) return 0;
      changed.assign(*body, static_cast<size_t>(*length));
      tamper(*headers, changed);
      *body = changed.data();
      *length = static_cast<int32_t>(changed.size());
      return 1;
    };
  };
  for (const auto& row : rows) {
    tamper = row;
    const std::string error = tests::ErrorOf([&] { Replay(Example(), {}, change); });
    EXPECT_NE(error.find("http://"), std::string::npos) << "noticed: " << error;
  }
}

TEST(Replay, SwitchedOffItIsAPlainBrowserAndSaysWhy) {
  for (const char* off : {"net.cv.kiv.on", "net.cv.kiv.cacheen", "net.cv.kiv.preloaderen"}) {
    const RecordingResult result = Replay(Example(), {.properties = {{off, "0"}}});
    property_set(off, nullptr);
    size_t switchedOff = 0;
    for (const Visit& visit : result.visits) {
      EXPECT_EQ(Of(visit, Way::Plugin).times.pageLoadUs, Of(visit, Way::Off).times.pageLoadUs) << off;
      EXPECT_EQ(visit.served + visit.joined + visit.preloadedBytes, 0u) << off;
      for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
        const std::set reasons{host::NotServed::None, host::NotServed::NotKnownYet, host::NotServed::NotGet,
                               host::NotServed::FreshInDiskCache, host::NotServed::SwitchedOff};
        if (row.why == host::NotServed::SwitchedOff) ++switchedOff;
        EXPECT_TRUE(!visit.repeat || reasons.contains(row.why))
            << off << ": " << host::WordsFor(row.why).text;
      }
    }
    EXPECT_GT(switchedOff, 50u);
  }
}

TEST(Replay, WithoutJoiningARunningPreloadIsFetchedAgain) {
  size_t again = 0;
  for (const Visit& visit : Replay(Example(), {.profile = kProfiles[0], .join = false}).visits) {
    EXPECT_EQ(visit.joined, 0u);
    ExpectSound(visit, Example().pages[visit.page]);
    for (const RequestRow& row : Of(visit, Way::Plugin).requests) {
      if (row.why == host::NotServed::StillRunning) ++again;
      EXPECT_TRUE(row.why != host::NotServed::StillRunning || row.source == Source::Network);
    }
  }
  EXPECT_GT(again, 0u);
}

// More pages than the page database keeps: it has forgotten the first when that is visited again.
TEST(Replay, AForgottenPageIsNotKnown) {
  Request document{.url = "http://a.test/", .method = "GET", .endMs = 100, .status = 200};
  document.responseHeaders = std::string("HTTP/1.1 200 OK\0\0", 17);
  Recording recording;
  for (size_t page = 0; page <= host::HostSettings().maxPages; ++page) {
    document.url = "http://a.test/" + std::to_string(page);
    recording.pages.push_back({.requests = {document}});
  }
  const auto visits = Replay(recording, {.visits = 2}).visits;
  ASSERT_EQ(visits.size(), 2 * recording.pages.size());
  const Visit& again = visits[recording.pages.size()];
  EXPECT_TRUE(again.repeat);
  EXPECT_EQ(Of(again, Way::Hints).times.pageLoadUs, Of(again, Way::Off).times.pageLoadUs);
  EXPECT_GT(Of(again, Way::Reachable).times.pageLoadUs, 0);
  EXPECT_LE(Of(again, Way::Reachable).times.pageLoadUs, Of(again, Way::Off).times.pageLoadUs);
}

TEST(Replay, FreshnessDecidesWhatTheDiskCacheAnswers) {
  Request page{.url = "http://a.test/", .method = "GET", .endMs = 100, .status = 200};
  page.responseHeaders = std::string("HTTP/1.1 200 OK\0\0", 17);
  page.kind = host::ResourceKind::Document;
  Request picture = page;
  picture.url += "picture.png";
  picture.kind = host::ResourceKind::Image;
  picture.startMs = 100;
  picture.bodyBytes = 50'000;
  picture.responseHeaders = std::string("HTTP/1.1 200 OK\0Content-Length: 50000\0\0", 39);
  picture.freshForMs = 3600e3;
  for (const bool fresh : {true, false}) {
    // Fresh counts from its arrival, some milliseconds before the end of the visit.
    const ReplayOptions options = {.visits = 2, .revisitAfterMs = fresh ? 3599e3 : 3600e3};
    const auto visits = Replay({.pages = {{.requests = {page, picture}}}}, options).visits;
    ASSERT_EQ(visits.size(), 2u);
    EXPECT_EQ(Of(visits[1], Way::Off).requests[1].source, fresh ? Source::DiskCache : Source::Network);
    EXPECT_EQ(visits[1].fromDiskCache, fresh ? 1u : 0u);
    EXPECT_EQ(visits[1].served + visits[1].joined, fresh ? 0u : 1u);
    EXPECT_EQ(Of(visits[1], Way::Plugin).preloads.size(), fresh ? 0u : 1u);
  }
}

TEST(Replay, LogLinesAreInThreadtimeForm) {
  const auto lines = Replay(Example(), {.revisitAfterMs = 59 * 86400e3, .logLevel = 4}).log;
  const std::regex form(
      R"((0[1-4])-(0[1-9]|[12]\d|3[01]) [0-2]\d:[0-5]\d:[0-5]\d\.\d{3}     1     1 [DI] netstack: KIV_PROC - .+)");
  ASSERT_GT(lines.size(), 1000u);
  std::string before;
  for (const LogLine& line : lines) {
    ASSERT_TRUE(std::regex_match(line.stamp + line.text, form)) << line.stamp + line.text;
    ASSERT_LE(std::exchange(before, line.stamp.substr(0, 18)), line.stamp.substr(0, 18));
  }
  EXPECT_EQ(lines.front().stamp.substr(0, 8), "01-01 00");
  EXPECT_EQ(before.substr(0, 5), "04-29") << "118 days later";
}

// --- The program

class ProgramTest : public testing::Test {
 protected:
  // Runs it in the folder, with the words as the shell reads them; its exit status.
  int Run(const std::string& words) {
    const std::string line = "cd " + folder.Path() + " && " KIV_REPLAY_PATH " " + words + " >out 2>errors";
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string Text(const std::string& name) const { return tests::TextOf(folder.File(name)); }

  const tests::TemporaryFolder folder;
};

TEST_F(ProgramTest, BadInputIsOneLineAndStatus2AndTheRestIsDone) {
  folder.Write("no.har", "{\"log\": 5}");
  folder.Write("empty.har", "{\"log\": {\"entries\": []}}");
  folder.Write(
      "one.har",
      R"({"log": {"entries": [{"request": {"url": "http://a.test/"}, "response": {"status": 200}}]}})");
  const std::string good = KIV_EXAMPLE_RECORDING;
  const struct {
    std::string words;
    std::vector<std::string> parts;  // of the message
    std::string linesOf;             // whose lines the JSON has; empty: it is not written
  } rows[] = {
      {"missing.har " + good, {"missing.har"}, "missing.har recording.har "},
      {good + " no.har", {"no.har", "log"}, "recording.har no.har "},
      {good + " empty.har", {"empty.har", "nothing to replay"}, "recording.har empty.har "},
      {"empty.har", {"empty.har"}, "empty.har "},
      {"--visits 1000 --revisit-after 3650d one.har", {"one.har", "--revisit-after"}, "one.har "},
      {"--plugin missing.so " + good, {"missing.so"}, ""},
      {"--plugin " KIV_CORVANE_PATH " " + good, {"libcorvane.so", "OnInit"}, ""},
      {"--prop net.cv.kiv.nothing=1 " + good, {"net.cv.kiv.nothing"}, ""},
      {"--html no.har " + good, {"--html", "no.har"}, ""},
      {"--html json " + good, {"--html", "'json'", "--json"}, ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Run("--json json " + row.words), 2) << row.words;
    const std::string errors = Text("errors");
    for (const std::string& part : row.parts) EXPECT_NE(errors.find(part), std::string::npos) << errors;
    EXPECT_EQ(errors.find('\n'), errors.size() - 1) << errors;
    std::istringstream lines(Text("json"));
    std::string names;
    for (std::string line; std::getline(lines, line);) {
      const auto object = nlohmann::json::parse(line);
      if (object.contains("summary")) continue;
      names += object.at("recording").get<std::string>() + " ";
      EXPECT_EQ(object.contains("error"), !object.contains("visits")) << line;
    }
    EXPECT_EQ(names, row.linesOf) << row.words;
    std::filesystem::remove(folder.File("json"));
  }
  EXPECT_EQ(Text("no.har"), "{\"log\": 5}");
}

TEST_F(ProgramTest, AnInterruptionKeepsWhatIsFinishedAndNamesTheRest) {
  std::filesystem::current_path(folder.Path());
  mkfifo("pipe", 0600);  // nobody writes to it, so that its replay never ends
  for (const int number : {SIGINT, SIGTERM}) {
    std::filesystem::remove("json");
    const pid_t program = fork();
    if (program == 0) {
      signal(number, SIG_DFL);
      alarm(60);
      if (freopen("out", "w", stdout) == nullptr || freopen("errors", "w", stderr) == nullptr) _exit(125);
      execl(KIV_REPLAY_PATH, "kiv_replay", "--jobs", "1", "--json", "json", KIV_EXAMPLE_RECORDING, "pipe",
            "last.har", nullptr);
      _exit(126);
    }
    for (int tries = 0; tries < 1000 && Text("json").empty(); ++tries) usleep(20'000);
    kill(program, number);
    int status = 0;
    waitpid(program, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status << Text("errors");
    EXPECT_NE(Text("errors").find("2 recordings left out: pipe, last.har"), std::string::npos)
        << Text("errors");
    EXPECT_NE(Text("out").find("recording.har"), std::string::npos) << "the table of what is finished";
    const std::string json = Text("json");
    EXPECT_EQ(std::count(json.begin(), json.end(), '\n'), 4) << "three and the summary: " << json;
    EXPECT_NE(json.find("{\"recording\":\"last.har\",\"error\":"), std::string::npos) << json;
  }
  std::filesystem::current_path("/");
}

TEST_F(ProgramTest, SaysWhenVisitsIsIgnored) {
  EXPECT_EQ(Run("--visits 5 " KIV_EXAMPLE_RECORDING), 0);
  EXPECT_NE(Text("errors").find("--visits is ignored"), std::string::npos) << "three loads of each page";
  EXPECT_EQ(Run(KIV_EXAMPLE_RECORDING), 0);
  EXPECT_EQ(Text("errors"), "");
}

TEST_F(ProgramTest, WritesTheSameBytesHoweverManyJobs) {
  const std::string words =
      " --advice --json json --html html --har-out har --log 4 - recording.har <recording.har";
  std::filesystem::copy_file(KIV_EXAMPLE_RECORDING, folder.File("recording.har"));
  std::string outputs[2];
  for (const int jobs : {1, 2}) {
    EXPECT_EQ(Run("--jobs " + std::to_string(jobs) + words), 0) << Text("errors");
    EXPECT_EQ(Text("errors"), "");
    for (const char* name : {"out", "json", "html", "har"}) outputs[jobs - 1] += Text(name);
  }
  EXPECT_TRUE(outputs[0] == outputs[1]);
  // Standard input is a recording like any other.
  std::istringstream lines(Text("json"));
  std::string first, second;
  ASSERT_TRUE(std::getline(lines, first) && std::getline(lines, second));
  EXPECT_EQ(first.find("{\"recording\":\"standard input\","), 0u) << first;
  EXPECT_EQ(first.substr(first.find(',')), second.substr(second.find(',')));
}

}  // namespace
}  // namespace replay
