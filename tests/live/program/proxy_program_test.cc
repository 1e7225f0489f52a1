// kiv_proxy as a program, between a browser that libcurl plays and a scripted server: pages get preloaded,
// what was learnt survives restarts and kills, and is forgotten when somebody says so.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/live/support/proxy_process.h"
#include "tests/live/support/scripted_server.h"
#include "tests/support/text.h"

namespace live {
namespace {

using nlohmann::json;
using tests::Eventually;
using tests::TextOf;

struct Answer {
  CURLcode result = CURLE_OK;
  long status = 0;
  std::string head, body;

  // What the proxy says of it: "served", "joined", "network: not known yet".
  std::string Mark() const {
    std::smatch found;
    return std::regex_search(head, found, std::regex("preload;desc=\"([^\"]*)\"")) ? found[1].str() : "none";
  }
};

size_t Append(const char* bytes, size_t size, size_t count, void* text) {
  static_cast<std::string*>(text)->append(bytes, size * count);
  return size * count;
}

class ProxyProgramTest : public testing::Test {
 protected:
  ProxyProgramTest()
      : server([this](tests::Connection& connection) { Serve(connection); }),
        hosts(folder.Write("hosts", "127.0.0.1 shop.test cdn.test\n")) {}

  // Every resource is 1000 bytes, and nothing of it may be stored by caches.
  void Serve(tests::Connection& connection) {
    for (std::string request; !(request = connection.ReadRequest()).empty();) {
      const size_t begin = request.find(' ') + 1;
      const std::string path = request.substr(begin, request.find(' ', begin) - begin);
      {
        const std::lock_guard lock(mutex);
        ++asked[path];
      }
      const std::string type = path == "/" ? "text/html" : "text/css";
      if (!connection.Write(tests::OkResponse("Cache-Control: no-store\r\nContent-Type: " + type + "\r\n",
                                              std::string(1000, path.back())))) {
        return;
      }
    }
  }
  int TimesAsked(const std::string& path) {
    const std::lock_guard lock(mutex);
    return asked[path];
  }

  std::string WithState(const std::string& words) const {
    const bool hasState = words.find("--state") != std::string::npos;
    const bool hasHosts = words.find("--hosts") != std::string::npos;
    return (hasState ? "" : "--state " + state + " ") + (hasHosts ? "" : "--hosts " + hosts + " ") + words;
  }

  // Starts the program, and waits for its first line.
  void Start(const std::string& more = "") {
    process.reset();
    process.emplace(folder, "--mark " + WithState(more));
    ASSERT_TRUE(process->Started()) << process->Errors();
    address = process->Address();
    EXPECT_TRUE(std::regex_match(address, std::regex("127\\.0\\.0\\.1:[0-9]+"))) << address;
  }
  // Its exit status.
  int Stop() {
    const int status = process->Stop();
    process.reset();
    return status;
  }
  // Runs it to its end; what it printed goes to the files "out" and "errors".
  int Run(const std::string& words) {
    const std::string line =
        KIV_PROXY_PATH " " + words + " >" + folder.File("out") + " 2>" + folder.File("errors");
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // `caFile`: which certificates to trust.
  Answer Get(const std::string& url, const std::vector<std::string>& headers,
             const std::string& caFile = "") {
    const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), curl_easy_cleanup);
    Answer answer;
    curl_slist* list = nullptr;
    for (const std::string& header : headers) list = curl_slist_append(list, header.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_PROXY, address.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_NOPROXY, "");
    curl_easy_setopt(easy.get(), CURLOPT_HTTPHEADER, list);
    if (!caFile.empty()) curl_easy_setopt(easy.get(), CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(easy.get(), CURLOPT_HEADERFUNCTION, Append);
    curl_easy_setopt(easy.get(), CURLOPT_HEADERDATA, &answer.head);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, 20L);
    answer.result = curl_easy_perform(easy.get());
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    curl_slist_free_all(list);
    return answer;
  }
  std::string Url(const std::string& host, const std::string& path) const {
    return "http://" + host + ":" + std::to_string(server.Port()) + path;
  }

