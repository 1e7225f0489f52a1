// The transport over real sockets: the contract of all transports, and servers that lie, stall, send too much
// or hang up.
#include "live/transport/curl_transport.h"

#include <gtest/gtest.h>

#include <atomic>

#include "live/cache/caching_transport.h"
#include "live/transport/response_lines.h"
#include "tests/live/support/run_until.h"
#include "tests/live/support/scripted_server.h"
#include "tests/support/transport_contract.h"

namespace live {
namespace {

using tests::Connection;
using tests::ContractClient;
using tests::OkResponse;
using tests::RunUntil;
using tests::ScriptedServer;

class CurlTransportTest : public testing::Test {
 protected:
  void Serve(std::function<void(Connection&)> serve, const UpstreamSettings& upstream = {}) {
    transport.reset();
    server.emplace(std::move(serve));
    transport = std::make_unique<CurlTransport>(loop, settings, upstream);
  }
  // Loads it; what was heard.
  std::string Get(const std::string& path = "/", host::TransferRequest request = {}) {
    ContractClient client;
    request.url = server->Url(path);
    if (request.method.empty()) request.method = "GET";
    transport->Start(request, client);
    RunUntil(loop, [&] { return client.result != 1; });
    return client.heard + " " + std::to_string(client.result);
  }

  EventLoop loop;
  host::HostSettings settings;
  std::optional<ScriptedServer> server;
  std::unique_ptr<CurlTransport> transport;
};

TEST_F(CurlTransportTest, KeepsTheContract) {
  server.emplace(tests::ServeBySize);
  settings.socketsPerGroup = 1;
  tests::ExpectTransportContract(
      {.executor = loop,
       .transport = std::make_unique<CurlTransport>(loop, settings, UpstreamSettings{}),
       .server = server->Url(""),
       .run = [this](const auto& done) { RunUntil(loop, done); }});
}

TEST_F(CurlTransportTest, SoDoesTheCacheAboveIt) {
  server.emplace(tests::ServeBySize);
  settings.socketsPerGroup = 1;
  CurlTransport network(loop, settings, UpstreamSettings{});
  HttpCache cache({});
  tests::ExpectTransportContract(
      {.executor = loop,
       .transport = std::make_unique<CachingTransport>(loop, network, cache, [] { return 0; }),
       .server = server->Url(""),
       .run = [this](const auto& done) { RunUntil(loop, done); }});
}

TEST_F(CurlTransportTest, WhatServersSendIsTakenOrRefused) {
  const std::string megabyte(1 << 20, 'h');
  const struct {
    std::string bytes;  // then the server closes
    const char* heard;
    const char* why;
  } rows[] = {
      {OkResponse("", "body"), "200 b done 0", ""},
      {"HTTP/1.0 200 OK\r\n\r\nbody", "200 b done 0", "the end of the connection is the end of the body"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX: trailer\r\n\r\n",
       "200 b done 0", ""},
      {"HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n" + OkResponse("", "body"), "200 b done 0",
       "informational"},
      {"HTTP/1.1 204 No Content\r\n\r\n", "204 done 0", ""},
      {"HTTP/1.1 304 Not Modified\r\nContent-Length: 100\r\n\r\n", "304 done 0", "no body follows"},
      {"HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n", "302 done 0",
       "not followed"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nbody", "200 b done -100",
       "a short body is no clean end"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n", "200 b done -100",
       "no last chunk"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nbody", "200 done -100", "bad chunks"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\nContent-Length: 5\r\n\r\nbodyx", " done -320", "two lengths"},
      {"HTTP/1.1 200 OK\r\nX: " + megabyte + "\r\n\r\n", " done -320", "a header without end"},
      {"HTTP/1.1 999999 OK\r\n\r\n", " done -320", ""},
      {"not HTTP at all\r\n\r\n", " done -320", ""},
      {"", " done -324", "nothing"},
      {"HTTP/1.1 200 OK\r\nContent-", " done -100", "the head is cut"},
  };
  for (const auto& row : rows) {
    Serve([&row](Connection& connection) {
      connection.ReadRequest();
      connection.Write(row.bytes);
    });
    EXPECT_EQ(Get(), row.heard) << row.why << row.bytes.substr(0, 100);
  }
  Serve([](Connection& connection) {
    connection.ReadRequest();
    connection.Write("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nbody");
    connection.Reset();
  });
  EXPECT_EQ(Get(), "200 b done -100");
  const std::string gone = server->Url();
  server.reset();
  ContractClient client;
  transport->Start({.url = gone, .method = "GET"}, client);
  transport->Start({.url = "http://name.invalid/", .method = "GET"}, client);
  RunUntil(loop, [&] { return client.heard == " done done"; });
  EXPECT_TRUE(client.result == host::kConnectionFailed || client.result == host::kNameNotResolved);
}

// Whether it comes with the response before or after it, it answers nothing.
TEST_F(CurlTransportTest, WhatNobodyHasAskedForAnswersNothing) {
  for (const int pauseMs : {0, 20}) {
    std::atomic<int> sent = 0;
    Serve([&sent, pauseMs](Connection& connection) {
      while (!connection.ReadRequest().empty()) {
        connection.Write(OkResponse("", "x"));
        connection.Pause(pauseMs);
        connection.Write("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nevil");
        ++sent;
      }
    });
    for (int load = 1; load <= 3; ++load) {
      EXPECT_EQ(Get(), "200 b done 0") << pauseMs;
      RunUntil(loop, [&] { return sent == load; });
      EXPECT_EQ(server->ConnectionCount(), load) << pauseMs;
    }
    server.reset();  // its threads still count
  }
}

TEST_F(CurlTransportTest, SendsExactlyTheRequest) {
  std::string seen;
  Serve([&seen](Connection& connection) {
    seen = connection.ReadRequest();
    connection.Write(OkResponse("", "x"));
  });
  Get("/a/../b?c=%20",
      {.headers = "B: 2\r\nEmpty:\r\nConnection: close\r\nHost: evil\r\nCookie: a=1; b=2\r\n"});
  const std::string host = "Host: 127.0.0.1:" + std::to_string(server->Port()) + "\r\n";
  EXPECT_EQ(seen, "GET /a/../b?c=%20 HTTP/1.1\r\n" + host + "B: 2\r\nEmpty:\r\nCookie: a=1; b=2\r\n\r\n");
}

// A body that comes in pieces, and sometimes not yet.
struct SlowUpload : host::UploadBody {
  explicit SlowUpload(EventLoop& l, int64_t size) : loop(l), length(size) {}

