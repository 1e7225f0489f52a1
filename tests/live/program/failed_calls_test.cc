// Every call that kiv_proxy makes of the system, of libcurl and of the allocator while it loads a page fails
// once: at most one load of the page fails, none is served wrong, and the next page is as if nothing had
// been.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/live/support/fail_one_call.h"
#include "tests/live/support/proxy_process.h"
#include "tests/live/support/raw_client.h"
#include "tests/live/support/scripted_server.h"

namespace tests {
namespace {

class FailedCalls : public testing::Test {
 protected:
  FailedCalls() {
    void* const mapped = mmap(nullptr, sizeof(FailControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    control = static_cast<FailControl*>(mapped);
  }
  ~FailedCalls() override {
    munmap(control, sizeof(FailControl));
    close(file);
  }
  // Paths that end with "close" end the connection as well.
  static void Serve(Connection& connection) {
    for (std::string request; !(request = connection.ReadRequest()).empty();) {
      const std::string path = request.substr(4, request.find(' ', 4) - 4);
      connection.Write(OkResponse("Cache-Control: no-store\r\n", BodyOf(path)));
      if (path.ends_with("close")) return;
    }
  }
  static std::string BodyOf(const std::string& path) { return "body of " + path + std::string(5000, 'x'); }

  void Start() {
    proxy.reset();
    proxy.emplace(folder, options, environment);
    ASSERT_TRUE(proxy->Started()) << proxy->Errors();
    Visit();
    EXPECT_EQ(Visit(), "++++");
  }
  // Loads a page and its resources. One sign for each: '+' for what the server sent, '-' for a clean failure,
  // '!' for anything else.
  std::string Visit() {
    const std::string origin = "http://a.test:" + std::to_string(server.Port());
    std::string signs;
    for (const std::string path : {"/page-close", "/1", "/2-close", "/3"}) {
      RawClient client(proxy->Port());
      client.Send("GET " + origin + path + " HTTP/1.0\r\n" +
                  (signs.empty() ? "Sec-Fetch-Dest: document\r\nSec-Fetch-Site: none\r\n"
                                 : "Sec-Fetch-Dest: image\r\nReferer: " + origin + "/page-close\r\n") +
                  "\r\n");
      const std::string received = client.ReadAll(), body = BodyOf(path);
      const bool whole = received.starts_with("HTTP/1.1 200 OK\r\n") &&
                         received.ends_with("\r\n\r\n" + body) &&
                         received.find("Content-Length: " + std::to_string(body.size())) != std::string::npos;
      const bool refused = received.starts_with("HTTP/1.1 502 ") || received.empty() ||
                           received == "(reset)" || received.starts_with("(refused)");
      // A length that is not reached tells the browser.
      const bool cut = received.size() < body.size() && received.starts_with("HTTP/1.1 200 OK\r\n");
      signs += whole ? '+' : refused || cut ? '-' : '!';
      if (signs.back() == '!') ADD_FAILURE() << received.substr(0, 500);
    }
    return signs;
  }
  void Arm(const char* call, int32_t error, uint64_t point) {
    std::strncpy(control->call, call, sizeof control->call - 1);
    control->error = error;
    control->failAt = point;
    control->calls = 0;
    control->armed = 1;
  }

  const TemporaryFolder folder;
  const std::string controlPath = folder.Write("control", std::string(sizeof(FailControl), '\0'));
  const int file = open(controlPath.c_str(), O_RDWR | O_CLOEXEC);
  FailControl* control;
  ScriptedServer server{Serve};
  const std::string options =
      "--state " + folder.File("pages.db") + " --hosts " + folder.Write("hosts", "127.0.0.1 a.test\n");
  const std::string environment = "ASAN_OPTIONS=verify_asan_link_order=0 KIV_FAIL_CONTROL=" + controlPath +
                                  " LD_PRELOAD=" KIV_FAIL_ONE_CALL_PATH;
  std::optional<ProxyProcess> proxy;
};

// More connections than the program may open: some loads wait or fail, none is wrong, and all is well when
// they end.
TEST_F(FailedCalls, UsedUpDescriptorsAreFreeAgainAfterwards) {
  proxy.emplace(folder, options, "ulimit -n 40;");
  ASSERT_TRUE(proxy->Started()) << proxy->Errors();
  Visit();
  {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 60; ++i) {
      clients.push_back(std::make_unique<RawClient>(proxy->Port()));
      clients.back()->Send("GET http://a.test:" + std::to_string(server.Port()) +
                           "/1 HTTP/1.1\r\nHost: x\r\n" + "Sec-Fetch-Site: none\r\n\r\n");
    }
    for (const auto& client : clients) client->EndSending();
    for (const auto& client : clients) {
      const std::string received = client->ReadAll();
      EXPECT_TRUE(received.empty() || received.starts_with("(reset)") ||
                  received.starts_with("HTTP/1.1 502 ") || received.find(BodyOf("/1")) != std::string::npos)
          << received.substr(0, 200);
    }
  }
  EXPECT_EQ(Visit(), "++++") << proxy->Errors();
  EXPECT_EQ(proxy->Stop(), 0) << proxy->Errors();
}

struct Call {
  const char* name;
  int32_t error;
  uint64_t step = 1;  // of the calls, one in so many fails
};

void PrintTo(const Call& call, std::ostream* out) {
  *out << call.name;
}

class FailedCallsOf : public FailedCalls, public testing::WithParamInterface<Call> {};

TEST_P(FailedCallsOf, CostOneLoadAtMost) {
  const Call call = GetParam();
  Start();
  const size_t descriptors = proxy->Descriptors();
  size_t points = 0;
  for (uint64_t point = 1;; point += call.step) {
    SCOPED_TRACE(std::string(call.name) + " " + std::to_string(point));
    Arm(call.name, call.error, point);
    const std::string signs = Visit();
    control->armed = 0;
    if (control->calls < point) break;
    ++points;
    const auto failed = std::count(signs.begin(), signs.end(), '-');
    EXPECT_LE(failed, 1) << signs;
    ASSERT_TRUE(proxy->IsRunning()) << proxy->Errors();
    EXPECT_EQ(Visit(), "++++");
    EXPECT_TRUE(Eventually([&] { return proxy->Descriptors() <= descriptors + 2; })) << proxy->Descriptors();
  }
  std::printf("points tried, %s: %zu\n", call.name, points);
  EXPECT_GT(points, 0u) << "it is not called at all";
  EXPECT_EQ(proxy->Stop(), 0) << proxy->Errors();
}

// Not among them are calls that cannot fail in earnest (fcntl and close of what is open, curl_easy_getinfo),
// and the threads and files of a program that has been running for a while, which a page load does not ask
// for.
constexpr Call kCalls[] = {
    {"socket", EMFILE},
    {"connect", ENETUNREACH},
    {"accept", EMFILE},
    {"setsockopt", ENOBUFS},
    {"getsockopt", ENOBUFS},
    {"getpeername", ENOTCONN},
    {"recv", ECONNRESET},
    {"send", ECONNRESET},
    {"poll", EINTR},
    {"epoll_ctl", ENOSPC},
    {"epoll_wait", EINTR},
    {"pwrite64", ENOSPC},
    {"curl_easy_init", 0},
    {"curl_easy_setopt", 0, 3},
    {"curl_slist_append", 0},
    {"curl_multi_add_handle", 0},
    {"curl_multi_remove_handle", 0},
    {"curl_multi_socket_action", 0},
#ifndef KIV_SANITIZED
    {"calloc", ENOMEM},
    {"realloc", ENOMEM},
#endif
};
INSTANTIATE_TEST_SUITE_P(Each, FailedCallsOf, testing::ValuesIn(kCalls),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace tests
