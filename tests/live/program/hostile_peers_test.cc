// kiv_proxy as a program between peers that mean no good: what each of them gets, with preloading as without,
// and that memory and descriptors are afterwards what they were before.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/live/support/proxy_process.h"
#include "tests/live/support/raw_client.h"
#include "tests/live/support/scripted_server.h"

namespace tests {
namespace {

constexpr int kVisits = 3;  // until the proxy is as large as it gets; the first one teaches
constexpr size_t kGrowthKb = 8192;
const std::string kEnds = "\r\nConnection: close\r\n\r\n";
const std::string kOk = "HTTP/1.1 200 OK\r\n";
const std::string kInvalid = "HTTP/1.1 502 Bad Gateway\r\n";  // and a page that says so

// What a server answers. The client speaks HTTP/1.0, so that it gets bodies without chunks.
struct Answer {
  const char* why;
  std::string bytes;
  std::string received;  // all of it; of an error page, and where `again` never ends, the beginning
  std::string again{};   // what the server sends then, as often as somebody takes it
  int pauseMs = 0;       // before each byte
  bool stays = false;    // the server does not close the connection
};

std::vector<Answer> Answers() {
  const std::string chunked = kOk + "Transfer-Encoding: chunked\r\n\r\n";
  const std::string unknown = kOk + kEnds.substr(2);
  const auto declared = [](const std::string& length, const std::string& headers = "") {
    return kOk + headers + "Content-Length: " + length;
  };
  const std::string evil = declared("4") + "\r\n\r\nevil";
  const std::string bomb = std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10) + std::string(9990, 'x');
  const std::string megabyte(1 << 20, 'x');
  std::vector<Answer> rows = {
      {"an honest one", declared("4") + "\r\n\r\nbody", declared("4") + kEnds + "body"},
      // Lengths.
      {"less than declared", declared("10") + "\r\n\r\nbody", declared("10") + kEnds + "body"},
      {"more than declared", declared("2") + "\r\n\r\nbody", declared("2") + kEnds + "bo"},
      {"more than declared, and stays", declared("4") + "\r\n\r\nbody" + evil, declared("4") + kEnds + "body",
       "", 0, true},
      {"two lengths", kOk + "Content-Length: 4\r\nContent-Length: 5\r\n\r\nbodyx", kInvalid},
      {"a list of lengths", declared("4, 5") + "\r\n\r\nbodyx", kInvalid},
      {"a negative length", declared("-4") + "\r\n\r\nbody", kInvalid},
      {"a length that does not fit", declared("99999999999999999999") + "\r\n\r\nbody", kInvalid},
      {"a length beside chunks",
       declared("99") + "\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\n\r\n", unknown + "body"},
      // Chunks.
      {"no size of a chunk", chunked + "zz\r\nbody", unknown + "(reset)"},
      {"a size that does not fit", chunked + "11111111111111111\r\nbody", unknown + "(reset)"},
      {"a chunk that is too long", chunked + "2\r\nbody\r\n0\r\n\r\n", unknown + "bo(reset)"},
      {"no last chunk", chunked + "4\r\nbody\r\n", unknown + "body(reset)"},
      // Ends.
      {"nothing", "", kInvalid},
      {"half a head", kOk + "Content-Le", kInvalid},
      {"one byte after the other", declared("4") + "\r\n\r\nbody", declared("4") + kEnds + "body", "", 4},
      {"a body without end", kOk + "\r\n", unknown + megabyte + megabyte, megabyte},
      {"chunks without end", chunked, unknown + megabyte + megabyte, "100000\r\n" + megabyte + "\r\n"},
      {"headers without end", kOk, kInvalid, "X: " + megabyte.substr(0, 50'000) + "\r\n"},
      {"a header without end", kOk + "X: ", kInvalid, megabyte},
      {"a status line without end", "HTTP/1.1 200 ", kInvalid, megabyte},
      {"hints without end", "", kInvalid, "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"},
      {"trailers without end", chunked + "4\r\nbody\r\n0\r\n", unknown + "body(reset)",
       "X: " + megabyte.substr(0, 5000) + "\r\n"},
      // More than one response.
      {"a header that splits lines", declared("4", "Location: /\rSet-Cookie: evil=1\r\n") + "\r\n\r\nbody",
       declared("4") + kEnds + "body"},
      {"a NUL byte", declared("4", std::string("X: a\0b\r\n", 8)) + "\r\n\r\nbody", kInvalid},
      {"two responses", declared("0") + "\r\n\r\n" + evil, declared("0") + kEnds, "", 0, true},
      {"unasked for 101", "HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n" + evil, kInvalid},
      {"no HTTP", "SSH-2.0-x\r\n", kInvalid},
      {"a status that is none", "HTTP/1.1 99999 OK\r\n\r\n", kInvalid},
      // Codings are the browser's affair.
      {"a coding that it is not", declared("4", "Content-Encoding: gzip\r\n") + "\r\n\r\nbody",
       declared("4", "Content-Encoding: gzip\r\n") + kEnds + "body"},
      {"a bomb", declared("10000", "Content-Encoding: gzip\r\n") + "\r\n\r\n" + bomb,
       declared("10000", "Content-Encoding: gzip\r\n") + kEnds + bomb},
      {"nested codings",
       declared("4", "Content-Encoding: gzip, gzip, br, gzip, x, gzip, gzip\r\n") + "\r\n\r\nbody",
       declared("4", "Content-Encoding: gzip, gzip, br, gzip, x, gzip, gzip\r\n") + kEnds + "body"},
      {"a coding of the transfer",
       kOk + "Transfer-Encoding: gzip, chunked\r\n\r\n2710\r\n" + bomb + "\r\n0\r\n\r\n", kInvalid},
      // Redirects are not followed.
      {"a redirect in a circle", "HTTP/1.1 302 Found\r\nLocation: ?\r\nContent-Length: 0\r\n\r\n",
       "HTTP/1.1 302 Found\r\nLocation: ?\r\nContent-Length: 0" + kEnds},
  };
  return rows;
}

class HostilePeers : public testing::Test {
 protected:
  // "/page/N" is a page, "/N" its resource with the answer of that number.
  void Serve(Connection& connection) {
    ++serving;
    for (std::string request; !(request = connection.ReadRequest()).empty();) {
      const size_t begin = request.find(' ') + 1;
      const std::string path = request.substr(begin, request.find(' ', begin) - begin);
      const bool isAnswer = path.find_first_not_of("0123456789", 1) == std::string::npos;
      if (isAnswer && !Send(connection, answers.at(std::stoul(path.substr(1))))) break;
      if (isAnswer) continue;
      if (path == "/endless" && !Send(connection, {"", kOk + "\r\n", "", std::string(50'000, 'x')})) break;
      const size_t host = request.find("\r\nHost: ") + 8;
      {
        const std::lock_guard hold(mutex);
        reached.push_back(path + " " + request.substr(host, request.find(':', host) - host));
      }
      connection.Write(OkResponse("Content-Type: text/html\r\nCache-Control: no-store\r\n", "page"));
    }
    --serving;
  }
  bool Send(Connection& connection, const Answer& answer) {
    if (answer.pauseMs == 0) {
      connection.Write(answer.bytes);
    } else {
      for (const char c : answer.bytes) {
        connection.Pause(answer.pauseMs);
        connection.Write(std::string(1, c));
      }
    }
    while (!answer.again.empty() && connection.Write(answer.again)) {
    }
    return answer.stays;
  }

  std::string Url(const std::string& path) const {
    return "http://a.test:" + std::to_string(server.Port()) + path;
  }
  std::string Expanded(const std::string& text) const {
    std::string bytes;
    for (const char c : text) {
      bytes += c == '\n'  ? "\r\n"
               : c == '$' ? Url("")
               : c == '@' ? std::to_string(proxy.Port())
               : c == '&' ? "Host: x\r\nSec-Fetch-Site: none\r\n"
                          : std::string(1, c);
    }
    return bytes;
  }
  // Whatever they do, doing it again takes nothing more.
  void ExpectNoGrowth(const std::function<void()>& act) {
    act();
    const size_t descriptors = proxy.Descriptors();
    [[maybe_unused]] const size_t kb = proxy.PeakKb();
    act();
    EXPECT_TRUE(Eventually([this] { return serving <= 1; })) << "connections that nobody needs any more";
    EXPECT_TRUE(Eventually([&] { return proxy.Descriptors() <= descriptors; })) << proxy.Descriptors();
#ifndef KIV_SANITIZED  // sanitizers keep what was freed
    EXPECT_LT(proxy.PeakKb(), kb + kGrowthKb) << "it was " << kb;
#endif
  }
  // What comes back, until the proxy closes or as much has come.
  std::string Exchange(const std::string& bytes, const std::string& enough = "") {
    RawClient client(proxy.Port());
    client.Send(bytes);
    return client.ReadUntil(enough);
  }
  std::string Get(const std::string& path, const std::string& headers, const std::string& enough = "") {
    return Exchange("GET " + Url(path) + " HTTP/1.0\r\n" + headers + "\r\n", enough);
  }
  void VisitEach() {
    for (size_t row = 0; row < answers.size(); ++row) {
      const Answer& answer = answers[row];
      const std::string number = std::to_string(row);
      const bool isPage = answer.received == kInvalid;
      const std::string page = Get("/page/" + number, "Sec-Fetch-Dest: document\r\nSec-Fetch-Site: none\r\n");
      EXPECT_TRUE(page.starts_with(kOk)) << answer.why << ": " << page;
      const std::string received =
          Get("/" + number, "Sec-Fetch-Dest: image\r\nReferer: " + Url("/page/" + number) + "\r\n",
              answer.again.empty() ? "" : answer.received);
      EXPECT_TRUE(isPage ? received.starts_with(kInvalid) : received == answer.received)
          << answer.why << ": " << received.substr(0, 2000);
    }
  }

  const std::vector<Answer> answers = Answers();
  std::atomic<int> serving = 0;  // connections
  std::mutex mutex;
  std::vector<std::string> reached;  // path and host of each other request that came whole
  ScriptedServer server{[this](Connection& connection) { Serve(connection); }};
  const TemporaryFolder folder;
  ProxyProcess proxy{folder, "--state " + folder.File("pages.db") + " --json " + folder.File("pages.json") +
                                 " --hosts " + folder.Write("hosts", "127.0.0.1 a.test\n")};
};

TEST_F(HostilePeers, ServersHarmOnlyTheirOwnResponses) {
  ASSERT_TRUE(proxy.Started()) << proxy.Errors();
  ExpectNoGrowth([this] {
    for (int visit = 0; visit < kVisits; ++visit) VisitEach();
  });
  EXPECT_EQ(proxy.Stop(), 0) << proxy.Errors();
  const std::string pages = TextOf(folder.File("pages.json"));
  EXPECT_NE(pages.find("\"preloads\":1"), std::string::npos) << pages;
}

// What a client sends, with "\n" for line ends, '$' for the server's origin, '@' for the proxy's port, and
// '&' for a Host header beside one that says that the user has asked for it.
struct Client {
  const char* why;
  std::string bytes;
  std::string statuses;  // of the responses
  std::string reached;   // the server
  enum { Waits, ClosesHalf, VanishesReading, VanishesSending } then = Waits;
};

const std::string kTwo = "Content-Length: 4\nContent-Length: 5\n\nbodyx", kLast = "&Connection: close\n\n";
const Client kClients[] = {
    {"pipelined",
     "GET $/a HTTP/1.1\n&\nPOST $/b HTTP/1.1\nContent-Length: 4\n&\nbodyGET $/c HTTP/1.1\n" + kLast,
     "200 200 200 ", "/a a.test, /b a.test, /c a.test, "},
    {"two lengths", "POST $/a HTTP/1.1\n&" + kTwo + "GET $/b HTTP/1.1\n" + kLast, "400 ", ""},
    {"a length beside chunks",
     "POST $/a HTTP/1.1\n&Content-Length: 5\nTransfer-Encoding: chunked\n\n0\n\nGET $/b HTTP/1.1\n" + kLast,
     "400 ", ""},
    {"bytes behind the last chunk",
     "POST $/a HTTP/1.1\n&Transfer-Encoding: chunked\n\n1\nx\n0\n\nGET /b HTTP/1.1\n" + kLast, "200 400 ",
     "/a a.test, "},
    {"another Host than in the URL", "GET $/a HTTP/1.1\n" + kLast, "200 ", "/a a.test, "},
    {"the form of requests for web servers", "GET /a HTTP/1.1\nHost: a.test\nConnection: close\n\n", "400 ",
     ""},
    {"the proxy itself", "GET http://127.0.0.1:@/a HTTP/1.1\n" + kLast, "508 ", ""},
    {"a tunnel to the proxy itself", "CONNECT 127.0.0.1:@ HTTP/1.1\n&\n", "403 ", ""},
    {"a tunnel to a mail server", "CONNECT a.test:25 HTTP/1.1\n&\n", "403 ", ""},
    {"an upgrade to HTTP/2",
     "GET $/a HTTP/1.1\nUpgrade: h2c\nHTTP2-Settings: AAMAAABkAARAAAAAAAIAAAAA\nConnection: Upgrade, "
     "HTTP2-Settings\n" +
         kLast,
     "200 ", "/a a.test, "},
    {"a head without end", "GET $/a HTTP/1.1\n&X: " + std::string(200'000, 'x'), "431 ", ""},
    {"a client that ends its direction", "GET $/endless HTTP/1.1\n&\n", "", "", Client::ClosesHalf},
    {"a client that vanishes", "GET $/endless HTTP/1.1\n&\n", "", "", Client::VanishesReading},
    {"a client that vanishes while it sends", "POST $/a HTTP/1.1\n&Content-Length: 9\n\nhalf", "", "",
     Client::VanishesSending},
};

TEST_F(HostilePeers, ClientsHarmOnlyThemselves) {
  ASSERT_TRUE(proxy.Started()) << proxy.Errors();
  ExpectNoGrowth([this] {
    for (const Client& row : kClients) {
      RawClient client(proxy.Port());
      client.Send(Expanded(row.bytes));
      if (row.then == Client::ClosesHalf) client.EndSending();
      if (row.then == Client::VanishesReading) client.ReadUntil("xxx");
      const std::string received = row.then == Client::Waits ? client.ReadAll() : "";
      if (row.then >= Client::VanishesReading) client.Close(true);
      std::string statuses;
      const std::regex status("HTTP/1\\.1 ([0-9]{3})");
      for (std::sregex_iterator found(received.begin(), received.end(), status);
           found != std::sregex_iterator(); ++found) {
        statuses += (*found)[1].str() + " ";
      }
      EXPECT_EQ(statuses, row.statuses) << row.why << ": " << received;
      EXPECT_TRUE(Eventually([this] { return serving <= 1; })) << row.why;
      std::string got;
      const std::lock_guard hold(mutex);
      for (const std::string& request : std::exchange(reached, {})) got += request + ", ";
      EXPECT_EQ(got, row.reached) << row.why;
    }
  });
  EXPECT_EQ(proxy.Stop(), 0) << proxy.Errors();
}

}  // namespace
}  // namespace tests
