// The cache between host and network: what goes over the network, with which headers, and what the client
// hears.
#include "live/cache/caching_transport.h"

#include <gtest/gtest.h>

#include "host/virtual_clock.h"
#include "tests/support/scripted_transport.h"
#include "tests/support/transport_contract.h"

namespace live {
namespace {

using tests::ContractClient;
using tests::Ok;
using tests::ResponseHeaders;

constexpr int64_t kSecond = 1'000'000;

class CachingTransportTest : public testing::Test {
 protected:
  // Asks, answers what goes to the network with these, one after the other, and tells what the client heard.
  std::string Get(const std::string& headers, const std::vector<net::HttpResponseHeaders>& answers = {},
                  const std::string& method = "GET") {
    ContractClient client;
    const size_t before = network.transfers.size();
    transport.Start({.url = "http://a.test/", .method = method, .headers = headers}, client);
    clock.Run();
    sent.clear();
    for (const auto& answer : answers) {
      const size_t place = network.transfers.size() - 1;
      network.Answer(place, answer.response_code() == 304 ? "" : "body", answer);
      clock.Run();
    }
    for (size_t place = before; place < network.transfers.size(); ++place) {
      sent += "[" + network.transfers[place].request.headers + "]";
    }
    return client.heard;
  }

  host::VirtualClock clock;
  tests::ScriptedTransport network;
  std::string held;
  HttpCache cache{{}, [this](const std::string& url, bool holds) { held += (holds ? " +" : " -") + url; }};
  int64_t nowUs = 1'700'000'000 * kSecond;
  CachingTransport transport{clock, network, cache, [this] { return nowUs; }};
  std::string sent;
};

const std::string kTenSeconds = "Content-Length: 4\nETag: \"v1\"\nCache-Control: max-age=10";
const net::HttpResponseHeaders kNotModified =
    ResponseHeaders("HTTP/1.1 304 No\nETag: \"v1\"\nCache-Control: max-age=10");

TEST_F(CachingTransportTest, WhatIsFreshNeedsNoNetworkAndWhatIsStaleIsValidated) {
  EXPECT_EQ(Get("A: 1\r\n\r\n", {Ok(kTenSeconds)}), "200 b done");
  EXPECT_EQ(sent, "[A: 1\r\n]");
  EXPECT_EQ(held, " +http://a.test/");
  nowUs += 9 * kSecond;
  EXPECT_TRUE(transport.IsFresh("http://a.test/", "A: 1\r\n"));
  EXPECT_EQ(Get("A: 1\r\n"), "200 b done");
  EXPECT_EQ(sent, "");
  EXPECT_EQ(Get("If-None-Match: \"v1\"\r\n"), "304 done") << "the client's own condition";
  nowUs += 2 * kSecond;
  EXPECT_FALSE(transport.IsFresh("http://a.test/", "A: 1\r\n"));
  EXPECT_EQ(Get("A: 1\r\n\r\n", {kNotModified}), "200 b done") << "the stored one, renewed";
  EXPECT_EQ(sent, "[A: 1\r\nIf-None-Match: \"v1\"\r\n]");
  EXPECT_EQ(Get(""), "200 b done");
  nowUs += 11 * kSecond;
  EXPECT_EQ(Get("\r\n", {ResponseHeaders("HTTP/1.1 304 No\nETag: \"v2\""), Ok("Content-Length: 4")}),
            "200 b done");
  EXPECT_EQ(sent, "[If-None-Match: \"v1\"\r\n][]")
      << "the server means another one: once more without a condition";
  EXPECT_EQ(Get("Cache-Control: only-if-cached\r\n"), "504 done");
}

TEST_F(CachingTransportTest, WhatCameToCookiesIsTheirs) {
  Get("Cookie: a\r\n", {Ok(kTenSeconds)});
  EXPECT_EQ(Get("Cookie: a\r\n"), "200 b done");
  EXPECT_EQ(Get("Cookie: b\r\n", {Ok(kTenSeconds)}), "200 b done");
  EXPECT_EQ(sent, "[Cookie: b\r\n]");
  EXPECT_EQ(Get("Cookie: a\r\nAuthorization: x\r\n", {Ok("Content-Length: 4")}), "200 b done");
  EXPECT_NE(sent, "");
  EXPECT_EQ(Get("", {Ok("Content-Length: 4\nCache-Control: no-store")}), "200 b done");
  EXPECT_NE(sent, "");
  Get("Cookie: c\r\n", {Ok(kTenSeconds + ", public")});
  EXPECT_EQ(Get("Cookie: d\r\n"), "200 b done");
  EXPECT_EQ(sent, "") << "for everybody";
}

TEST_F(CachingTransportTest, OnlyCompleteResponsesAreStored) {
  for (const int32_t result : {host::kOk, host::kConnectionClosed}) {
    for (const std::string body : {"bod", "body!", ""}) {
      ContractClient client;
      transport.Start({.url = "http://a.test/", .method = "GET"}, client);
      const size_t place = network.transfers.size() - 1;
      network.Respond(place, Ok(kTenSeconds));
      if (!body.empty()) network.Body(place, body);
      network.Done(place, result);
      EXPECT_EQ(client.result, result);
      EXPECT_FALSE(cache.Holds("http://a.test/")) << body;
    }
  }
  ContractClient cancelled;
  const auto id = transport.Start({.url = "http://a.test/", .method = "GET"}, cancelled);
  network.Respond(network.transfers.size() - 1, Ok(kTenSeconds));
  network.Body(network.transfers.size() - 1, "body");
  transport.Cancel(id);
  EXPECT_FALSE(cache.Holds("http://a.test/"));
  EXPECT_TRUE(network.transfers.back().cancelled);
  Get("", {Ok(kTenSeconds)});
  EXPECT_EQ(Get("", {ResponseHeaders("HTTP/1.1 204 No")}, "POST"), "204 b done");
  EXPECT_FALSE(cache.Holds("http://a.test/")) << "a change makes it outdated";
}

}  // namespace
}  // namespace live
