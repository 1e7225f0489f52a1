// CONNECT and upgrades: bytes that pass through, and ends of one direction.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "live/proxy/front/resolver.h"
#include "tests/live/proxy/front/front_fixture.h"
#include "tests/live/support/child_process.h"
#include "tests/live/support/scripted_server.h"

namespace tests {
namespace {

class Tunnels : public FrontTest {
 protected:
  // A server that stands where "server.test:443" (and port 80) lead.
  void Serve(std::function<void(Connection&)> serve) {
    server.emplace(std::move(serve));
    settings.connectTo = {"server.test::127.0.0.1:" + std::to_string(server->Port())};
    Listen();
  }
  std::optional<ScriptedServer> server;
};

const std::string kConnect = "CONNECT server.test:443 HTTP/1.1\r\nHost: server.test:443\r\n\r\n";
const std::string kEstablished = "HTTP/1.1 200 Connection established\r\n\r\n";

TEST_F(Tunnels, BytesPassUntouchedAndEachDirectionEndsByItself) {
  std::string heard;
  Serve([&heard](Connection& connection) {
    connection.Write("greeting ");
    for (std::string some = connection.ReadSome(); !some.empty(); some = connection.ReadSome()) heard += some;
    connection.Write("and answer after the end");
  });
  std::string received;
  const std::string binary = std::string("GET / HTTP/1.1\r\n\r\n\0\xff", 20);
  Client([&](RawClient& client) {
    client.Send(kConnect + "early ");  // does not wait for the response
    received = client.ReadUntil("greeting ");
    client.Send(binary);
    client.EndSending();
    received += client.ReadAll();
    EXPECT_TRUE(Becomes([this] { return front->ConnectionCount() == 0; }));
  });
  EXPECT_EQ(received, kEstablished + "greeting and answer after the end");
  server.reset();
  EXPECT_EQ(heard, "early " + binary);
  EXPECT_EQ(handler.started, 0U);
}

TEST_F(Tunnels, MegabytesPassBothWaysAtOnce) {
  constexpr size_t kBytes = 32 << 20;
  Serve([](Connection& connection) {  // an echo
    for (std::string some = connection.ReadSome(); !some.empty(); some = connection.ReadSome()) {
      if (!connection.Write(some)) return;
    }
  });
  Client([&](RawClient& client) {
    client.Send(kConnect);
    EXPECT_EQ(client.ReadUntil("\r\n\r\n"), kEstablished);
    std::string bytes(kBytes, '\0');
    for (size_t i = 0; i < kBytes; ++i) bytes[i] = static_cast<char>(i * i >> 7);
    std::thread sender([&] {
      client.Send(bytes);
      client.EndSending();
    });
    EXPECT_TRUE(client.ReadAll() == bytes);
    sender.join();
  });
}

TEST_F(Tunnels, ABrowserThatVanishesEndsTheServersSideAndTheOtherWayRound) {
  std::atomic<bool> over = false;
  Serve([&over](Connection& connection) {
    connection.Write("x");
    const std::string some = connection.ReadSome();
    if (some == "reset") return connection.Reset();
    over = some.empty();
  });
  Client([&](RawClient& client) {
    client.Send(kConnect);
    client.ReadUntil("x");
    client.Close(true);
    EXPECT_TRUE(Becomes([&] { return over.load() && front->ConnectionCount() == 0; }));
    RawClient second(front->Port());
    second.Send(kConnect + "reset");
    EXPECT_TRUE(second.ReadAll().ends_with("(reset)")) << "no orderly end where there was none";
  });
}

TEST_F(Tunnels, SomeAreRefused) {
  Serve([](Connection& connection) { connection.ReadSome(); });
  const int closed = FreePort();
  settings.connectTo.push_back("closed.test:443:127.0.0.1:" + std::to_string(closed));
  settings.connectTo.push_back("self.test:443:localhost:" + std::to_string(front->Port()));
  settings.port = front->Port();
  front.reset();
  Listen();
  const struct {
    const char* target;
    const char* status;
    const char* words;
  } rows[] = {
      {"server.test:22", "403 Forbidden", "port 22 are not allowed"},
      {"server.test", "400 Bad Request", "needs a host and a port"},
      {"server.test:443/", "400 Bad Request", "needs a host and a port"},
      {"http://server.test/", "400 Bad Request", "needs a host and a port"},
      {"closed.test:443", "502 Bad Gateway",
       "The server closed.test:443 could not be reached: Connection refused."},
      {"name.invalid:443", "502 Bad Gateway",
       "The name of the server name.invalid:443 could not be resolved."},
      {"self.test:443", "508 Loop Detected", "is this proxy itself"},
  };
  for (const auto& row : rows) {
    const std::string received =
        Exchange("CONNECT " + std::string(row.target) + " HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(received.find("HTTP/1.1 " + std::string(row.status)), 0U) << row.target << received;
    EXPECT_NE(received.find(row.words), std::string::npos) << received;
  }
  EXPECT_EQ(server->ConnectionCount(), 0);
}

TEST_F(Tunnels, AWebSocketInTheClearIsOneAfterItsHead) {
  std::string head;
  Serve([&head](Connection& connection) {
    head = connection.ReadRequest();
    connection.Write("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n\r\n");
    while (true) {
      const std::string some = connection.ReadSome();
      if (some.empty() || !connection.Write("echo " + some)) return;
    }
  });
  Client([&](RawClient& client) {
    // A load before it, and the upgrade right behind, so that its bytes are read ahead of their turn.
    client.Send("GET http://a.test/ HTTP/1.1\r\nHost: a.test\r\n\r\n");
    client.Send(
        "GET http://server.test/chat HTTP/1.1\r\nHost: server.test\r\nConnection: keep-alive, Upgrade\r\n"
        "Upgrade: websocket\r\nSec-WebSocket-Key: k\r\nProxy-Connection: keep-alive\r\n\r\n");
    client.ReadUntil("0\r\n\r\n");
    EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n\r\n");
    client.Send("frame");
    EXPECT_EQ(client.ReadUntil("frame"), "echo frame");
  });
  server.reset();
  EXPECT_EQ(head,
            "GET /chat HTTP/1.1\r\nHost: server.test\r\nSec-WebSocket-Key: k\r\nConnection: Upgrade\r\n"
            "Upgrade: websocket\r\n\r\n");
  EXPECT_EQ(handler.started, 1U);
}

TEST_F(Tunnels, AWebSocketReachesOnlyWhatItsPageMay) {
  Serve([](Connection& connection) { connection.ReadRequest(); });
  std::string address;
  handler.addressRule = [&address](const std::string& asked) {
    address = asked;
    return false;
  };
  const std::string received = Exchange(
      "GET http://server.test/chat HTTP/1.1\r\nHost: server.test\r\nConnection: Upgrade\r\nOrigin: "
      "http://a.test"
      "\r\nUpgrade: websocket\r\n\r\n");
  EXPECT_EQ(received.find("HTTP/1.1 403 "), 0U) << received;
  EXPECT_EQ(address, "127.0.0.1");
  EXPECT_EQ(handler.tunnelled, "http://server.test/chat|Origin: http://a.test\r\n");
  EXPECT_EQ(server->ConnectionCount(), 0);
}

std::atomic<int> slowLookUps = 0;
std::atomic<bool> slowMayEnd = false;

TEST(ResolverTest, GoesWithoutTheNamesThatAreBeingResolved) {
  const auto lookUp = [](const std::string&, uint16_t) {
    ++slowLookUps;
    while (!slowMayEnd) std::this_thread::yield();
    --slowLookUps;
    return live::Resolver::Endpoints{};
  };
  live::EventLoop loop;
  bool heard = false;
  {
    live::Resolver resolver(loop, lookUp);
    for (int name = 0; name < 9; ++name) resolver.Resolve("a.test", 80, [&](const auto&) { heard = true; });
    while (slowLookUps < 4) std::this_thread::yield();
  }
  EXPECT_EQ(slowLookUps, 4) << "none has ended, and no more have begun";
  slowMayEnd = true;
  while (slowLookUps > 0) std::this_thread::yield();
  loop.PostDelayed(10'000, [&] { loop.Stop(); });
  loop.Run();
  EXPECT_FALSE(heard);
}

TEST_F(Tunnels, AServerThatSaysNothingIsLeft) {
  settings.tunnelIdleMs = 400;
  Serve([](Connection& connection) { connection.ReadSome(); });
  EXPECT_EQ(Exchange(kConnect), kEstablished);
}

}  // namespace
}  // namespace tests
