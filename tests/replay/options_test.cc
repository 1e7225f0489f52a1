// The command line, the processes that recordings are replayed in, and the files that reports are written to.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>

#include "replay/child_jobs.h"
#include "replay/options_parser.h"
#include "replay/output_check.h"
#include "replay/output_file.h"
#include "replay/recordings_to_read.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace replay {
namespace {

using tests::ErrorOf;
using tests::TemporaryFolder;
using tests::TextOf;
using tests::Words;

CommandLine ParsedLine(const std::string& line) {
  std::ostringstream out;
  return ParseCommandLine(Words(line), out).value();
}
CommandLine Parsed(const std::string& options) {
  return ParsedLine(options + " a.har");
}

TEST(CommandLine, Defaults) {
  const CommandLine line = Parsed("");
  EXPECT_EQ(line.settings[0].options.profile.name, "4g");
  EXPECT_EQ(line.settings[0].options.profile.rttMs, 170);
  EXPECT_EQ(line.settings[0].options.profile.downMbit, 9);
  EXPECT_EQ(line.settings[0].options.socketsPerGroup, 6);
  EXPECT_EQ(line.settings[0].options.revisitAfterMs, 3600e3);
  EXPECT_TRUE(line.settings[0].options.join && line.settings[0].options.preconnect);
  EXPECT_GE(line.jobs, 1U);
  EXPECT_EQ(line.recordings, std::vector<std::string>{"a.har"});
}

TEST(CommandLine, ProfilesAndDurations) {
  const struct {
    const char *options, *name;
    std::optional<double> rttMs, downMbit;
  } profiles[] = {{"--profile 3g", "3g", 300, 1.6},    {"--profile=lte", "lte", 70, 12},
                  {"--profile cable", "cable", 28, 5}, {"--profile native", "native", {}, {}},
                  {"--rtt 0", "custom", 0, 9},         {"--profile native --down 2.5", "custom", {}, 2.5}};
  for (const auto& row : profiles) {
    const NetworkProfile profile = Parsed(row.options).settings[0].options.profile;
    EXPECT_EQ(profile.name, row.name);
    EXPECT_EQ(profile.rttMs, row.rttMs) << row.name;
    EXPECT_EQ(profile.downMbit, row.downMbit) << row.name;
  }
  const std::map<std::string, double> durations = {{"500ms", 500},   {"90s", 90e3},    {"30m", 1800e3},
                                                   {"1.5h", 5400e3}, {"2d", 172800e3}, {"0s", 0}};
  for (const auto& [text, milliseconds] : durations) {
    EXPECT_EQ(Parsed("--revisit-after " + text).settings[0].options.revisitAfterMs, milliseconds) << text;
  }
}

TEST(CommandLine, AListOfBeaconsReplacesTheOwnOne) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("beacons", "mine.test\n");
  const CommandLine line = Parsed("--beacons " + path);
  EXPECT_TRUE(IsListed(line.settings[0].options.beacons, "https://a.mine.test/x"));
  EXPECT_FALSE(IsListed(line.settings[0].options.beacons, "https://www.google-analytics.com/collect"));
  EXPECT_EQ(line.settingsPaths, std::vector<std::string>{path}) << "no output may replace it";
  EXPECT_TRUE(Parsed("--visits 3").visitsGiven);
  EXPECT_FALSE(Parsed("").visitsGiven);
  EXPECT_THROW(Parsed("--beacons " + path + ".missing"), std::runtime_error);
}

TEST(CommandLine, PropertiesOfTheFileAndTheLine) {
  const TemporaryFolder folder;
  const std::string path = folder.Write(
      "props", "# limits\r\n\n  net.cv.kiv.prlimit=3\r\nnet.cv.kiv.idlesock=0\nnet.cv.kiv.on=1 \n");
  EXPECT_EQ(Parsed("--prop net.cv.kiv.prlimit=8 --props " + path + " --prop net.cv.kiv.cslimit=2147483647")
                .settings[0]
                .options.properties,
            (std::map<std::string, std::string>{{"net.cv.kiv.prlimit", "8"},
                                                {"net.cv.kiv.idlesock", "0"},
                                                {"net.cv.kiv.on", "1"},
                                                {"net.cv.kiv.cslimit", "2147483647"}}))
      << "the command line wins over the file, wherever it stands";
}