  int64_t Length() const override { return length; }
  int64_t Read(char* buffer, size_t size) override {
    if (failing && left < length / 2) return -2;
    if (left == 0) return 0;
    if (std::exchange(ready, false)) {
      const auto count = std::min<int64_t>({left, static_cast<int64_t>(size), 10'000});
      std::fill(buffer, buffer + count, 'u');
      left -= count;
      return count;
    }
    loop.PostDelayed(100, [this] {
      ready = true;
      if (onReadable) onReadable();
    });
    return -1;
  }

  EventLoop& loop;
  int64_t length;
  int64_t left = length;
  bool ready = false;
  bool failing = false;
};

TEST_F(CurlTransportTest, UploadsAreStreamed) {
  std::string seen;
  Serve([&seen](Connection& connection) {
    seen = connection.ReadRequest();
    connection.Write(OkResponse("", "x"));
  });
  const auto body = std::make_shared<SlowUpload>(loop, 100'000);
  EXPECT_EQ(Get("/", {.method = "PUT", .body = body}), "200 b done 0");
  EXPECT_TRUE(seen.starts_with("PUT / HTTP/1.1\r\n")) << seen.substr(0, 200);
  EXPECT_TRUE(seen.ends_with(std::string(100'000, 'u')));
  const auto failing = std::make_shared<SlowUpload>(loop, 100'000);
  failing->failing = true;
  EXPECT_EQ(Get("/", {.method = "POST", .body = failing}), " done -3");
  server.reset();  // its thread still writes to what it has seen
}

TEST_F(CurlTransportTest, AServerIsSlowedDownByAClientThatDoesNotRead) {
  std::atomic<int64_t> sent = 0;
  constexpr int64_t kSize = 50'000'000;
  Serve([&sent](Connection& connection) {
    connection.ReadRequest();
    connection.Write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n");
    const std::string piece(100'000, 'x');
    for (; sent < kSize && connection.Write(piece); sent += 100'000) {
    }
  });
  ContractClient client;
  const host::TransferId id = transport->Start({.url = server->Url(), .method = "GET"}, client);
  transport->SetReading(id, false);
  bool later = false;
  loop.PostDelayed(300'000, [&] { later = true; });
  RunUntil(loop, [&] { return later; });
  EXPECT_EQ(client.heard, "200");
  EXPECT_LT(sent, kSize / 2) << "the sockets' buffers and the transport's hold some megabytes";
  transport->SetReading(id, true);
  RunUntil(loop, [&] { return client.result != 1; });
  EXPECT_EQ(client.bodyBytes, kSize);
  server.reset();  // its thread still counts
}

TEST_F(CurlTransportTest, SocketsThatWereOpenedAheadAreUsed) {
  Serve(tests::ServeBySize);
  for (const size_t count : {1, 3, 3}) {
    transport->Preconnect(server->Url(), count, nullptr);
    bool later = false;
    loop.PostDelayed(100'000, [&] { later = true; });
    RunUntil(loop, [&] { return later && server->ConnectionCount() == static_cast<int>(count); });
  }
  ContractClient clients[3];
  for (ContractClient& client : clients)
    transport->Start({.url = server->Url("/10"), .method = "GET"}, client);
  for (ContractClient& client : clients) {
    RunUntil(loop, [&] { return client.result != 1; });
    EXPECT_EQ(client.result, host::kOk) << client.heard;
  }
  EXPECT_EQ(server->ConnectionCount(), 3);
  EXPECT_EQ(transport->Connections().preconnected, 3u);
  Serve(tests::ServeBySize, {.keepPreconnectedMs = 50});
  transport->Preconnect(server->Url(), 1, nullptr);
  RunUntil(loop, [&] { return transport->Connections().unused == 1; });
  EXPECT_EQ(Get("/10"), "200 b done 0");
}

TEST_F(CurlTransportTest, ConnectionsThatMayNotBeOpenedYetAreOpenedLater) {
  settings.maxPreconnects = 2;
  Serve(tests::ServeBySize, {.maxPlannedPreconnects = 1});
  transport->Preconnect(server->Url(), 5, nullptr);
  RunUntil(loop, [&] { return server->ConnectionCount() == 5; });
  Serve(tests::ServeBySize, {.maxPlannedPreconnects = 1});
  transport->Preconnect(server->Url(), 5, nullptr);
  transport->Preconnect("http://localhost:" + std::to_string(server->Port()), 1, nullptr);
  RunUntil(loop, [&] { return transport->Connections().preconnected == 3; });
  EXPECT_EQ(Get("/10"), "200 b done 0");
  EXPECT_EQ(server->ConnectionCount(), 3) << "what was planned first and not begun is dropped";
}

TEST_F(CurlTransportTest, TheFirstResponseOfAServerHoldsUpNoOther) {
  Serve([](Connection& connection) {
    while (connection.ReadRequest().starts_with("GET /10 ")) connection.Write(OkResponse("", "x"));
    connection.Write("HTTP/1.1 200 OK\r\n\r\nb");
    connection.ReadSome();
  });
  ContractClient endless;
  const host::TransferId id = transport->Start({.url = server->Url("/events"), .method = "GET"}, endless);
  EXPECT_EQ(Get("/10"), "200 b done 0");
  EXPECT_EQ(endless.result, 1) << "it goes on";
  transport->Cancel(id);
}

TEST_F(CurlTransportTest, AsksWhereItMayConnect) {
  struct Policy : ConnectPolicy {
    bool allowed = true;
    bool MayConnectTo(std::string_view address) const override {
      EXPECT_EQ(address, "127.0.0.1");
      return allowed;
    }
  };
  const auto shared = std::make_shared<Policy>();
  Policy& policy = *shared;
  int requests = 0;
  Serve([&requests](Connection& connection) {
    while (!connection.ReadRequest().empty()) ++requests, connection.Write(OkResponse("", "x"));
  });
  for (const bool allowed : {false, true, false}) {
    policy.allowed = allowed;
    if (!allowed) transport->Preconnect(server->Url(), 1, &policy);
    EXPECT_EQ(Get("/", {.context = &policy}), allowed ? "200 b done 0" : " done -20");
    EXPECT_EQ(server->ConnectionCount(), requests);
  }
  EXPECT_EQ(requests, 1) << "the third one found a connection, and was not sent on it";
}

TEST(ResponseLinesTest, BlocksHaveNoHopByHopHeaders) {
  ResponseLines lines(1000);
  for (const char* line :
       {"HTTP/2 200 \r\n", "Content-Length: 5\r\n", "Connection: x, y\r\n", "Y: named\r\n", "A:  b \r\n",
        " folded\r\n", "Keep-Alive: 1\r\n", " folded away\r\n", "no colon\r\n", "Length : 5\r\n", "\r\n"}) {
    EXPECT_TRUE(lines.Add(line)) << line;
  }
  EXPECT_EQ(lines.TakeBlock(), std::string("HTTP/1.1 200\0A: b folded\0Content-Length: 5\0\0", 44));
  EXPECT_EQ(lines.TakeBlock(), std::nullopt);
  EXPECT_TRUE(lines.Add("Trailer: ignored\r\n"));
  EXPECT_EQ(lines.TakeBlock(), std::nullopt);
  ResponseLines chunked(1000);
  for (const char* line : {"HTTP/1.1 200 OK", "Content-Length: 5", "Transfer-Encoding: chunked", ""}) {
    EXPECT_TRUE(chunked.Add(line)) << line;
  }
  EXPECT_EQ(chunked.TakeBlock(), std::string("HTTP/1.1 200 OK\0\0", 17))
      << "the length is the chunks' matter";
}

}  // namespace
}  // namespace live
