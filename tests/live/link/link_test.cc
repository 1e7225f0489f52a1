// The model of the link, the command line, and when figures are refused: everything that needs no namespaces.
#include <gtest/gtest.h>

#include <sstream>

#include "live/link/link_queue.h"
#include "live/link/options.h"
#include "live/link/report.h"
#include "tests/support/text.h"

namespace live_link {
namespace {

constexpr int64_t kMs = 1'000'000;

struct Arrival {
  int64_t atMs;
  size_t bytes;
  std::optional<int64_t> dueMs;  // nothing: dropped
};

// 8 Mbit/s, so that a packet of 1000 bytes takes a millisecond.
void ExpectDueTimes(const char* why, LinkSettings settings, const std::vector<Arrival>& arrivals) {
  SCOPED_TRACE(why);
  settings.bitsPerSecond = 8'000'000;
  LinkQueue queue = {.settings = settings};
  for (size_t index = 0; index < arrivals.size(); ++index) {
    const Arrival& row = arrivals[index];
    const auto due = TakePacket(queue, row.atMs * kMs, row.bytes);
    EXPECT_EQ(due, row.dueMs ? std::optional(*row.dueMs * kMs) : std::nullopt) << "packet " << index;
  }
}

TEST(LinkQueue, SendsOnePacketAfterTheOtherAndDropsWhatDoesNotFit) {
  // clang-format off
  ExpectDueTimes("an idle link: time to send, then the delay", {.delayNs = 50 * kMs},
                 {{0, 1000, 51}, {10, 1000, 61}, {20, 500 * 8, 74}});
  ExpectDueTimes("a burst waits for the link, not for the delay", {.delayNs = 50 * kMs},
                 {{0, 1000, 51}, {0, 1000, 52}, {1, 2000, 54}, {4, 1000, 55}, {100, 1000, 151}});
  ExpectDueTimes("two may wait behind the one that is sent", {.queuePackets = 2},
                 {{0, 1000, 1}, {0, 1000, 2}, {0, 1000, 3}, {0, 1000, {}}, {0, 1, {}},
                  {1, 1000, 4},  // the first has been sent at this very moment
                  {1, 1000, {}}, {2, 1000, 5}, {9, 1000, 10}});
  ExpectDueTimes("bytes that wait: those of the packet that is sent do not count", {.queueBytes = 3000},
                 {{0, 9000, 9}, {0, 2000, 11}, {0, 1001, {}}, {0, 1000, 12}, {0, 1, {}},
                  {9, 2000, 14}, {9, 1, {}}, {11, 1000, 15}, {12, 1000, 16}});
  ExpectDueTimes("a packet larger than the queue passes when the link is idle", {.queueBytes = 1500},
                 {{0, 2000, 2}, {1, 2000, {}}, {2, 2000, 4}});
  // clang-format on
}

TEST(LinkQueue, KeepsTheExtremesOfRateAndSize) {
  LinkQueue slow = {.settings = {.bitsPerSecond = 10'000}};
  EXPECT_EQ(TakePacket(slow, 0, 65535), 52428 * kMs);
  LinkQueue fast = {.settings = {.bitsPerSecond = 1'000'000'000}};
  EXPECT_EQ(TakePacket(fast, 5, 40), 5 + 320);
  EXPECT_EQ(TakePacket(fast, 5, 1500), 5 + 320 + 12000);
}

LinkOptions Parsed(std::vector<std::string> arguments) {
  std::ostringstream out;
  if (std::find(arguments.begin(), arguments.end(), "--") == arguments.end()) {
    arguments.insert(arguments.end(), {"--", "true"});
  }
  return ParseLinkOptions(arguments, out).value();
}

TEST(LinkOptions, ProfilesAndFiguresOfTheLine) {
  const struct {
    const char *arguments, *profile;
    double rttMs;
    LinkSettings down, up;
  } cases[] = {
      // clang-format off
      {"", "4g", 170, {9'000'000, 85 * kMs, 375}, {9'000'000, 85 * kMs, 375}},
      {"--profile 3g", "3g", 300, {1'600'000, 150 * kMs, 100}, {768'000, 150 * kMs, 100}},
      {"--rtt 7 --up 0.01", "custom", 7, {9'000'000, 3'500'000, 375}, {10'000, 3'500'000, 100}},
      {"--profile native --rtt=0 --down=1000 --up=1 --queue=9", "custom", 0, {1'000'000'000, 0, 9}, {1'000'000, 0, 9}},
      {"--queue 64kB", "4g", 170, {9'000'000, 85 * kMs, SIZE_MAX, 64000}, {9'000'000, 85 * kMs, SIZE_MAX, 64000}},
      // clang-format on
  };
  for (const auto& row : cases) {
    const LinkOptions options = Parsed(tests::Words(row.arguments));
    EXPECT_EQ(options.profile, row.profile);
    EXPECT_EQ(options.rttMs, row.rttMs);
    for (const auto& [got, want] : {std::pair(options.down, row.down), std::pair(options.up, row.up)}) {
      EXPECT_EQ(got.bitsPerSecond, want.bitsPerSecond);
      EXPECT_EQ(got.delayNs, want.delayNs);
      EXPECT_EQ(got.queuePackets, want.queuePackets);
      EXPECT_EQ(got.queueBytes, want.queueBytes);
    }
  }
}

TEST(LinkOptions, CommandsAreLeftAsTheyAre) {
  using Words = std::vector<std::string>;
  const LinkOptions options = Parsed({"--server", "[ 1 = 1 ]", "--ready", "80", "--server=b -x", "--ready",
                                      "8080", "--", "[a,b]", "--json", "-h", "--", "x y"});
  EXPECT_EQ(options.servers, (std::vector<Words>{{"/bin/sh", "-c", "[ 1 = 1 ]"}, {"/bin/sh", "-c", "b -x"}}));
  EXPECT_EQ(options.readyPorts, (std::vector<uint16_t>{80, 8080}));
  EXPECT_EQ(options.client, (Words{"[a,b]", "--json", "-h", "--", "x y"}));
  EXPECT_EQ(options.jsonPath, "");
  EXPECT_EQ(Parsed({"--", "echo $HOME"}).client, (Words{"/bin/sh", "-c", "echo $HOME"}));
}

TEST(LinkOptions, ErrorsNameTheOptionAndWhatIsWrong) {
  const struct {
    const char* line;
    std::vector<std::string> parts;  // of the message
  } cases[] = {
      // clang-format off
      {"", {"after --"}},
      {"--server x --", {"after --"}},
      {"curl -- x", {"curl", "after --"}},
      {"--profile 5g -- x", {"--profile", "'5g'", "cable"}},
      {"--profile native -- x", {"--rtt", "must be given"}},
      {"--rtt -1 -- x", {"--rtt", "'-1'"}},
      {"--rtt nan -- x", {"--rtt", "'nan'"}},
      {"--rtt 10001 -- x", {"--rtt", "10000"}},
      {"--down 0 -- x", {"--down", "'0'", "0.01"}},
      {"--up 5M -- x", {"--up", "'5M'"}},
      {"--queue 0 -- x", {"--queue", "'0'"}},
      {"--queue 1kB -- x", {"--queue", "1500", "'1kB'"}},
      {"--queue 5MB -- x", {"--queue", "'5MB'"}},
      {"--queue 99999999999 -- x", {"--queue"}},
      {"--queue 4294967295kB -- x", {"--queue", "64 MB"}},
      {"--rtt 10000 --down 1000 -- x", {"--rtt", "--down", "64 MB", "688 MB"}},
      {"--ready 0 -- x", {"--ready", "'0'"}},
      {"--ready 65536 -- x", {"--ready", "'65536'"}},
      // clang-format on
  };
  for (const auto& row : cases) {
    std::ostringstream out;
    const std::string error = tests::ErrorOf([&] { ParseLinkOptions(tests::Words(row.line), out); });
    for (const std::string& part : row.parts) EXPECT_NE(error.find(part), std::string::npos) << error << part;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(Report, FiguresAreRefusedWhenMoreThanOnePacketInTwoHundredWasLate) {
  EXPECT_EQ(LateBoundNs(0), 5 * kMs);
  EXPECT_EQ(LateBoundNs(100), 5 * kMs);
  EXPECT_EQ(LateBoundNs(800), 40 * kMs);
  const struct {
    uint64_t late, packets, droppedByDevices;
    bool refused;
  } cases[] = {{0, 0, 0, false},  {0, 10, 0, false},  {1, 199, 0, true},   {1, 200, 0, false},
               {2, 399, 0, true}, {2, 400, 0, false}, {0, 100000, 1, true}};
  for (const auto& row : cases) {
    RunFigures figures = {.lateness = {.latePackets = row.late, .packets = row.packets},
                          .droppedByDevices = row.droppedByDevices};
    EXPECT_EQ(!WhyStarved(figures).empty(), row.refused) << row.late << " of " << row.packets;
  }
}

}  // namespace
}  // namespace live_link