TEST(CommandLine, TheDefaultRecordingStandsInForNoneOnly) {
  EXPECT_EQ(ParsedLine("--default d.har --log 3").recordings, Words("d.har"));
  EXPECT_EQ(ParsedLine("--default d.har page.json").recordings, Words("page.json"));
}

TEST(CommandLine, ASweepHasASettingPerValue) {
  const CommandLine line = Parsed("--prop net.cv.kiv.prlimit=9 --sockets 3 --sweep prlimit=2..4");
  ASSERT_EQ(line.settings.size(), 3U);
  EXPECT_EQ(line.settings[2].text, "prlimit=4");
  EXPECT_EQ(line.settings[2].options.properties.at("net.cv.kiv.prlimit"), "4") << "the sweep wins";
  EXPECT_EQ(line.settings[2].options.socketsPerGroup, 3);
  EXPECT_EQ(Parsed("--sweep profile=lte,3g").settings[1].options.profile.rttMs, 300);
  EXPECT_EQ(Parsed("--sweep revisit-after=10m,30d").settings[1].options.revisitAfterMs, 30 * 86400e3);
}

TEST(CommandLine, ErrorsNameTheOptionAndThePlace) {
  const TemporaryFolder folder;
  const std::string unknown = folder.Write("unknown", "# one\nnet.cv.kiv.onn=1\n");
  const std::string noValue = folder.Write("novalue", "net.cv.kiv.on\n");
  const struct {
    std::string line;
    std::vector<std::string> parts;  // of the message
  } cases[] = {
      // clang-format off
      {"", {"RECORDING"}},
      {"--colour a.har", {"--colour"}},
      {"a.har --json", {"--json"}},
      {"--profile 5g a.har", {"--profile", "'5g'", "cable"}},
      {"--rtt 12x a.har", {"--rtt", "'12x'"}},
      {"--rtt nan a.har", {"--rtt", "'nan'"}},
      {"--down 0 a.har", {"--down", "'0'"}},
      {"--sockets 0 a.har", {"--sockets", "'0'", "1"}},
      {"--visits=-1 a.har", {"--visits", "'-1'"}},
      {"--jobs 99999999999 a.har", {"--jobs"}},
      {"--revisit-after 1 a.har", {"--revisit-after", "'1'", "90s"}},
      {"--revisit-after 1e9d a.har", {"--revisit-after"}},
      {"--revisit-after 9999d a.har", {"--revisit-after", "ten years"}},
      {"--join yes a.har", {"--join", "'yes'"}},
      {"--preconnect 1 a.har", {"--preconnect", "'1'"}},
      {"--certificates no a.har", {"--certificates", "'no'"}},
      {"--dns maybe a.har", {"--dns", "'maybe'"}},
      {"--parents all a.har", {"--parents", "'all'", "inferred"}},
      {"--slow-start ON a.har", {"--slow-start", "'ON'"}},
      {"--log loud a.har", {"--log", "'loud'"}},
      {"--prop net.cv.kiv.on a.har", {"--prop", "name=value"}},
      {"--prop net.cv.kiv.limit=1 a.har", {"--prop", "'net.cv.kiv.limit'", "net.cv.kiv.prlimit"}},
      {"--prop net.cv.kiv.on=true a.har", {"--prop", "net.cv.kiv.on", "from 0 to 1", "'true'"}},
      {"--props " + unknown + " a.har", {"--props", unknown + ":2", "'net.cv.kiv.onn'"}},
      {"--props " + noValue + " a.har", {"--props", noValue + ":1"}},
      {"--props /nowhere/at/all a.har", {"--props", "/nowhere/at/all"}},
      {"--props " + folder.Path() + " a.har", {"--props", folder.Path()}},
      {"--sweep prlimit a.har", {"--sweep", "'prlimit'", "prlimit=1..8"}},
      {"--sweep colour=1,2 a.har", {"--sweep", "'colour'", "profile", "prlimit"}},
      {"--sweep prlimit=1 a.har", {"--sweep", "two to 64"}},
      {"--sweep prlimit=1..65 a.har", {"--sweep", "two to 64"}},
      {"--sweep prlimit=3..3 a.har", {"--sweep", "'3..3'"}},
      {"--sweep prlimit=1,,2 a.har", {"--sweep", "comma"}},
      {"--sweep prlimit=1,1 a.har", {"--sweep", "'1'", "twice"}},
      {"--sweep prlimit=1,x a.har", {"--sweep: net.cv.kiv.prlimit", "'x'"}},
      {"--sweep profile=3g,9g a.har", {"--sweep", "--profile", "'9g'"}},
      {"--sweep rtt=1,2 --rtt 3 a.har", {"--sweep", "--rtt"}},
      {"--sweep rtt=1,2 --har-out x a.har", {"--har-out", "--sweep"}},
      {"--sweep rtt=1,2 --log 3 a.har", {"--log", "--sweep"}},
      {"--fail-if against_first.real.load_ms.p50<0 a.har", {"--fail-if", "--sweep"}},
      {"merge --sweep rtt=1,2 a.jsonl", {"--sweep", "merge"}},
      {"--html --json x a.har", {"--html", "'--json'"}},
      {"--html=--x a.har", {"--html", "'--x'"}},
      {"- a.har -", {"RECORDING", "standard input"}},
      // clang-format on
  };
  for (const auto& row : cases) {
    const std::string error = ErrorOf([&] { ParsedLine(row.line); });
    for (const std::string& part : row.parts) EXPECT_NE(error.find(part), std::string::npos) << error << part;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(CommandLine, RecordingsComeFromFoldersAndLists) {
  const TemporaryFolder folder;
  const std::filesystem::path top = folder.File("found");
  std::filesystem::create_directories(top / "inner");
  std::filesystem::create_directories(top / "empty.har");
  for (const char* name : {"b.har", "inner/A.HAR.GZ", "inner/c.har.zst", "inner/d.har.txt", "page.json"}) {
    std::ofstream(top / name) << "{}";
  }
  std::filesystem::create_directory_symlink(top, top / "inner" / "loop");
  const std::string list = folder.Write("list.txt", top.string() + "\n\nmissing.har\r\nx.har");
  const std::vector<std::string> inTop = {top / "b.har", top / "inner/A.HAR.GZ", top / "inner/c.har.zst"};
  const struct {
    std::vector<std::string> arguments, recordings;
    const char* error = "none";
  } cases[] = {
      {{"page.json", "-"}, {"page.json", "-"}},
      {{top}, inTop},
      {{"z.har", "@" + list}, {"z.har", inTop[0], inTop[1], inTop[2], "missing.har", "x.har"}},
      {{top / "empty.har"}, {}, "without recordings"},
      {{"@" + folder.Write("empty.txt", "\n")}, {}, "names no recording"},
      {{"@nowhere.txt"}, {}, "'@nowhere.txt' cannot be read"},
      {{"-", "a.har", "-"}, {}, "standard input"},
  };
  for (const auto& row : cases) {
    std::vector<std::string> found;
    const std::string error = ErrorOf([&] { found = FindRecordings(row.arguments).recordings; });
    EXPECT_EQ(found, row.recordings);
    EXPECT_NE(error.find(row.error), std::string::npos) << error;
  }
  EXPECT_EQ(FindRecordings({"@" + list}).lists, std::vector<std::string>{list});
}

TEST(CommandLine, HelpAndVersionEndIt) {
  std::ostringstream help, version;
  EXPECT_FALSE(ParseCommandLine({"--help"}, help));
  EXPECT_FALSE(ParseCommandLine({"--version"}, version));
  EXPECT_NE(help.str().find("--har-out "), std::string::npos);
  EXPECT_EQ(version.str().rfind("kiv_replay ", 0), 0U);
}

TEST(ChildJobs, HandOverEveryOutcomeAndReportTheDead) {
  const auto output = [](size_t index) {  // more than a pipe holds
    return std::string(index * 100000, static_cast<char>('a' + index));
  };
  for (const unsigned jobs : {1U, 2U, 16U}) {
    std::map<size_t, ChildOutcome> outcomes;
    RunInChildren(
        6, jobs,
        [&output](size_t index) {
          if (index == 1) std::raise(SIGKILL);
          if (index == 4) _exit(3);
          return output(index);
        },
        [&outcomes](size_t index, ChildOutcome outcome) {
          EXPECT_TRUE(outcomes.emplace(index, std::move(outcome)).second) << index;
        });
    ASSERT_EQ(outcomes.size(), 6U);
    EXPECT_EQ(outcomes[1].failure, "ended by signal 9 (Killed)");
    EXPECT_EQ(outcomes[4].failure, "ended with status 3");
    for (const size_t index : {0U, 2U, 3U, 5U}) {
      EXPECT_EQ(outcomes[index].failure, "");
      EXPECT_EQ(outcomes[index].output, output(index));
    }
  }
}

TEST(ChildJobs, KillTheRestWhenTheOwnerGivesUp) {
  const auto work = [](size_t index) {
    if (index == 1) pause();
    return std::to_string(getppid());
  };
  EXPECT_THROW(RunInChildren(2, 2, work, [](size_t, const ChildOutcome&) { throw std::bad_alloc(); }),
               std::bad_alloc);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

TEST(OutputFile, ReplacesTheWholeFileOrNothing) {
  const TemporaryFolder place;
  const std::filesystem::path folder = place.Path();
  const std::string path = folder / "report";
  WriteOutput(path, std::string(100000, 'x'));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  std::filesystem::create_symlink("report", folder / "link");
  WriteOutput(folder / "link", "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(TextOf(path), "new");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));

  EXPECT_THROW(WriteOutput(folder / "missing" / "report", "text"), std::runtime_error);
  EXPECT_THROW(WriteOutput(folder, "text"), std::runtime_error) << "a folder";
  EXPECT_THROW(WriteOutput("/dev/full", "text"), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full")) << "a device is written to, not replaced";
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()),
            2)
      << "no temporary file is left";
}

TEST(OutputStream, EmptiesTheFileWithTheFirstLineOnly) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("lines", "of before");
  OutputStream stream(path);
  EXPECT_EQ(TextOf(path), "of before");
  stream.Write("a\n");
  EXPECT_EQ(TextOf(path), "a\n") << "it can be read while more is made";
  stream.Write("b\n");
  EXPECT_EQ(TextOf(path), "a\nb\n");
  EXPECT_THROW(OutputStream("/dev/full").Write("text"), std::runtime_error);
}

TEST(OutputCheck, RefusesWhatWouldBeLost) {
  const TemporaryFolder folder;
  const std::string input = folder.Write("input.har", "{}");
  const std::string report = folder.Write("report.html", "<i>sign</i>");
  const std::string foreign = folder.Write("foreign.txt", "mine");
  const std::string empty = folder.Write("empty", "");
  const std::string link = folder.File("link"), hardLink = folder.File("hardlink"),
                    fresh = folder.File("new");
  std::filesystem::create_symlink(input, link);
  std::filesystem::create_hard_link(input, hardLink);
  const std::string roundabout = folder.File("./new");
  const std::string missingFolder = folder.File("missing/x");
  const struct {
    std::vector<std::string> outputs;
    const char* error;   // part of the message; null: allowed
    bool forced = true;  // the same with --force
  } cases[] = {
      {{fresh}, nullptr},
      {{report}, nullptr},
      {{empty}, nullptr},
      {{"-"}, nullptr},
      {{"/dev/null"}, nullptr},
      {{input}, "is also an input"},
      {{link}, "same file as the input"},
      {{hardLink}, "same file as the input"},
      {{fresh, roundabout}, "is also the output of --1"},
      {{"-", "-"}, "is also the output of --1"},
      {{foreign}, "--force", false},
      {{missingFolder}, "its folder"},
      {{folder.Path()}, "is a folder"},
  };
  for (const auto& row : cases) {
    for (const bool force : {false, true}) {
      std::vector<PlannedOutput> outputs;
      static const char* const kOptions[] = {"--1", "--2"};
      for (const std::string& path : row.outputs) outputs.push_back({kOptions[outputs.size()], path, "sign"});
      const std::string error = ErrorOf([&] { CheckOutputs(outputs, {"-", input, "missing.har"}, force); });
      const bool refused = row.error != nullptr && (!force || row.forced);
      EXPECT_EQ(error != "none", refused) << row.outputs.back() << ": " << error;
      if (!refused) continue;
      EXPECT_NE(error.find(row.error), std::string::npos) << error;
      EXPECT_NE(error.find("'" + row.outputs.back() + "'"), std::string::npos) << error;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(fresh)) << "checking changes nothing";
}

}  // namespace
}  // namespace replay
