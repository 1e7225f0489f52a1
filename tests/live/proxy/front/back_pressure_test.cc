// Bodies of many megabytes in both directions, one side of which is slow.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/live/proxy/front/front_fixture.h"

namespace tests {
namespace {

constexpr size_t kBodyBytes = 64 << 20;
// What the sockets of both ends may hold of it, beside the proxy: the kernel's largest buffers on loopback.
constexpr size_t kSocketBytes = 12 << 20;

using BackPressure = FrontTest;

TEST_F(BackPressure, AResponseWaitsForTheBrowser) {
  size_t made = 0;
  handler.nextPiece = [&made] {
    const size_t count = std::min<size_t>(kBodyBytes - made, 16'000);
    std::string piece(count, '\0');
    for (size_t i = 0; i < count; ++i) piece[i] = static_cast<char>('a' + (made + i) % 23);
    made += count;
    return piece;
  };
  handler.replies["http://a.test/"] = {
      .head = "HTTP/1.1 200 OK\nContent-Length: " + std::to_string(kBodyBytes) + "\n"};
  Client([&](RawClient& client) {
    client.Send("GET http://a.test/ HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(Becomes([this] { return handler.wasPaused; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    OnLoop([&] { EXPECT_LT(made, kSocketBytes) << "nobody has read a byte"; });
    client.ReadUntil("\r\n\r\n");
    const std::string body = client.ReadAll();
    ASSERT_EQ(body.size(), kBodyBytes);
    size_t wrong = 0;
    for (size_t i = 0; i < body.size(); ++i) wrong += body[i] != static_cast<char>('a' + i % 23);
    EXPECT_EQ(wrong, 0U);
  });
}

TEST_F(BackPressure, AnUploadWaitsForTheServer) {
  handler.readsUploads = false;
  handler.replies["http://a.test/"] = {};
  for (const bool chunked : {false, true}) {
    handler.uploaded = 0;
    handler.readsUploads = false;
    Client([&](RawClient& client) {
      client.Send("POST http://a.test/ HTTP/1.1\r\nHost: x\r\n" +
                  (chunked ? std::string("Transfer-Encoding: chunked")
                           : "Content-Length: " + std::to_string(kBodyBytes)) +
                  "\r\n\r\n");
      const std::string piece(1 << 16, 'u');
      std::atomic<size_t> sent = 0;
      std::thread sender([&] {
        for (; sent < kBodyBytes; sent += piece.size())
          client.Send(chunked ? "10000\r\n" + piece + "\r\n" : piece);
        if (chunked) client.Send("0\r\n\r\n");
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      EXPECT_LT(sent, kSocketBytes) << "nobody has read a byte";
      OnLoop([this] { handler.ReadUploads(); });
      EXPECT_EQ(client.ReadUntil("\r\n\r\n").substr(0, 15), "HTTP/1.1 200 OK");
      sender.join();
    });
    EXPECT_EQ(handler.uploaded, kBodyBytes);
  }
}

TEST_F(BackPressure, AServerThatAnswersEarlyEndsTheUpload) {
  handler.readsUploads = false;  // and answers all the same, below
  Client([this](RawClient& client) {
    client.Send("POST http://a.test/ HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\n" +
                std::string(200'000, 'u'));
    EXPECT_TRUE(Becomes([this] { return handler.started == 1; }));
    OnLoop([this] { handler.Answer(1); });
    const std::string received = client.ReadAll();
    EXPECT_NE(received.find("Connection: close\r\n"), std::string::npos) << received;
    EXPECT_FALSE(received.ends_with(")"))
        << "the response arrives, though nobody reads the rest: " << received;
  });
}

TEST_F(BackPressure, ContinueIsSaidOnceSomebodyReads) {
  handler.readsUploads = false;
  Client([this](RawClient& client) {
    client.Send(
        "POST http://a.test/ HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
    EXPECT_TRUE(Becomes([this] { return handler.started == 1; }));
    OnLoop([this] { handler.ReadUploads(); });
    EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
    client.Send("body");
    EXPECT_TRUE(client.ReadUntil("POST http://a.test/||body").ends_with("||body")) << "and Expect stays here";
  });
}

}  // namespace
}  // namespace tests
