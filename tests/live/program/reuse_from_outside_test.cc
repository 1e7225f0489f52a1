// Which requests kiv_proxy answers from a preload and which go to the server, rule by rule, as a browser and
// a server see it.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <mutex>
#include <regex>
#include <string>
#include <thread>

#include "tests/live/support/proxy_process.h"
#include "tests/live/support/raw_client.h"
#include "tests/live/support/scripted_server.h"

namespace tests {
namespace {

struct Row {
  const char* why;         // what the proxy says: "held", or the reason why not
  std::string request;     // its method and header lines; then, behind an empty line, its body
  std::string response{};  // further header lines of the server
  std::string taught{};    // header lines of the earlier visit's request
  std::string status = "200";
  bool isOrdered = true;  // the second visit preloads it
  std::string before{};   // a request that the page makes for the same URL before
};

const std::string kDate = "Sun, 06 Nov 1994 08:49:37 GMT";
const std::string kLater = "Mon, 07 Nov 1994 08:49:37 GMT";

const Row kRows[] = {
    {"held", "GET "},
    // The method and the body.
    {"not a GET", "POST Content-Length: 4\r\n\r\nbody"},
    {"not a GET", "HEAD "},
    {"not a GET", "PURGE "},
    {"request with a body", "GET Content-Length: 4\r\n\r\nbody"},
    // Parts and conditions.
    {"request for a range", "GET Range: bytes=0-1\r\n"},
    {"request with a precondition", "GET If-Range: \"a\"\r\n", "ETag: \"a\"\r\n"},
    {"request with a precondition", "GET If-Match: \"a\"\r\n", "ETag: \"a\"\r\n"},
    {"request with a precondition", "GET If-Unmodified-Since: " + kDate + "\r\n",
     "Last-Modified: " + kDate + "\r\n"},
    {"held", "GET If-None-Match: \"a\"\r\n", "ETag: \"a\"\r\n", "", "304"},
    {"held", "GET If-None-Match: \"x\", W/\"a\"\r\n", "ETag: \"a\"\r\n", "", "304"},
    {"held", "GET If-None-Match: \"b\"\r\n", "ETag: \"a\"\r\n"},
    {"held", "GET If-None-Match: *\r\n", "", "", "304"},
    {"held", "GET If-Modified-Since: " + kLater + "\r\n", "Last-Modified: " + kDate + "\r\n", "", "304"},
    {"held", "GET If-Modified-Since: " + kDate + "\r\n", "Last-Modified: " + kLater + "\r\n"},
    {"held", "GET If-None-Match: \"b\"\r\nIf-Modified-Since: " + kLater + "\r\n",
     "ETag: \"a\"\r\nLast-Modified: " + kDate + "\r\n"},
    // Who asks.
    {"request with Authorization", "GET Authorization: Basic eA==\r\n"},
    {"held", "GET Cookie: a=1; b=2\r\n", "", "Cookie: a=1; b=2\r\n"},
    {"held", "GET Cookie: b=2\r\nCookie: a=1\r\n", "", "Cookie: a=1; b=2\r\n"},
    {"other cookies", "GET Cookie: a=2\r\n", "", "Cookie: a=1\r\n"},
    {"other cookies", "GET ", "", "Cookie: a=1\r\n"},
    {"other credentials", "GET Sec-Fetch-Mode: cors\r\n", "", "Sec-Fetch-Mode: no-cors\r\n"},
    // What it may be answered with.
    {"request for a new copy", "GET Cache-Control: no-cache\r\n"},
    {"request for a new copy", "GET Cache-Control: a=\"b,c\", No-Store\r\n"},
    {"request for a new copy", "GET Pragma: no-cache\r\n"},
    {"held", "GET Cache-Control: max-age=0\r\n"},
    {"held", "GET X: 2\r\n", "", "X: 1\r\n"},
    {"held", "GET X: 1,2\r\n", "Vary: x\r\n", "X: 1, 2\r\n"},
    {"another variant", "GET X: 2\r\n", "Vary: Accept, X\r\n", "X: 1\r\n"},
    {"another variant", "GET ", "Vary: X\r\n", "X: 1\r\n"},
    {"another variant", "GET X: 1\r\n", "Vary: *\r\n", "X: 1\r\n"},
    {"coding not accepted", "GET Accept-Encoding: gzip\r\n", "Content-Encoding: br\r\n",
     "Accept-Encoding: br\r\n"},
    {"coding not accepted", "GET Accept-Encoding: br;q=0, *\r\n", "Content-Encoding: br\r\n",
     "Accept-Encoding: br\r\n"},
    // What can be held at all.
    {"HTML", "GET ", "Content-Type: text/html\r\n", "", "200", false},
    // Once for the page that has ordered it, unless something has changed it.
    {"used before on this page", "GET ", "", "", "200", true, "GET "},
    {"changed by a request", "GET ", "", "", "200", true, "POST Content-Length: 1\r\n\r\nx"},
};

class ReuseFromOutside : public testing::Test {
 protected:
  // Each answer has a number of its own.
  void Serve(Connection& connection) {
    for (std::string request; !(request = connection.ReadRequest()).empty();) {
      const size_t begin = request.find(' ') + 1;
      const std::string path = request.substr(begin, request.find(' ', begin) - begin);
      const bool isPage = path.starts_with("/page");
      std::string headers = isPage ? "" : kRows[std::stoul(path.substr(1))].response;
      headers += "Cache-Control: no-store\r\nSet-Cookie: answered=1; Path=/elsewhere\r\n";
      const std::lock_guard hold(mutex);
      std::string response = OkResponse(headers, "answer " + std::to_string(++asked[path]));
      if (request.starts_with("HEAD")) response.resize(response.find("\r\n\r\n") + 4);
      connection.Write(response);
    }
  }
  int Asked(const std::string& path) {
    const std::lock_guard hold(mutex);
    return asked[path];
  }
  std::string Send(const std::string& request, const std::string& path, const std::string& referer) {
    const std::string origin = "http://a.test:" + std::to_string(server.Port());
    const size_t blank = request.find(' ');
    RawClient client(proxy.Port());
    std::string text = request.substr(0, blank) + " " + origin + path + " HTTP/1.0\r\n";
    text += referer.empty() ? "Sec-Fetch-Dest: document\r\nSec-Fetch-Site: none\r\n"
                            : "Sec-Fetch-Dest: image\r\nReferer: " + origin + referer + "\r\n";
    text += request.substr(blank + 1);
    client.Send(text.find("\r\n\r\n") == std::string::npos ? text + "\r\n" : text);
    return client.ReadAll();
  }

