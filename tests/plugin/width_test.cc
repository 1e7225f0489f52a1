// Where 32 bits end: cookies, numbers of commands and clocks, on hosts of either width.
#include <climits>

#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using WidthTest = PluginTest;

TEST_F(WidthTest, HashesFlagsAndPrioritiesTakeAll32Bits) {
  host.Start();
  host.verbosity = 3;
  host.Learn(kPage);
  for (const uint32_t hash : {1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    const std::string url = "http://a.test/" + std::to_string(hash);
    host.hashes[url] = hash;
    host.Order(url, kPage, 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_NE(host.Take().find("I Set For Preload (-1): " + url + " \n"), std::string::npos);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(host.Cookie(url)), hash);
    EXPECT_EQ(host.RequestInfo(url)->load_flags, -1);
    host.FetchOk(url, url);
    EXPECT_EQ(host.Ask(url).body(), url);
    EXPECT_EQ(host.plugin.ReleasePreloaded(url.c_str()), 1);
  }
  // A cookie of no bits is none: such a preload is launched and never heard of again.
  host.hashes["http://a.test/0"] = 0;
  host.Order("http://a.test/0", kPage);
  EXPECT_EQ(host.RequestInfo("http://a.test/0"), nullptr);
  EXPECT_EQ(host.Done("http://a.test/0"), 0);
  EXPECT_EQ(host.plugin.ReleasePreloaded("http://a.test/0"), 1);
}

// The age of a preload is a signed number of 32 bits; a clock that jumps must not make an old one young.
TEST_F(WidthTest, AgesBeyond32BitsStayOnTheirSide) {
  const struct {
    int64_t madeMs, flushedMs;
    bool reported;
    const char* why;
  } rows[] = {
      {0, int64_t{INT32_MAX} + 1, false, "the smallest one, were it to wrap"},
      {0, (int64_t{1} << 32) + 5, false, "5, were it cut off"},
      {INT64_MAX / 1000, INT64_MIN / 1000, true, "from the end of all clocks to their beginning"},
      {INT64_MIN / 1000, INT64_MAX / 1000, false, "and the other way"},
      {0, -(int64_t{1} << 32) + 120'001, true, "back by more than 32 bits"},
  };
  host.Start();
  for (const auto& row : rows) {
    host.nowMs = row.madeMs;
    host.Launch("http://a.test/1");
    host.FetchOk("http://a.test/1", "body");
    host.nowMs = row.flushedMs;
    host.Take();
    host.plugin.OnFlushDb(0);
    EXPECT_EQ(host.Take().find("Stuck") != std::string::npos, row.reported) << row.why;
  }
}

}  // namespace
}  // namespace tests
