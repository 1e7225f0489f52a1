// The plugin frame seen from outside: loading, the mask, and dispatch. The fuzz target passes null arguments.
#include <dlfcn.h>

#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using EntryPointsTest = PluginTest;

TEST(EntryPointsWithOwnHost, StartsEmptyEveryTimeAndReallyUnloads) {
  for (int load = 1; load <= 2; ++load) {
    ScriptedHost host;
    EXPECT_EQ(host.Send<CheckPreloads>(), 0) << "the command table is empty";
    host.Start();
    host.plugin.OnFlushDb(0);
    EXPECT_EQ(host.Take(),
              "I OnFlushDb - HostMap Size: 0, CachedUrlMap Size: 0\n"
              "D Clean URL cache done (0)\n");
    host.Preload(kUrl, "body");
    EXPECT_EQ(host.Ask(kUrl).body(), "body") << "lent, and never returned";
  }
  EXPECT_EQ(dlopen(KIV_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

// Which commands reach a handler, before and after the plugin is told to build its table.
TEST(EntryPointsWithOwnHost, DispatchKnowsExactlyTheListedTypesAndActions) {
  ScriptedHost host;
  const std::map<uint32_t, std::vector<uint32_t>> answered = {
      {2, {13}}, {3, {5, 8, 9}}, {8, {1, 4, 20, 21}}, {9, {1, 4}}};
  const auto expectDispatch = [&](bool reaches) {
    for (uint32_t type = 0; type <= 40; ++type) {
      for (uint32_t action = 0; action <= 40; ++action) {
        const auto row = answered.find(type);
        const bool listed = row != answered.end() &&
                            std::find(row->second.begin(), row->second.end(), action) != row->second.end();
        EXPECT_EQ(host.Send({type, action}), listed && reaches ? 1 : 0) << type << "/" << action;
      }
    }
    EXPECT_EQ(host.Send({0x80000003, 9}), 0);
    EXPECT_EQ(host.Send({3, 0x80000009}), 0);
  };
  expectDispatch(false);
  host.Start();
  expectDispatch(true);
  uint32_t mask = 0xFFFFFFFF;
  EXPECT_EQ(host.plugin.OnGetCmdMask(&mask), 1);
  EXPECT_EQ(mask, 0x30Cu) << "what the mask held before is gone";
  host.plugin.OnClearDb(0);
  host.Take();
  EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET"}),
            "D Main URL: http://page.test/\nD Add to Cache Reflector: http://page.test/\n")
      << "handled once after a second mask";
}

TEST(EntryPointsWithOwnHost, BeforeOnInitCommandsRunAndAllElseIsOff) {
  ScriptedHost host;
  uint32_t mask = 0;
  host.plugin.OnGetCmdMask(&mask);
  EXPECT_EQ(host.plugin.IsPreloaderEnabled(), 0);
  host.Learn(kPage);
  host.Take();
  // The preload limit is 0: the order waits in its queue.
  host.Order("http://a.test/1", kPage);
  EXPECT_EQ(host.Take(),
            "I Prefetch: http://a.test/1\n"
            "I Set For Preload (512): http://a.test/1 \n"
            "I Check Preload (a.test:80) - Active:0, In Preload Queue:1\n");
}

TEST_F(EntryPointsTest, SwitchedOffItIgnoresCommandsAndSweepsSilently) {
  host.Preload(kUrl, "body");
  host.Start({{"on", "0"}});  // what is held stays: only commands and sweeps look at the switch
  EXPECT_EQ(host.Send<PageRequested>({kPage, "GET", ""}), 0);
  EXPECT_EQ(host.Send<CheckPreloads>(), 0);
  EXPECT_EQ(host.plugin.OnFlushDb(0), 1);
  EXPECT_EQ(host.plugin.OnClearDb(0), 1);
  EXPECT_EQ(host.plugin.IsPreloaderEnabled(), 1);
  EXPECT_EQ(host.Take(), "");
  EXPECT_EQ(host.Ask(kUrl).body(), "body");
  EXPECT_EQ(host.plugin.ReleasePreloaded("http://a.test/1"), 1);
}

}  // namespace
}  // namespace tests