  std::mutex mutex;
  std::map<std::string, int> asked;  // by path
  ScriptedServer server{[this](Connection& connection) { Serve(connection); }};
  const TemporaryFolder folder;
  ProxyProcess proxy{folder, "--mark --state " + folder.File("pages.db") + " --hosts " +
                                 folder.Write("hosts", "127.0.0.1 a.test\n")};
};

TEST_F(ReuseFromOutside, WhatIsAnsweredFromAPreload) {
  ASSERT_TRUE(proxy.Started()) << proxy.Errors();
  for (size_t number = 0; number < std::size(kRows); ++number) {
    const Row& row = kRows[number];
    const std::string path = "/" + std::to_string(number), page = "/page" + path;
    SCOPED_TRACE(row.why + (": " + row.request) + "| " + row.response + "| " + row.taught);
    Send("GET " + (row.taught.starts_with("Cookie") ? row.taught : ""), page, "");
    EXPECT_TRUE(Send("GET " + row.taught, path, page).ends_with("answer 1"));
    Send("GET " + (row.taught.starts_with("Cookie") ? row.taught : ""), page, "");
    if (row.isOrdered) {
      EXPECT_TRUE(Eventually([&] { return Asked(path) == 2; })) << "it is preloaded";
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (!row.before.empty()) Send(row.before, path, page);
    const int before = Asked(path);
    const std::string received = Send(row.request, path, page);
    const bool held = std::string(row.why) == "held";
    const std::string mark = held ? "(served|joined)" : "network: " + std::string(row.why);
    EXPECT_TRUE(std::regex_search(received, std::regex("preload;desc=\"" + mark + "\""))) << received;
    EXPECT_EQ(Asked(path), held ? before : before + 1) << "requests at the server";
    EXPECT_EQ(received.substr(9, 3), row.status) << received;
    const bool hasBody = row.status == "200" && !row.request.starts_with("HEAD");
    EXPECT_TRUE(received.ends_with(hasBody ? "answer " + std::to_string(Asked(path)) : "\r\n\r\n"))
        << received;
    EXPECT_NE(received.find("Set-Cookie: answered=1"), std::string::npos);
    EXPECT_EQ(received.find("Set-Cookie"), received.rfind("Set-Cookie")) << "once";
  }
  EXPECT_EQ(Send("GET ", "/0#part", "/page/0").substr(9, 3), "400") << "a fragment is never sent";
}

}  // namespace
}  // namespace tests
