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

std::string TextOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

CommandLine Parsed(std::vector<std::string> arguments) {
  arguments.push_back("a.har");
  std::ostringstream out;
  return ParseCommandLine(arguments, out).value();
}

std::string ErrorOf(const std::vector<std::string>& arguments) try {
  std::ostringstream out;
  ParseCommandLine(arguments, out);
  return "no error";
} catch (const std::runtime_error& error) {
  return error.what();
}

TEST(CommandLine, Defaults) {
  const CommandLine line = Parsed({});
  EXPECT_EQ(line.replay.profile.name, "4g");
  EXPECT_EQ(line.replay.profile.rttMs, 170);
  EXPECT_EQ(line.replay.profile.downMbit, 9);
  EXPECT_EQ(line.replay.socketsPerGroup, 6);
  EXPECT_EQ(line.replay.revisitAfterMs, 3600e3);
  EXPECT_TRUE(line.replay.join);
  EXPECT_FALSE(line.replay.logLevel);
  EXPECT_TRUE(line.replay.properties.empty());
  EXPECT_EQ(line.pluginPath + line.jsonPath + line.htmlPath + line.harPath, "");
  EXPECT_GE(line.jobs, 1U);
  EXPECT_EQ(line.recordings, std::vector<std::string>{"a.har"});
}

TEST(CommandLine, Profiles) {
  struct Case {
    std::vector<std::string> arguments;
    const char* name;
    std::optional<double> rttMs, downMbit;
  };
  for (const Case& row : {Case{{"--profile", "3g"}, "3g", 150, 1.6}, Case{{"--profile=lte"}, "lte", 70, 12},
                          Case{{"--profile", "cable"}, "cable", 28, 5},
                          Case{{"--profile", "native"}, "native", std::nullopt, std::nullopt},
                          Case{{"--rtt", "0"}, "custom", 0, 9},
                          Case{{"--profile", "native", "--down", "2.5"}, "custom", std::nullopt, 2.5}}) {
    const NetworkProfile profile = Parsed(row.arguments).replay.profile;
    EXPECT_EQ(profile.name, row.name);
    EXPECT_EQ(profile.rttMs, row.rttMs) << row.name;
    EXPECT_EQ(profile.downMbit, row.downMbit) << row.name;
  }
}

TEST(CommandLine, Durations) {
  for (const auto& [text, milliseconds] :
       {std::pair("500ms", 500.0), std::pair("90s", 90e3), std::pair("30m", 1800e3),
        std::pair("1.5h", 5400e3), std::pair("2d", 172800e3), std::pair("0s", 0.0)}) {
    EXPECT_EQ(Parsed({"--revisit-after", text}).replay.revisitAfterMs, milliseconds) << text;
  }
}

TEST(CommandLine, PropertiesOfTheFileAndTheLine) {
  const std::string path =
      FileWith("props", "# limits\r\n\n  net.cv.kiv.prlimit=3\r\nnet.cv.kiv.idlesock=\nnet.cv.kiv.on=1=0");
  const CommandLine line = Parsed({"--prop", "net.cv.kiv.prlimit=8", "--props", path, "--prop",
                                   "net.cv.kiv.cslimit=" + std::string(91, '1')});
  EXPECT_EQ(line.replay.properties,
            (std::map<std::string, std::string>{{"net.cv.kiv.prlimit", "8"},
                                                {"net.cv.kiv.idlesock", ""},
                                                {"net.cv.kiv.on", "1=0"},
                                                {"net.cv.kiv.cslimit", std::string(91, '1')}}))
      << "the command line wins over the file, wherever it stands";
}

