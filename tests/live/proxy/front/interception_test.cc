// TLS in the servers' place: libcurl is the browser, and trusts the authority or does not.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "live/proxy/ca/authority.h"
#include "tests/live/proxy/front/front_fixture.h"
#include "tests/live/support/child_process.h"
#include "tests/live/support/scripted_server.h"

namespace tests {
namespace {

class Interception : public FrontTest {
 protected:
  Interception() {
    settings.authority = std::make_shared<live::Authority>(live::MakeAuthority());
    rootFile = folder.Write("root.pem", live::RootAsPem(*settings.authority));
  }

  // A browser of its own with its connections.
  struct Browser {
    Browser(const Interception& test, const std::string& trusted)
        : easy(curl_easy_init(), curl_easy_cleanup) {
      Set(CURLOPT_PROXY, ("http://" + test.front->Address()).c_str());
      Set(CURLOPT_CAINFO, trusted.c_str());
      Set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
      Set(CURLOPT_TIMEOUT_MS, 15'000L);
      Set(CURLOPT_HTTP_VERSION,
          static_cast<long>(CURL_HTTP_VERSION_2TLS));  // offered
      Set(
          CURLOPT_WRITEFUNCTION, +[](char* bytes, size_t size, size_t count, void* data) {
            static_cast<std::string*>(data)->append(bytes, size * count);
            return size * count;
          });
      Set(CURLOPT_WRITEDATA, &body);
    }
    template <typename Value>
    void Set(CURLoption option, Value value) {
      curl_easy_setopt(easy.get(), option, value);
    }
    CURLcode Get(const std::string& url) {
      body.clear();
      Set(CURLOPT_URL, url.c_str());
      const CURLcode result = curl_easy_perform(easy.get());
      curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
      return result;
    }
    void Send(const std::string& bytes) {
      size_t sent = 0;
      curl_easy_send(easy.get(), bytes.data(), bytes.size(), &sent);
      EXPECT_EQ(sent, bytes.size());
    }
    // What comes until `end` has come, or nothing comes any more; ten seconds at most.
    std::string ReadUntil(const std::string& end) {
      std::string read;
      for (int attempt = 0; attempt < 1000 && read.find(end) == std::string::npos; ++attempt) {
        char buffer[4096];
        size_t count = 0;
        const CURLcode result = curl_easy_recv(easy.get(), buffer, sizeof buffer, &count);
        read.append(buffer, count);
        if (result == CURLE_AGAIN) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if ((result == CURLE_OK && count == 0) || (result != CURLE_OK && result != CURLE_AGAIN)) break;
      }
      return read;
    }
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy;
    std::string body;
    long status = 0;
  };

  // Runs `talk` as a browser that trusts the file.
  void Browse(const std::string& trusted, const std::function<void(Browser&)>& talk) {
    if (!front) Listen();
    Client([&](RawClient&) {
      Browser browser(*this, trusted);
      talk(browser);
    });
  }

