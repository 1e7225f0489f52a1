// The transport against a real HTTP/2 server, nghttpd: where the library below has had faults (pausing,
// aborting, large bodies), and how connections are shared.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "live/transport/curl_transport.h"
#include "tests/live/support/child_process.h"
#include "tests/live/support/run_until.h"
#include "tests/support/transport_contract.h"

namespace live {
namespace {

using tests::ContractClient;
using tests::RunUntil;

class Http2Test : public testing::Test {
 protected:
  void SetUp() override {
    if (!tests::IsInstalled("nghttpd") || !tests::IsInstalled("openssl")) {
      GTEST_SKIP() << "nghttpd and openssl are not installed: scripts/setup test installs them";
    }
    ASSERT_TRUE(tests::MakeCertificate(folder.Path()));
    for (const int size : {1000, 300'000, 3'000'000, 60'000'000}) {
      folder.Write(std::to_string(size), std::string(static_cast<size_t>(size), 'x'));
    }
    StartServer();
    origin = "https://localhost:" + Port();
    transport = std::make_unique<CurlTransport>(loop, host::HostSettings{},
                                                UpstreamSettings{.caFile = folder.File("cert.pem")});
  }

  void StartServer() {
    server.emplace(std::vector<std::string>{"nghttpd", "-v", "-d", folder.Path(), Port(),
                                            folder.File("key.pem"), folder.File("cert.pem")},
                   folder.File("log"));
    ASSERT_TRUE(tests::WaitForPort(port));
  }
  std::string Port() const { return std::to_string(port); }

  tests::TemporaryFolder folder;
  const int port = tests::FreePort();
  std::optional<tests::ChildProcess> server;
  std::string origin;
  EventLoop loop;
  std::unique_ptr<CurlTransport> transport;
};

TEST_F(Http2Test, ManyTransfersShareOneConnectionAndPausedOnesHoldUpNobody) {
  std::deque<ContractClient> clients;
  std::vector<host::TransferId> ids;
  const auto start = [&](const std::string& path) {
    ids.push_back(transport->Start({.url = origin + path, .method = "GET"}, clients.emplace_back()));
  };
  for (int i = 0; i < 3; ++i) start("/60000000");
  for (const host::TransferId id : ids) transport->SetReading(id, false);
  RunUntil(loop, [&] {
    return std::all_of(clients.begin(), clients.end(),
                       [](const auto& client) { return client.heard == "200"; });
  });
  for (int i = 0; i < 30; ++i) start("/300000");
  RunUntil(loop, [&] {
    return std::all_of(clients.begin() + 3, clients.end(), [](const auto& c) { return c.result == 0; });
  });
  for (int i = 3; i < 33; ++i) EXPECT_EQ(clients[static_cast<size_t>(i)].bodyBytes, 300'000);
  EXPECT_EQ(clients[0].bodyBytes + clients[1].bodyBytes + clients[2].bodyBytes, 0);

  transport->Cancel(ids[0]);
  transport->SetReading(ids[1], true);
  RunUntil(loop, [&] { return clients[1].result != 1; });
  EXPECT_EQ(clients[1].bodyBytes, 60'000'000);
  transport->SetReading(ids[2], true);
  RunUntil(loop, [&] { return clients[2].bodyBytes > 1'000'000; });
  transport->Cancel(ids[2]);
  start("/3000000");
  RunUntil(loop, [&] { return clients.back().result != 1; });
  EXPECT_EQ(clients.back().bodyBytes, 3'000'000) << "the connection has survived both ends";
  EXPECT_EQ(transport->Connections().opened, 1u);
  EXPECT_LT(clients.back().report.sent.ToInternalValue() - clients.back().report.connect.ToInternalValue(),
            1);
}

TEST_F(Http2Test, TheBrowsersOwnRequestsWeighMore) {
  ContractClient preload, own;
  const auto id = transport->Start(
      {.url = origin + "/60000000", .method = "GET", .urgency = host::Urgency::Preload}, preload);
  transport->Start({.url = origin + "/1000", .method = "GET"}, own);
  RunUntil(loop, [&] { return own.result != 1 && preload.bodyBytes > 0; });
  transport->SetUrgency(id, host::Urgency::Browser);  // it was joined
  RunUntil(loop, [&] { return preload.result != 1; });
  server.reset();
  std::ifstream file(folder.File("log"));
  const std::string log{std::istreambuf_iterator<char>(file), {}};
  EXPECT_NE(log.find("weight=256,"), std::string::npos);
  EXPECT_NE(log.find("recv PRIORITY frame"), std::string::npos);
}

TEST_F(Http2Test, AConnectionThatWasOpenedAheadIsUsed) {
  const auto preconnect = [&] {
    transport->Preconnect(origin + "/", 2, nullptr);
    bool later = false;
    loop.PostDelayed(300'000, [&] { later = true; });
    RunUntil(loop, [&] { return later; });
    return transport->Connections().opened;
  };
  for (int repeated = 0; repeated < 3; ++repeated) EXPECT_EQ(preconnect(), 1u) << "one is all that it needs";
  for (const uint64_t connection : {1u, 2u}) {
    ContractClient client;
    transport->Start({.url = origin + "/1000", .method = "GET"}, client);
    RunUntil(loop, [&] { return client.result != 1; });
    EXPECT_EQ(client.bodyBytes, 1000);
    EXPECT_EQ(client.report.connect, client.report.sent);
    EXPECT_EQ(preconnect(), connection) << "it stands";
    server.reset();
    StartServer();
    EXPECT_EQ(preconnect(), connection + 1) << "the server had closed it";
  }
  EXPECT_EQ(transport->Connections().preconnected, 3u);
}

TEST_F(Http2Test, OfAServerThatDoesNotMultiplexSocketsAreOpenedAhead) {
  server.reset();
  server.emplace(std::vector<std::string>{"openssl", "s_server", "-quiet", "-www", "-accept", Port(), "-cert",
                                          folder.File("cert.pem"), "-key", folder.File("key.pem")});
  ASSERT_TRUE(tests::WaitForPort(port));
  transport->Preconnect(origin + "/", 1, nullptr);
  RunUntil(loop, [&] { return transport->Connections().unused == 1; });
  transport->Preconnect(origin + "/", 1, nullptr);
  RunUntil(loop, [&] { return transport->Connections().preconnected == 2; });
  ContractClient client;
  transport->Start({.url = origin + "/", .method = "GET"}, client);
  RunUntil(loop, [&] { return client.result != 1; });
  EXPECT_EQ(client.result, host::kOk);
  EXPECT_EQ(transport->Connections().opened, 2u) << "the first one has told that it does not";
}

TEST_F(Http2Test, AServerThatAsksForACertificateIsRecognised) {
  const struct {
    std::string version, how;
    int32_t result;
  } rows[] = {{"-tls1_2", "-Verify", host::kClientCertificateNeeded},
              {"-tls1_3", "-Verify", host::kClientCertificateNeeded},
              {"-tls1_3", "-verify", host::kOk}};  // it does without
  for (const auto& row : rows) {
    server.reset();
    server.emplace(std::vector<std::string>{"openssl", "s_server", "-quiet", "-www", row.version, row.how,
                                            "1", "-accept", Port(), "-cert", folder.File("cert.pem"), "-key",
                                            folder.File("key.pem")});
    ASSERT_TRUE(tests::WaitForPort(port));
    ContractClient client;
    transport->Start({.url = origin + "/", .method = "GET"}, client);
    RunUntil(loop, [&] { return client.result != 1; });
    EXPECT_EQ(client.result, row.result) << row.version << row.how;
  }
}

TEST_F(Http2Test, ACertificateThatNobodyVouchesForIsRefused) {
  transport = std::make_unique<CurlTransport>(loop, host::HostSettings{}, UpstreamSettings{});
  ContractClient client;
  transport->Start({.url = origin + "/1000", .method = "GET"}, client);
  RunUntil(loop, [&] { return client.result != 1; });
  EXPECT_EQ(client.heard, " done");
  EXPECT_EQ(client.result, host::kCertificateError);
}

TEST_F(Http2Test, AServerThatDiesEndsItsTransfersWithAnError) {
  ContractClient client;
  transport->Start({.url = origin + "/60000000", .method = "GET"}, client);
  RunUntil(loop, [&] { return client.bodyBytes > 0; });
  server.reset();
  RunUntil(loop, [&] { return client.result != 1; });
  EXPECT_LT(client.result, 0);
}

}  // namespace
}  // namespace live
