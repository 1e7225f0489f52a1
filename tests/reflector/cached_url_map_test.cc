// The record of known URLs, and what the disk cache says about them (type 2, action 13).
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using CachedUrlMapTest = PluginTest;

TEST_F(CachedUrlMapTest, AStatusMarksOrForgetsAKnownUrl) {
  host.hashes = {{"http://a.test/0", 0}};
  const uint32_t hash = host.Hash(kPage);
  const struct {
    Params params;
    const char* record;
    bool stays;
    const char* why;
  } rows[] = {
      // clang-format off
      {{hash, 1}, "D Set Cache Status: http://page.test/(1)\n", true, "held"},
      {{hash, 0x80000000}, "D Set Cache Status: http://page.test/(1)\n", true, "any number but 0, shown as 1"},
      {{hash, 0}, "D Set Cache Status: http://page.test/(0)\n", false, "not held"},
      {{hash}, "D Set Cache Status: http://page.test/(0)\n", false, "no status is 0"},
      {{hash + 1, 0}, "", true, "another hash"},
      {{}, "D Set Cache Status: http://a.test/0(0)\n", true, "no hash is 0"},
      {{kAbsent, 5}, "D Set Cache Status: http://a.test/0(1)\n", true, ""},
      // clang-format on
  };
  for (const auto& row : rows) {
    for (const char* url : {kPage, "http://a.test/0"}) host.Send<PageRequested>({url, "GET"});
    host.Take();
    EXPECT_EQ(host.Sent<CacheStatus>(row.params), row.record) << row.why;
    EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET"}).empty(), row.stays) << row.why;
  }
}

TEST_F(CachedUrlMapTest, OfTwoUrlsWithOneHashTheFirstStays) {
  host.hashes = {{"http://first.test/", 9}, {"http://second.test/", 9}};
  host.Send<PageRequested>({"http://first.test/", "GET"});
  host.Take();
  host.Send<PageRequested>({"http://second.test/", "GET"});
  host.Send<ResourceSeen>({kPage, "http://second.test/", 0, 0, 1});
  EXPECT_EQ(host.Take(), "") << "known";
  EXPECT_EQ(host.Sent<CacheStatus>({9, 1}), "D Set Cache Status: http://first.test/(1)\n");
}

}  // namespace
}  // namespace tests