  // Loads the page and its two resources; what the proxy says of these.
  std::string Visit() {
    const Answer page = Get(Url("shop.test", "/"), {"Sec-Fetch-Dest: document", "Sec-Fetch-Mode: navigate",
                                                    "Sec-Fetch-Site: none", "Accept: text/html"});
    EXPECT_EQ(page.status, 200) << page.body;
    EXPECT_TRUE(page.body == std::string(1000, '/')) << page.body;
    std::string marks;
    for (const auto& [host, path] : {std::pair("shop.test", "/a"), std::pair("cdn.test", "/b")}) {
      const Answer resource = Get(Url(host, path), {"Sec-Fetch-Dest: style", "Sec-Fetch-Mode: no-cors",
                                                    "Accept: text/css", "Referer: " + Url("shop.test", "/")});
      EXPECT_EQ(resource.status, 200) << resource.body;
      EXPECT_TRUE(resource.body == std::string(1000, path[1])) << resource.body;
      marks += (marks.empty() ? "" : ", ") + resource.Mark();
    }
    return marks;
  }
  static bool IsPreloaded(const std::string& marks) {
    return std::regex_match(marks, std::regex("(served|joined), (served|joined)"));
  }
  // Waits until the last visit has settled, which is when its line is printed.
  void Settle() {
    const auto lines = [this] {
      const std::string text = process->Output();
      return std::count(text.begin(), text.end(), '\n');
    };
    const auto before = lines();
    EXPECT_TRUE(Eventually([&] { return lines() > before; })) << "the page does not settle";
  }

