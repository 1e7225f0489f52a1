// The command line, the processes that recordings are replayed in, and the files that reports are written to.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "replay/child_jobs.h"
#include "replay/options_parser.h"
#include "replay/output_file.h"

namespace replay {
namespace {

std::filesystem::path TestFolder() {
  const std::filesystem::path folder =
      std::filesystem::path(testing::TempDir()) / ("kiv_options_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  return folder;
}

std::string FileWith(const std::string& name, const std::string& text) {
  const std::string path = TestFolder() / name;
  std::ofstream(path) << text;
  return path;
}

CommandLine Parsed(std::vector<std::string> arguments) {
  arguments.push_back("a.har");
  std::ostringstream out;
  return ParseCommandLine(arguments, out).value();
}

TEST(CommandLine, Defaults) {
  const CommandLine line = Parsed({});
  EXPECT_EQ(line.replay.profile.name, "4g");
  EXPECT_EQ(line.replay.profile.rttMs, 170);
  EXPECT_EQ(line.replay.profile.downMbit, 9);
  EXPECT_EQ(line.replay.socketsPerGroup, 6);
  EXPECT_EQ(line.replay.revisitAfterMs, 3600e3);
  EXPECT_TRUE(line.replay.join);
  EXPECT_GE(line.jobs, 1U);
  EXPECT_EQ(line.recordings, std::vector<std::string>{"a.har"});
}

TEST(CommandLine, ProfilesAndDurations) {
  struct Case {
    std::vector<std::string> arguments;
    const char* name;
    std::optional<double> rttMs, downMbit;
  };
  for (const Case& row : {Case{{"--profile", "3g"}, "3g", 300, 1.6}, Case{{"--profile=lte"}, "lte", 70, 12},
                          Case{{"--profile", "cable"}, "cable", 28, 5},
                          Case{{"--profile", "native"}, "native", std::nullopt, std::nullopt},
                          Case{{"--rtt", "0"}, "custom", 0, 9},
                          Case{{"--profile", "native", "--down", "2.5"}, "custom", std::nullopt, 2.5}}) {
    const NetworkProfile profile = Parsed(row.arguments).replay.profile;
    EXPECT_EQ(profile.name, row.name);
    EXPECT_EQ(profile.rttMs, row.rttMs) << row.name;
    EXPECT_EQ(profile.downMbit, row.downMbit) << row.name;
  }
  const std::map<std::string, double> durations = {{"500ms", 500},   {"90s", 90e3},    {"30m", 1800e3},
                                                   {"1.5h", 5400e3}, {"2d", 172800e3}, {"0s", 0}};
  for (const auto& [text, milliseconds] : durations) {
    EXPECT_EQ(Parsed({"--revisit-after", text}).replay.revisitAfterMs, milliseconds) << text;
  }
}

TEST(CommandLine, PropertiesOfTheFileAndTheLine) {
  const std::string path =
      FileWith("props", "# limits\r\n\n  net.cv.kiv.prlimit=3\r\nnet.cv.kiv.idlesock=0\nnet.cv.kiv.on=1 \n");
  EXPECT_EQ(
      Parsed({"--prop", "net.cv.kiv.prlimit=8", "--props", path, "--prop", "net.cv.kiv.cslimit=2147483647"})
          .replay.properties,
      (std::map<std::string, std::string>{{"net.cv.kiv.prlimit", "8"},
                                          {"net.cv.kiv.idlesock", "0"},
                                          {"net.cv.kiv.on", "1"},
                                          {"net.cv.kiv.cslimit", "2147483647"}}))
      << "the command line wins over the file, wherever it stands";
}

TEST(CommandLine, ErrorsNameTheOptionAndThePlace) {
  const std::string unknown = FileWith("unknown", "# one\nnet.cv.kiv.onn=1\n");
  const std::string noValue = FileWith("novalue", "net.cv.kiv.on\n");
  const struct {
    std::vector<std::string> arguments, parts;  // of the message
  } cases[] = {
      // clang-format off
      {{}, {"RECORDING"}},
      {{"--colour", "a.har"}, {"--colour"}},
      {{"a.har", "--json"}, {"--json"}},
      {{"--profile", "5g", "a.har"}, {"--profile", "'5g'", "cable"}},
      {{"--rtt", "12x", "a.har"}, {"--rtt", "'12x'"}},
      {{"--rtt", "nan", "a.har"}, {"--rtt", "'nan'"}},
      {{"--down", "0", "a.har"}, {"--down", "'0'"}},
      {{"--sockets", "0", "a.har"}, {"--sockets", "'0'", "1"}},
      {{"--visits=-1", "a.har"}, {"--visits", "'-1'"}},
      {{"--jobs", "99999999999", "a.har"}, {"--jobs"}},
      {{"--revisit-after", "1", "a.har"}, {"--revisit-after", "'1'", "90s"}},
      {{"--revisit-after", "1e9d", "a.har"}, {"--revisit-after"}},
      {{"--revisit-after", "9999d", "a.har"}, {"--revisit-after", "ten years"}},
      {{"--join", "yes", "a.har"}, {"--join", "'yes'"}},
      {{"--log", "loud", "a.har"}, {"--log", "'loud'"}},
      {{"--prop", "net.cv.kiv.on", "a.har"}, {"--prop", "name=value"}},
      {{"--prop", "net.cv.kiv.limit=1", "a.har"}, {"--prop", "'net.cv.kiv.limit'", "net.cv.kiv.prlimit"}},
      {{"--prop", "net.cv.kiv.on=2", "a.har"}, {"--prop", "from 0 to 1", "'2'"}},
      {{"--props", unknown, "a.har"}, {"--props", unknown + ":2", "'net.cv.kiv.onn'"}},
      {{"--props", noValue, "a.har"}, {"--props", noValue + ":1"}},
      {{"--props", "/nowhere/at/all", "a.har"}, {"--props", "/nowhere/at/all"}},
      {{"--props", TestFolder(), "a.har"}, {"--props", TestFolder()}},
      {{"--json", "-", "--html", "-", "a.har"}, {"--html", "--json", "'-'"}},
      {{"--har-out", "x", "--html", "x", "a.har"}, {"--har-out", "--html", "'x'"}},
      {{"-", "a.har", "-"}, {"RECORDING", "standard input"}},
      // clang-format on
  };
  for (const auto& row : cases) {
    std::string error = "no error";
    try {
      std::ostringstream out;
      ParseCommandLine(row.arguments, out);
    } catch (const std::runtime_error& caught) {
      error = caught.what();
    }
    for (const std::string& part : row.parts) EXPECT_NE(error.find(part), std::string::npos) << error << part;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(CommandLine, HelpAndVersionEndIt) {
  std::ostringstream help, version;
  EXPECT_FALSE(ParseCommandLine({"--help"}, help));
  EXPECT_FALSE(ParseCommandLine({"--version"}, version));
  EXPECT_NE(help.str().find("--har-out "), std::string::npos);
  EXPECT_EQ(version.str().rfind("kiv_replay ", 0), 0U);
}

TEST(ChildJobs, ReturnEverythingInOrderAndReportTheDead) {
  const auto output = [](size_t index) {  // more than a pipe holds
    return std::string(index * 100000, static_cast<char>('a' + index));
  };
  for (const unsigned jobs : {1U, 2U, 16U}) {
    size_t finished = 0;
    const auto outcomes = RunInChildren(
        6, jobs,
        [&output](size_t index) {
          if (index == 1) std::raise(SIGKILL);
          if (index == 4) _exit(3);
          return output(index);
        },
        [&finished](size_t count) { EXPECT_EQ(count, ++finished); });
    EXPECT_EQ(finished, 6U);
    ASSERT_EQ(outcomes.size(), 6U);
    EXPECT_EQ(outcomes[1].failure, "ended by signal 9 (Killed)");
    EXPECT_EQ(outcomes[4].failure, "ended with status 3");
    for (const size_t index : {0U, 2U, 3U, 5U}) {
      EXPECT_EQ(outcomes[index].failure, "");
      EXPECT_EQ(outcomes[index].output, output(index));
    }
  }
}

TEST(OutputFile, ReplacesTheWholeFileOrNothing) {
  const std::filesystem::path folder = TestFolder() / "out";
  std::filesystem::create_directories(folder);
  const std::string path = folder / "report";
  WriteOutput(path, std::string(100000, 'x'));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  std::filesystem::create_symlink("report", folder / "link");
  WriteOutput(folder / "link", "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  std::string text;
  EXPECT_TRUE(std::getline(std::ifstream(path), text, '\0'));
  EXPECT_EQ(text, "new");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));

  EXPECT_THROW(WriteOutput(folder / "missing" / "report", "text"), std::runtime_error);
  EXPECT_THROW(WriteOutput(folder, "text"), std::runtime_error) << "a folder";
  EXPECT_THROW(WriteOutput("/dev/full", "text"), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full")) << "a device is written to, not replaced";
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()),
            2)
      << "no temporary file is left";
}

}  // namespace
}  // namespace replay
