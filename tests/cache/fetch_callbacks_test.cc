// The callbacks of a fetch: the request that it is given, and the preload slot that its end gives back.
// Limits are in hostile_server_test.cc; bodies and final states are checked by the model of the fuzz target.
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using FetchCallbacksTest = PluginTest;

constexpr const char* kUrl = "http://a.test:81/1?q#f";

TEST_F(FetchCallbacksTest, TheRequestCarriesWhatTheLaunchWasGiven) {
  host.Learn(kPage);
  host.Order(kUrl, kPage, 512, 0x800000);
  const auto request = host.RequestInfo(kUrl);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->url.spec(), kUrl);
  EXPECT_EQ(request->method, "GET");
  EXPECT_EQ(request->extra_headers.ToString(), "Accept: */*\r\n\r\n");
  EXPECT_EQ(request->load_flags, 0x800000);
  EXPECT_EQ(static_cast<int>(request->priority), 3);
  EXPECT_EQ(static_cast<int>(request->motivation), 0);
}

// A lent body shows the size of its buffer, because its place changes exactly when it grows.
TEST_F(FetchCallbacksTest, ABufferHasRoomForTenBytesMoreThanDeclared) {
  host.Launch(kUrl);
  host.StartComplete(kUrl, OkHeaders(100));
  host.Read(kUrl, std::string(100, 'a'));
  host.Done(kUrl);
  const char* const lent = host.Ask(kUrl).bytes;
  host.Read(kUrl, std::string(10, 'b'));
  EXPECT_EQ(host.Ask(kUrl).bytes, lent) << "exactly full";
  host.Read(kUrl, "c");
  EXPECT_NE(host.Ask(kUrl).bytes, lent);
}

TEST_F(FetchCallbacksTest, TheEndGivesTheHostsSlotBackOrReportsAnUnmatchedOne) {
  host.Send<TransactionStarted>({kUrl, 0, 1});  // keeps the host's record alive
  host.Launch(kUrl);
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Take(), "");
  host.verbosity = 0;
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Done(kUrl, -1), 1);
  const std::string line = std::string("W Unbalanced preloading: ") + kUrl + "\n";
  EXPECT_EQ(host.Take(), line + line) << "always written";
  host.plugin.OnClearDb(0);
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Take(), "") << "no record of the host, nobody to tell";
}

}  // namespace
}  // namespace tests