  TemporaryFolder folder;
  std::string rootFile;
};

TEST_F(Interception, RequestsInsideBecomeUrlsOfHttps) {
  handler.replies["https://a.test/cut"] = {.body = {"half"}, .result = host::kConnectionClosed};
  Browse(rootFile, [this](Browser& browser) {
    curl_slist* const headers = curl_slist_append(nullptr, "Proxy-Authorization: Basic secret");
    browser.Set(CURLOPT_USERAGENT, "me");
    EXPECT_EQ(browser.Get("https://a.test/x?y#z"), CURLE_OK);
    EXPECT_EQ(browser.body, "GET https://a.test/x?y|User-Agent: me|Accept: */*||");
    long version = 0, connections = 0;
    curl_easy_getinfo(browser.easy.get(), CURLINFO_HTTP_VERSION, &version);
    EXPECT_EQ(version, CURL_HTTP_VERSION_1_1);
    browser.Set(CURLOPT_POSTFIELDS, "body");
    browser.Set(CURLOPT_HTTPHEADER, headers);
    EXPECT_EQ(browser.Get("https://a.test/post"), CURLE_OK);
    EXPECT_EQ(browser.body,
              "POST https://a.test/post|User-Agent: me|Accept: */*|Content-Type: "
              "application/x-www-form-urlencoded||body");
    curl_easy_getinfo(browser.easy.get(), CURLINFO_NUM_CONNECTS, &connections);
    EXPECT_EQ(connections, 0) << "the connection was kept";
    browser.Set(CURLOPT_HTTPGET, 1L);
    browser.Set(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
    curl_slist_free_all(headers);
    // Another name, an address, another port; each has a certificate of its own.
    for (const std::string url :
         {"https://b.test/", "https://192.0.2.1/", "https://[2001:db8::1]/", "https://c.test:80/"}) {
      EXPECT_EQ(browser.Get(url), CURLE_OK) << url;
      EXPECT_EQ(browser.body, "GET " + url + "|User-Agent: me|Accept: */*||");
    }
    EXPECT_NE(browser.Get("https://a.test/cut"), CURLE_OK) << "it does not look complete";
    EXPECT_EQ(browser.body, "half");
  });
  EXPECT_EQ(handler.Open(), 0U);
}

TEST_F(Interception, MegabytesPassWithBackPressure) {
  constexpr size_t kBytes = 32 << 20;
  size_t made = 0;
  handler.nextPiece = [&made] {
    const size_t count = std::min<size_t>(kBytes - made, 50'000);
    made += count;
    return std::string(count, static_cast<char>('a' + made % 7));
  };
  Browse(rootFile, [&](Browser& browser) {
    EXPECT_EQ(browser.Get("https://a.test/"), CURLE_OK);
    EXPECT_EQ(browser.body.size(), kBytes);
  });
  EXPECT_TRUE(handler.wasPaused);
}

TEST_F(Interception, WhatDoesNotBelongInsideIsRefused) {
  const struct {
    const char* request;
    const char* status;
  } rows[] = {
      {"GET / HTTP/1.1\r\nHost: b.test\r\n\r\n", "421 Misdirected Request"},
      {"GET / HTTP/1.1\r\nHost: a.test:444\r\n\r\n", "421 Misdirected Request"},
      {"GET https://a.test/ HTTP/1.1\r\nHost: a.test\r\n\r\n", "400 Bad Request"},
      {"CONNECT b.test:443 HTTP/1.1\r\nHost: a.test\r\n\r\n", "400 Bad Request"},
      {"GET / HTTP/1.1\r\nHost: A.TEST:443\r\nConnection: close\r\n\r\n", "200 OK"},
  };
  for (const auto& row : rows) {
    Browse(rootFile, [&](Browser& browser) {
      browser.Set(CURLOPT_CONNECT_ONLY, 1L);
      EXPECT_EQ(browser.Get("https://a.test/"), CURLE_OK);
      browser.Send(row.request);
      EXPECT_EQ(browser.ReadUntil("(end)").find("HTTP/1.1 " + std::string(row.status)), 0U) << row.request;
    });
  }
  EXPECT_EQ(handler.started, 1U);
}

// A server that sees what is tunnelled to it.
TEST_F(Interception, SomeConnectionsAreTunnelledUntouched) {
  std::string seen;
  ScriptedServer server([&seen](Connection& connection) {
    seen = connection.ReadSome();
    connection.Write("a server's own bytes");
  });
  for (const char* const name :
       {"never.test", "sub.never.test", "plain.test", "constrained.test", "pinned.test", "certified.test"}) {
    settings.connectTo.push_back(std::string(name) + "::127.0.0.1:" + std::to_string(server.Port()));
  }
  settings.neverIntercept = {"never.test"};
  for (const std::string name : {"never.test", "sub.never.test"}) {
    Browse(rootFile, [&](Browser& browser) { EXPECT_NE(browser.Get("https://" + name + "/"), CURLE_OK); });
    EXPECT_EQ(seen.substr(0, 2), "\x16\x03") << name;
  }
  for (const std::string first :
       {"GET /chat HTTP/1.1\r\nOrigin: http://a.test\r\n\r\n", "\x16\x03 no TLS", "S"}) {
    Client([&](RawClient& client) {
      client.Send("CONNECT plain.test:80 HTTP/1.1\r\nHost: x\r\n\r\n");
      EXPECT_EQ(client.ReadUntil("\r\n\r\n"), "HTTP/1.1 200 Connection established\r\n\r\n");
      client.Send(first);
      EXPECT_EQ(client.ReadAll(), "a server's own bytes");
    });
    EXPECT_EQ(seen, first);
  }
  // One whose request in the clear says that its page may not go there.
  const int before = server.ConnectionCount();
  handler.addressRule = [](const std::string&) { return false; };
  Client([&](RawClient& client) {
    client.Send("CONNECT plain.test:80 HTTP/1.1\r\nHost: x\r\n\r\n");
    client.ReadUntil("\r\n\r\n");
    client.Send("GET /chat HTTP/1.1\r\nOrigin: http://a.test\r\n\r\n");
    EXPECT_EQ(client.ReadAll(), "");
  });
  EXPECT_EQ(handler.tunnelled, "http://plain.test/chat|Origin: http://a.test\r\n");
  EXPECT_EQ(server.ConnectionCount(), before);
  ASSERT_EQ(std::exchange(messages, {}).size(), 1U);
  // A client that does not take our certificate does so once.
  for (const bool intercepted : {true, false}) {
    seen.clear();
    Browse("/etc/ssl/certs/ca-certificates.crt", [&](Browser& browser) {
      const CURLcode result = browser.Get("https://pinned.test/");
      EXPECT_EQ(result == CURLE_PEER_FAILED_VERIFICATION, intercepted) << result;
    });
    EXPECT_EQ(seen.empty(), intercepted);
  }
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_NE(messages[0].find("does not accept this proxy's certificate for pinned.test"), std::string::npos);
  // A server that wants the browser's certificate: the browser asks again, in a tunnel.
  seen.clear();
  handler.replies["https://certified.test/"] = {.head = "", .result = host::kClientCertificateNeeded};
  Browse(rootFile, [&](Browser& browser) {
    browser.Set(CURLOPT_FOLLOWLOCATION, 1L);
    EXPECT_NE(browser.Get("https://certified.test/"), CURLE_OK) << "the server speaks no TLS";
  });
  EXPECT_EQ(seen.substr(0, 2), "\x16\x03");
  EXPECT_NE(messages.back().find("certified.test asks for a client's certificate"), std::string::npos);
  // An authority that is for other names.
  settings.authority = std::make_shared<live::Authority>(live::MakeAuthority({"a.test"}));
  Listen();
  Browse(rootFile, [&](Browser& browser) { EXPECT_NE(browser.Get("https://constrained.test/"), CURLE_OK); });
  EXPECT_EQ(seen.substr(0, 2), "\x16\x03");
  EXPECT_EQ(handler.started, 1U);
}

TEST_F(Interception, BrokenHandshakesEndTheConnection) {
  settings.idleMs = settings.headMs = 500;
  const std::string record("\x16\x03\x01\x00\x05\x01", 6);
  for (const std::string& bytes :
       {std::string(), record.substr(0, 3), record, record + std::string(300, 'x')}) {
    Client([&](RawClient& client) {
      client.Send("CONNECT a.test:443 HTTP/1.1\r\nHost: x\r\n\r\n");
      client.ReadUntil("\r\n\r\n");
      client.Send(bytes);
      EXPECT_EQ(client.ReadAll().find("(late)"), std::string::npos);
      EXPECT_TRUE(Becomes([this] { return front->ConnectionCount() == 0; }));
    });
  }
  Browse(rootFile, [&](Browser& browser) { EXPECT_NE(browser.Get("https://.bad/"), CURLE_OK); });
}

// `openssl s_server -rev` says each line backwards.
TEST_F(Interception, AWebSocketReachesItsServerOverTls) {
  if (!IsInstalled("openssl")) GTEST_SKIP() << "there is no openssl";
  ASSERT_TRUE(MakeCertificate(folder.Path()));
  const int port = FreePort();
  const ChildProcess server({"openssl", "s_server", "-rev", "-quiet", "-accept", std::to_string(port),
                             "-cert", folder.File("cert.pem"), "-key", folder.File("key.pem")});
  ASSERT_TRUE(WaitForPort(port));
  settings.connectTo = {"localhost:443:127.0.0.1:" + std::to_string(port),
                        "other.test:443:127.0.0.1:" + std::to_string(port)};
  const struct {
    std::string trusted;
    const char* host;
    const char* received;
    const char* why;
  } rows[] = {
      {folder.File("cert.pem"), "localhost", "1.1/PTTH tahc/ TEG", ""},
      {folder.File("cert.pem"), "other.test", "502 Bad Gateway", "it is no certificate for that name"},
      {rootFile, "localhost", "502 Bad Gateway", "it is not trusted"},
  };
  for (const auto& row : rows) {
    settings.upstreamCaFile = row.trusted;
    Listen();
    Browse(rootFile, [&](Browser& browser) {
      browser.Set(CURLOPT_CONNECT_ONLY, 1L);
      EXPECT_EQ(browser.Get("https://" + std::string(row.host) + "/"), CURLE_OK);
      browser.Send("GET /chat HTTP/1.1\r\nHost: " + std::string(row.host) +
                   "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n\r\n");
      EXPECT_NE(browser.ReadUntil(row.received).find(row.received), std::string::npos) << row.why;
      if (row.received[0] != '1') return;
      browser.Send("frame\n");
      EXPECT_NE(browser.ReadUntil("emarf").find("emarf"), std::string::npos);
    });
  }
  settings.upstreamCaFile = folder.File("missing.pem");
  EXPECT_THROW(Listen(), std::runtime_error);
  EXPECT_EQ(handler.started, 0U);
}

}  // namespace
}  // namespace tests