TEST(CommandLine, ErrorsNameTheOptionAndThePlace) {
  const std::string unknown = FileWith("unknown", "# one\nnet.cv.kiv.onn=1\n");
  const std::string noValue = FileWith("novalue", "net.cv.kiv.on\n");
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> parts;  // of the message
  };
  for (const Case& row : {
           Case{{}, {"RECORDING"}},
           Case{{"--colour", "a.har"}, {"--colour"}},
           Case{{"a.har", "--json"}, {"--json"}},
           Case{{"--profile", "5g", "a.har"}, {"--profile", "'5g'", "cable"}},
           Case{{"--rtt", "12x", "a.har"}, {"--rtt", "'12x'"}},
           Case{{"--rtt", "nan", "a.har"}, {"--rtt", "'nan'"}},
           Case{{"--down", "0", "a.har"}, {"--down", "'0'"}},
           Case{{"--sockets", "0", "a.har"}, {"--sockets", "'0'", "1"}},
           Case{{"--visits=-1", "a.har"}, {"--visits", "'-1'"}},
           Case{{"--jobs", "99999999999", "a.har"}, {"--jobs"}},
           Case{{"--revisit-after", "1", "a.har"}, {"--revisit-after", "'1'", "90s"}},
           Case{{"--revisit-after", "1e9d", "a.har"}, {"--revisit-after"}},
           Case{{"--revisit-after", "9999d", "a.har"}, {"--revisit-after", "ten years"}},
           Case{{"--join", "yes", "a.har"}, {"--join", "'yes'"}},
           Case{{"--log", "loud", "a.har"}, {"--log", "'loud'"}},
           Case{{"--prop", "net.cv.kiv.on", "a.har"}, {"--prop", "name=value"}},
           Case{{"--prop", "net.cv.kiv.limit=1", "a.har"},
                {"--prop", "'net.cv.kiv.limit'", "net.cv.kiv.prlimit"}},
           Case{{"--prop", "net.cv.kiv.on=" + std::string(92, '1'), "a.har"}, {"--prop", "92 bytes"}},
           Case{{"--props", unknown, "a.har"}, {"--props", unknown + ":2", "'net.cv.kiv.onn'"}},
           Case{{"--props", noValue, "a.har"}, {"--props", noValue + ":1"}},
           Case{{"--props", "/nowhere/at/all", "a.har"}, {"--props", "/nowhere/at/all"}},
           Case{{"--props", TestFolder(), "a.har"}, {"--props", TestFolder()}},
           Case{{"--json", "-", "--html", "-", "a.har"}, {"--html", "--json", "'-'"}},
           Case{{"--har-out", "x", "--html", "x", "a.har"}, {"--har-out", "--html", "'x'"}},
           Case{{"-", "a.har", "-"}, {"RECORDING", "standard input"}},
       }) {
    const std::string error = ErrorOf(row.arguments);
    for (const std::string& part : row.parts)
      EXPECT_NE(error.find(part), std::string::npos) << error << " / " << part;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(CommandLine, HelpAndVersionEndIt) {
  std::ostringstream help, version;
  EXPECT_FALSE(ParseCommandLine({"--help"}, help));
  EXPECT_FALSE(ParseCommandLine({"--version"}, version));
  for (const char* option :
       {"--plugin", "--prop", "--props", "--profile", "--rtt", "--down", "--sockets", "--visits",
        "--revisit-after", "--join", "--log", "--json", "--html", "--har-out", "--jobs"}) {
    EXPECT_NE(help.str().find(std::string(option) + " "), std::string::npos) << option;
  }
  EXPECT_EQ(version.str().rfind("kiv_replay ", 0), 0U);
}

TEST(ChildJobs, ReturnEverythingInOrderAndReportTheDead) {
  for (const unsigned jobs : {1U, 2U, 16U}) {
    size_t finished = 0;
    const auto outcomes = RunInChildren(
        6, jobs,
        [](size_t index) {
          if (index == 1) std::raise(SIGKILL);
          if (index == 4) _exit(3);
          return std::string(index * 100000, static_cast<char>('a' + index));  // more than a pipe holds
        },
        [&finished](size_t count) { EXPECT_EQ(count, ++finished); });
    EXPECT_EQ(finished, 6U);
    ASSERT_EQ(outcomes.size(), 6U);
    for (size_t index = 0; index < outcomes.size(); ++index) {
      if (index == 1) {
        EXPECT_EQ(outcomes[index].failure, "ended by signal 9 (Killed)");
      } else if (index == 4) {
        EXPECT_EQ(outcomes[index].failure, "ended with status 3");
      } else {
        EXPECT_EQ(outcomes[index].failure, "");
        EXPECT_EQ(outcomes[index].output, std::string(index * 100000, static_cast<char>('a' + index)));
      }
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

}  // namespace
}  // namespace replay