  std::mutex mutex;
  std::map<std::string, int> asked;  // by path
  tests::ScriptedServer server;
  const tests::TemporaryFolder folder;
  const std::string hosts;
  const std::string state = folder.File("state/pages.db");
  std::string address;
  std::optional<tests::ProxyProcess> process;
};

constexpr const char* kNotKnown = "network: not known yet, network: not known yet";

TEST_F(ProxyProgramTest, PreloadsWhatEarlierVisitsNeededAcrossRestarts) {
  const std::string jsonPath = folder.File("pages.json"), harPath = folder.File("day.har");
  Start("--json " + jsonPath + " --har " + harPath);
  EXPECT_EQ(Visit(), kNotKnown);
  const std::string second = Visit();  // which makes the first one known
  EXPECT_TRUE(IsPreloaded(second)) << second;
  EXPECT_EQ(TimesAsked("/a"), 2) << "once by the browser, once by its preload";
  EXPECT_EQ(TimesAsked("/b"), 2);
  EXPECT_EQ(Stop(), 0) << "it ends cleanly, and the second visit is known too";
  EXPECT_EQ(TextOf(folder.File("errors")), "");

  std::istringstream printed(TextOf(folder.File("out")));
  std::string line;
  std::getline(printed, line);
  std::getline(printed, line);
  EXPECT_EQ(
      line.find(Url("shop.test", "/") + "  2 resources: 0 served, 0 joined, 2 fetched; 0 preloads unused"),
      0u)
      << line;
  std::istringstream pages(TextOf(jsonPath));
  std::vector<json> objects;
  while (std::getline(pages, line)) objects.push_back(json::parse(line));
  ASSERT_EQ(objects.size(), 2u);
  EXPECT_EQ(objects[1]["served"].get<int>() + objects[1]["joined"].get<int>(), 2);
  EXPECT_EQ(objects[1]["preloads"], 2);
  EXPECT_EQ(objects[1]["bytes"], 3000);
  const json har = json::parse(TextOf(harPath));
  EXPECT_EQ(har["log"]["pages"].size(), 2u);
  EXPECT_EQ(har["log"]["entries"].size(), 6u);

  Start();
  const std::string third = Visit();
  EXPECT_TRUE(IsPreloaded(third)) << third;
  Start("--preload off");  // ends the one before, which may not say goodbye
  EXPECT_FALSE(IsPreloaded(Visit()));
}

TEST_F(ProxyProgramTest, ForgetsWhileItRuns) {
  Start();
  Visit();
  Settle();
  const auto forget = [&](const std::string& site) {
    const std::string line =
        KIV_PROXY_PATH " forget " + site + " --state " + state + " >" + folder.File("said");
    EXPECT_EQ(std::system(line.c_str()), 0);
    return TextOf(folder.File("said"));
  };
  EXPECT_EQ(forget("other.test"), "0 pages forgotten\n");
  EXPECT_EQ(forget("shop.test"), "1 pages forgotten\n");
  std::this_thread::sleep_for(std::chrono::seconds(3));  // it looks every second, on a machine with time
  EXPECT_EQ(Visit(), kNotKnown);
  Settle();
  EXPECT_EQ(forget(""), "1 pages forgotten\n");
  EXPECT_EQ(TextOf(state).find("shop.test"), std::string::npos);
}

TEST_F(ProxyProgramTest, ServesPagesWhateverIsMissing) {
  const struct {
    std::string options, said, marks;
  } cases[] = {
      {"--plugin /nowhere.so", "/nowhere.so: cannot be loaded", ""},
      {"--plugin " + folder.Write("plugin.so", "no library"), "; nothing is preloaded", ""},
      {"--state /proc/nowhere/pages.db", "in memory only", ""},
      {"--state " + folder.Write("notes", "no database, but something else"), "notes.unreadable-1", ""},
  };
  for (const auto& row : cases) {
    Start(row.options);
    EXPECT_FALSE(IsPreloaded(Visit())) << row.options;
    EXPECT_FALSE(IsPreloaded(Visit()) && row.options.starts_with("--plugin")) << row.options;
    EXPECT_EQ(Stop(), 0) << row.options;
    const std::string errors = TextOf(folder.File("errors"));
    EXPECT_NE(errors.find(row.said), std::string::npos) << errors;
    EXPECT_EQ(errors.find("kiv_proxy: "), 0u) << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
  }
}

TEST_F(ProxyProgramTest, StandsInForServersBeforeWhoTrustsItsAuthority) {
  if (!tests::IsInstalled("nghttpd") || !tests::MakeCertificate(folder.Path())) {
    GTEST_SKIP() << "nghttpd and openssl are needed";
  }
  folder.Write("index.html", "hello");
  const int port = tests::FreePort();
  const tests::ChildProcess secure({"nghttpd", "--htdocs=" + folder.Path(), std::to_string(port),
                                    folder.File("key.pem"), folder.File("cert.pem")});
  ASSERT_TRUE(tests::WaitForPort(port));
  const std::string ca = folder.File("ca");
  ASSERT_EQ(Run("ca --ca-dir " + ca), 0) << TextOf(folder.File("errors"));
  std::string hash = TextOf(ca + "/spki");
  ASSERT_EQ(hash.size(), 45u) << "a SHA-256 in base64, and the line's end";
  hash.pop_back();
  EXPECT_NE(TextOf(folder.File("out")).find("--ignore-certificate-errors-spki-list=" + hash),
            std::string::npos)
      << TextOf(folder.File("out"));
  EXPECT_EQ(Run("ca --ca-dir " + ca + " --only localhost"), 2) << "browsers may trust it already";
  EXPECT_EQ(TextOf(ca + "/spki"), hash + "\n");

  folder.Write("secure_hosts", "127.0.0.1 localhost\n");
  Start("--intercept --ca-dir " + ca + " --hosts " + folder.File("secure_hosts") + " --connect-port " +
        std::to_string(port) + " --upstream-ca " + folder.File("cert.pem"));
  const Answer answer = Get("https://localhost/index.html", {"Sec-Fetch-Dest: document"}, ca + "/root.pem");
  EXPECT_EQ(answer.result, CURLE_OK) << curl_easy_strerror(answer.result);
  EXPECT_EQ(answer.body, "hello");
  EXPECT_EQ(answer.Mark(), "network: not known yet");
  EXPECT_EQ(Get("https://localhost/", {}, folder.File("cert.pem")).result, CURLE_PEER_FAILED_VERIFICATION)
      << "it is not the server's own certificate";
}

TEST_F(ProxyProgramTest, RefusesBadOptionsWithStatusTwo) {
  const std::string har = folder.Write("old.har", "{}");
  const std::string busy = "127.0.0.1:" + std::to_string(server.Port());
  const struct {
    std::string words;
    int status;
    std::string error;
  } cases[] = {
      {"--colour", 2, "kiv_proxy: The following argument was not expected: --colour (see --help)\n"},
      {"--listen 0.0.0.0:0", 2, "kiv_proxy: --listen: 0.0.0.0 can be reached from other machines;"},
      {"--prop net.cv.kiv.prlimit=many", 2,
       "kiv_proxy: --prop: net.cv.kiv.prlimit must be a whole number from"},
      {"--har " + har, 2, "kiv_proxy: " + har + ": exists already"},
      {"--json /nowhere/at/all", 2, "kiv_proxy: /nowhere/at/all: cannot be written"},
      {"--listen " + busy, 2, "kiv_proxy: cannot listen at " + busy},
      {"forget --state /dev/null", 1, "kiv_proxy: /dev/null: is not a file\n"},
      {"--help", 0, ""},
      {"--version", 0, ""},
      {"forget", 0, ""},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Run(row.words.find("--state") == std::string::npos ? "--state " + state + " " + row.words
                                                                 : row.words),
              row.status)
        << row.words;
    const std::string errors = TextOf(folder.File("errors"));
    EXPECT_EQ(errors.find(row.error), 0u) << row.words << ": " << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), row.error.empty() ? 0 : 1) << errors;
  }
  EXPECT_EQ(TextOf(har), "{}");
  EXPECT_NE(stat(state.c_str(), std::make_unique<struct stat>().get()), 0) << "no database is made for these";
}

}  // namespace
}  // namespace live
