// Requests as browsers send them and what the handler hears of them; responses of the handler and what goes
// over the wire.
#include <gtest/gtest.h>

#include "tests/live/proxy/front/front_fixture.h"
#include "tests/support/header_lines.h"
#include "tests/support/text.h"

namespace tests {
namespace {

using Exchanges = FrontTest;

// The body of a response by chunks of which each is one line of the size and one of bytes.
std::string Chunk(const std::string& body) {
  char size[16];
  std::snprintf(size, sizeof size, "%zx", body.size());
  return size + ("\r\n" + body + "\r\n");
}

TEST_F(Exchanges, TheHandlerHearsWhatTheServerShallHear) {
  const struct {
    std::string bytes;  // sent, with "\n" for line ends; the head ends with an empty line
    std::string asked;
    const char* why;
  } rows[] = {
      {"GET http://a.test/x?y=1 HTTP/1.1\nHost: a.test\nAccept: */*\nCookie: a=1\n\n",
       "GET http://a.test/x?y=1|Accept: */*|Cookie: a=1||", "as it came, without Host"},
      {"GET http://a.test/ HTTP/1.1\nHost: b.test\n\n", "GET http://a.test/||", "the URL wins over Host"},
      {"GET HTTP://A.Test:80 HTTP/1.1\nHost: a.test\n\n", "GET http://a.test/||", "one text for one URL"},
      {"GET http://a.test:81?q HTTP/1.1\nHost: a.test\n\n", "GET http://a.test:81/?q||", "its path is empty"},
      {"GET http://[2001:DB8::1]:8080/ HTTP/1.1\nHost: x\n\n", "GET http://[2001:db8::1]:8080/||", "IPv6"},
      {"\n\nGET http://a.test/ HTTP/1.1\nHost: a.test\n\n", "GET http://a.test/||", "empty lines before it"},
      {"GET http://a.test/ HTTP/1.0\n\n", "GET http://a.test/||", "HTTP/1.0 needs no Host"},
      {"GET http://a.test/ HTTP/1.1\nHost: x\nConnection: close, X-Mine\nX-Mine: 1\nKeep-Alive: 9\nTE: "
       "trailers\n"
       "Proxy-Connection: keep-alive\nProxy-Authorization: Basic eDp5\nTrailer: X\nUpgrade: h2c\n"
       "HTTP2-Settings: AA\nA: 1\n\n",
       "GET http://a.test/|A: 1||", "what belongs to the connection stays here"},
      {"GET http://a.test/ HTTP/1.1\nHost: x\nA: 1\n  2\nA: 3\nEmpty:\n\n",
       "GET http://a.test/|A: 1 2|A: 3|Empty: ||", "folded, repeated and empty headers"},
      {"POST http://a.test/ HTTP/1.1\nHost: x\nContent-Length: 4\n\nbody", "POST http://a.test/||body",
       "a length"},
      {"PUT http://a.test/ HTTP/1.1\nHost: x\nContent-Length: 0\n\n", "PUT http://a.test/||",
       "a body of no bytes"},
      {"POST http://a.test/ HTTP/1.1\nHost: x\nTransfer-Encoding: chunked\n\n4;x=y\nbody\n1\n!\n0\nTrailer: "
       "1\n\n",
       "POST http://a.test/||body!", "chunks, with an extension and a trailer"},
      {"DELETE http://a.test/ HTTP/1.1\nHost: x\n\n", "DELETE http://a.test/||", "any method"},
  };
  for (const auto& row : rows) {
    handler.asked.clear();
    Client([&](RawClient& client) {
      client.Send(HeaderText(row.bytes));
      client.ReadUntil(row.asked);
    });
    ASSERT_EQ(handler.asked.size(), 1U) << row.why;
    EXPECT_EQ(handler.asked[0], row.asked) << row.why;
  }
  settings.viaName = "kiv-1";
  Listen();
  EXPECT_NE(Exchange("GET http://a.test/ HTTP/1.0\r\nVia: 1.1 other\r\n\r\n").find("Via: 1.1 kiv-1"),
            std::string::npos);
  EXPECT_EQ(Exchange("GET http://a.test/ HTTP/1.0\r\nVia: 1.1 other, 1.1 kiv-1\r\n\r\n").substr(9, 3), "508");
}

Reply Head(const std::string& head, const std::vector<std::string>& body = {}) {
  return {.head = head, .body = body};
}

TEST_F(Exchanges, ResponsesEndWhereTheirFramingSays) {
  const Reply ok{.head = "HTTP/1.1 200 OK\nContent-Length: 4\nA: 1\n", .body = {"bo", "dy"}};
  const Reply unknown{.head = "HTTP/1.1 200 OK\nA: 1\n", .body = {"bo", "dy"}};
  const Reply tooShort{.head = ok.head, .body = {"bo"}}, tooLong{.head = ok.head, .body = {"bo", "dyand"}};
  const Reply cut{.head = unknown.head, .body = {"bo"}, .result = host::kConnectionClosed};
  Reply hinted = ok;
  hinted.informational = {"HTTP/1.1 103 Early Hints\nLink: </a>\n", "HTTP/1.1 100 Continue\n",
                          "HTTP/1.1 101 Switching Protocols\n"};
  const std::string okHead = "HTTP/1.1 200 OK\r\nA: 1\r\n";
  const std::string close = "Connection: close\r\n";
  const struct {
    Reply reply;
    std::string request;  // its line and headers
    std::string received;
    bool kept;  // the connection takes another request
    const char* why;
  } rows[] = {
      {ok, "GET", okHead + "Content-Length: 4\r\n\r\nbody", true, "a length"},
      {unknown, "GET", okHead + "Transfer-Encoding: chunked\r\n\r\n" + Chunk("bo") + Chunk("dy") + Chunk(""),
       true, "none: chunks"},
      {ok, "HEAD", okHead + "Content-Length: 4\r\n\r\n", true, "HEAD has no body, even if one comes"},
      {unknown, "HEAD", okHead + "\r\n", true, "and no chunks"},
      {Head("HTTP/1.1 204 No Content\nContent-Length: 0\n"), "GET", "HTTP/1.1 204 No Content\r\n\r\n", true,
       ""},
      {Head("HTTP/1.1 304 Not Modified\nContent-Length: 9\nETag: \"1\"\n"), "GET",
       "HTTP/1.1 304 Not Modified\r\nETag: \"1\"\r\nContent-Length: 9\r\n\r\n", true,
       "the length is that of what was not sent"},
      {Head("HTTP/1.1 302\nLocation: /x\nContent-Length: 0\n"), "GET",
       "HTTP/1.1 302\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n", true, "no reason given, not followed"},
      {hinted, "GET",
       "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n" + okHead + "Content-Length: 4\r\n\r\nbody", true,
       "hints pass; what concerns one connection does not"},
      {Head(ok.head + "Connection: X\nKeep-Alive: 1\nTransfer-Encoding: chunked\nUpgrade: h2\nBad\r: 1\n",
            ok.body),
       "GET", okHead + "Content-Length: 4\r\n\r\nbody", true,
       "headers of a connection, and one that splits lines"},
      {Head("HTTP/1.1 200 OK\nSet-Cookie: a=1\nSet-Cookie: b=2\nContent-Length: 0\n"), "GET",
       "HTTP/1.1 200 OK\r\nSet-Cookie: a=1\r\nSet-Cookie: b=2\r\nContent-Length: 0\r\n\r\n", true,
       "repeated headers stay apart"},
      {unknown, "GET 1.0", okHead + close + "\r\nbody", false,
       "HTTP/1.0 knows no chunks: the end is the end"},
      {ok, "GET 1.0", okHead + "Content-Length: 4\r\n" + close + "\r\nbody", false, "nor to be kept"},
      {ok, "GET 1.0 keep-alive", okHead + "Content-Length: 4\r\nConnection: keep-alive\r\n\r\nbody", true,
       "unless it asks"},
      {ok, "GET close", okHead + "Content-Length: 4\r\n" + close + "\r\nbody", false, "as it was asked"},
      // Responses that are cut.
      {tooShort, "GET", okHead + "Content-Length: 4\r\n\r\nbo", false, "too short"},
      {tooLong, "GET", okHead + "Content-Length: 4\r\n\r\nbo", false, "too long"},
      {cut, "GET", okHead + "Transfer-Encoding: chunked\r\n\r\n" + Chunk("bo"), false,
       "without the last chunk"},
      {cut, "GET 1.0", okHead + close + "\r\nbo(reset)", false, "only a reset tells it from a whole one"},
  };
  for (const auto& row : rows) {
    const bool old = row.request.find("1.0") != std::string::npos;
    std::string request = row.request.substr(0, row.request.find(' ')) + " http://a.test/ HTTP/1.";
    request += old ? "0\r\n" : "1\r\nHost: a.test\r\n";
    if (row.request.ends_with("keep-alive")) request += "Connection: keep-alive\r\n";
    if (row.request.ends_with("close")) request += close;
    handler.replies["http://a.test/"] = row.reply;
    handler.replies["http://a.test/last"] = {.head = "HTTP/1.1 200 LAST\n"};
    std::string received = Exchange(request + "\r\nGET http://a.test/last HTTP/1.0\r\n\r\n");
    const std::string last = "HTTP/1.1 200 LAST\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(received.ends_with(last), row.kept) << row.why;
    if (received.ends_with(last)) received.resize(received.size() - last.size());
    EXPECT_EQ(received, row.received) << row.why;
  }
  EXPECT_EQ(handler.Open(), 0U);
}

TEST_F(Exchanges, LoadsThatFailAreExplained) {
  const struct {
    int32_t result;
    const char* status;
    const char* words;
  } rows[] = {
      {host::kNameNotResolved, "502 Bad Gateway", "The name of the server a.test:81 could not be resolved."},
      {host::kConnectionFailed, "502 Bad Gateway", "could not be reached"},
      {host::kConnectionClosed, "502 Bad Gateway", "closed the connection"},
      {host::kCertificateError, "502 Bad Gateway", "certificate"},
      {host::kInvalidResponse, "502 Bad Gateway", "not valid"},
      {host::kTimedOut, "504 Gateway Timeout", "did not answer in time"},
      {-1234, "502 Bad Gateway", "-1234"},
      {host::kOk, "502 Bad Gateway", "without a complete response"},
  };
  const std::string request = "http://a.test:81/ HTTP/1.1\r\nHost: a.test\r\n";
  for (const auto& row : rows) {
    handler.replies["http://a.test:81/"] = {.head = "", .result = row.result};
    // The connection lives on, and HEAD gets the head alone.
    const std::string received =
        Exchange("HEAD " + request + "\r\nGET " + request + "Connection: close\r\n\r\n");
    EXPECT_EQ(received.find("HTTP/1.1 " + std::string(row.status) + "\r\n"), 0U) << received;
    EXPECT_EQ(received.find(row.words), received.rfind(row.words)) << received;
    EXPECT_NE(received.find(row.words), std::string::npos) << received;
    EXPECT_NE(received.find("Content-Type: text/plain"), std::string::npos);
  }
}

TEST_F(Exchanges, ListensOnlyWhereItMay) {
  const struct {
    live::FrontSettings settings;
    const char* message;  // a part of it
  } rows[] = {
      {{}, "none"},
      {{.address = "::1"}, "none"},
      {{.address = "localhost"}, "must be numeric"},
      {{.address = "0.0.0.0"}, "can be reached from other machines"},
      {{.address = "::", .listenAnywhere = true}, "password must be set"},
      {{.address = "0.0.0.0", .listenAnywhere = true, .password = "secret"}, "none"},
      {{.address = "192.0.2.1", .listenAnywhere = true, .password = "secret"}, "cannot listen at 192.0.2.1"},
  };
  for (const auto& row : rows) {
    settings = row.settings;
    const std::string message = ErrorOf([&] { Listen(); });
    EXPECT_NE(message.find(row.message), std::string::npos) << message;
    EXPECT_TRUE(message != "none" || front->Port() != 0);
  }
  settings = {};
  Listen();
  settings.port = front->Port();
  EXPECT_EQ(front->Address(), "127.0.0.1:" + std::to_string(settings.port));
  EXPECT_THROW(live::FrontServer(loop, handler, settings), std::runtime_error) << "the port is taken";
}

}  // namespace
}  // namespace tests
