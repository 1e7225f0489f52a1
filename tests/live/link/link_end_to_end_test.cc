// kiv_link as a program, with small servers and clients at its ends. Skipped where namespaces are not
// permitted. Output is read until nobody can write it any more, so a process that was left behind makes a
// test hang until ctest ends it.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/support/temporary_folder.h"

namespace {

constexpr int kStarved = 3;
constexpr int kNotPermitted = 4;
const std::string kPeer = KIV_LINK_PEER_PATH;
const std::string kServe = " --ready 80 --server '" + kPeer + " serve 0.0.0.0 80' ";

struct Outcome {
  int status = -1;
  std::string output;  // standard output and error
};

Outcome RunLink(const std::string& arguments) {
  FILE* const pipe = popen((KIV_LINK_PATH " " + arguments + " 2>&1").c_str(), "r");
  Outcome outcome;
  std::array<char, 4096> buffer;
  for (size_t size = 0; (size = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
    outcome.output.append(buffer.data(), size);
  }
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return outcome;
}

// Repeats a run that the machine was too busy for.
Outcome RunLinkInTime(const std::string& arguments) {
  Outcome outcome;
  for (int tries = 0; tries < 5; ++tries) {
    outcome = RunLink(arguments);
    if (outcome.status != kStarved) break;
  }
  return outcome;
}

class LinkEndToEnd : public testing::Test {
 protected:
  void SetUp() override {
    const Outcome outcome = RunLink("-- true");
    if (outcome.status == kNotPermitted) GTEST_SKIP() << outcome.output;
  }

  // The figures that the client printed, and those of the program.
  nlohmann::json Fetch(const std::string& options, const std::string& bytes) {
    const std::string figures = folder_.File("figures.json"), client = folder_.File("client.json");
    const Outcome outcome = RunLinkInTime(options + kServe + "--json " + figures + " -- '" + kPeer +
                                          " fetch $KIV_LINK_SERVER 80 " + bytes + " > " + client + "'");
    if (outcome.status == kStarved) return nullptr;
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    nlohmann::json result = nlohmann::json::parse(std::ifstream(figures));
    result["client"] = nlohmann::json::parse(std::ifstream(client));
    return result;
  }

  const tests::TemporaryFolder folder_;
};

TEST_F(LinkEndToEnd, RoundTripsAndTransfersTakeTheirTime) {
  const nlohmann::json figures = Fetch("--rtt 80 --down 8 --up 4", "1000000");
  if (figures.is_null()) GTEST_SKIP() << "the machine is too busy";
  const nlohmann::json& client = figures["client"];
  // The lower bounds hold on any machine; the upper ones leave room for one that is busy.
  for (const char* const name : {"connect", "byte"}) {
    EXPECT_GE(client[name], 80) << name;
    EXPECT_LE(client[name], 160) << name;
  }
  EXPECT_GE(client["bytes"], 1080) << "the line is not faster than its rate";
  EXPECT_LE(client["bytes"], 3000);
  EXPECT_GE(figures["down"]["bytes"], 1000000 + 1000000 / 1500 * 40) << "headers count";
  EXPECT_LE(figures["down"]["bytes"], 1200000);
  EXPECT_GE(figures["down"]["packets"], 1000000 / 1460) << "no packet is larger than 1500 bytes";
  EXPECT_EQ(figures["down"]["dropped_packets"], 0);
  EXPECT_GT(figures["up"]["packets"], 0);
  EXPECT_LT(figures["up"]["bytes"], 100000);
  EXPECT_EQ(figures["rtt_ms"], 80);
  EXPECT_EQ(figures["client_status"], 0);
}

TEST_F(LinkEndToEnd, AShortQueueDropsPacketsAndTcpSendsThemAgain) {
  const nlohmann::json figures = Fetch("--rtt 20 --down 8 --up 8 --queue 5", "1000000");
  if (figures.is_null()) GTEST_SKIP() << "the machine is too busy";
  EXPECT_GT(figures["down"]["dropped_packets"], 0);
  EXPECT_GT(figures["down"]["dropped_bytes"], figures["down"]["dropped_packets"]);
}

TEST_F(LinkEndToEnd, PassesOnHowTheClientEnded) {
  const struct {
    const char* arguments;
    int status;
    const char* output;
  } cases[] = {
      {"-- 'exit 7'", 7, ""},
      {"-- 'kill -9 $$'", 137, ""},
      {"-- /nowhere/at/all x", 127, "cannot run '/nowhere/at/all'"},
      {"-- echo a '  b'", 0, "a   b"},
      {"-- 'echo $KIV_LINK_SERVER $KIV_LINK_CLIENT'", 0, "10.77.0.1 10.77.0.2"},
      {"--server 'true' -- 'sleep 0.2'", 0, "latest packet"},
      {"--server 'exit 5' -- 'sleep 600'", 1, "server command 'exit 5' ended with status 5"},
      {"--server 'exit 5' --ready 80 -- true", 1, "server command 'exit 5' ended with status 5"},
      {"--rtt x -- true", 2, "--rtt"},
      {"--json /nowhere/at/all -- true", 1, "/nowhere/at/all"},
      {"-- 'kill -INT $PPID; sleep 600'", 130, ""},
      {"-- 'kill -TERM $PPID; sleep 600'", 143, ""},
  };
  for (const auto& row : cases) {
    const Outcome outcome = RunLinkInTime(row.arguments);
    EXPECT_EQ(outcome.status, row.status) << row.arguments << "\n" << outcome.output;
    EXPECT_NE(outcome.output.find(row.output), std::string::npos) << row.arguments << "\n" << outcome.output;
  }
}

TEST_F(LinkEndToEnd, LeavesNoProcessBehind) {
  // In a session of their own, orphaned, and deaf to the polite signal.
  const std::string stubborn = "(trap \"\" TERM; setsid sleep 600 & setsid sleep 600) & ";
  const Outcome outcome = RunLink("--server '" + stubborn + "sleep 600' -- '" + stubborn + "sleep 0.2'");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(LinkEndToEnd, SaysNothingWhenItCouldNotKeepItsTimes) {
  // The transfer takes three seconds in which something is always on its way, for 300 ms at most; the link
  // stops for longer than that.
  const Outcome outcome = RunLink(
      "--rtt 600 --down 1 --up 1" + kServe + "-- '" + kPeer +
      " fetch $KIV_LINK_SERVER 80 100000 & sleep 1; kill -STOP $PPID; sleep 0.6; kill -CONT $PPID; wait'");
  EXPECT_EQ(outcome.status, kStarved);
  EXPECT_NE(outcome.output.find("too busy"), std::string::npos) << outcome.output;
  EXPECT_EQ(outcome.output.find("latest packet"), std::string::npos) << "no figures";
}

}  // namespace
