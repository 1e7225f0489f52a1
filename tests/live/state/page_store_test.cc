// The page database across runs of the program, with kills, damaged files and full disks in between.
#include "live/state/page_store.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "live/state/sqlite.h"
#include "tests/live/support/child_process.h"

namespace live {
namespace {

const std::string kPage = "https://shop.test/";

// One run of the program.
struct Session {
  explicit Session(const std::string& path, size_t maxPages = 1000)
      : settings{.maxPages = maxPages},
        store(path, maxPages, [this](const std::string& message) { told.push_back(message); }) {
    store.Attach(pages);
  }

  void Visit(const std::string& url, const std::vector<std::string>& resources) {
    host::PageVisit visit(url, settings);
    for (const std::string& resource : resources) visit.ResourceSeen({.url = resource});
    pages.Remember(std::move(visit));
  }

  // "2 visits: https://a.test/1 2, https://a.test/2 1": what of a page is known, with the visits of each.
  std::string Known(const std::string& url = kPage) const {
    const host::KnownPage* const page = pages.Find(url);
    if (page == nullptr) return "nothing";
    std::string text = std::to_string(page->visits) + " visits:";
    for (const host::KnownResource& resource : page->resources) {
      text += " " + resource.url + " " + std::to_string(resource.visitsSeen);
    }
    return text;
  }

  host::HostSettings settings;
  std::vector<std::string> told;
  PageStore store;
  host::PageDatabase pages{settings};
};

class PageStoreTest : public testing::Test {
 protected:
  mode_t ModeOf(const std::string& place) {
    struct stat found {};
    EXPECT_EQ(stat(place.c_str(), &found), 0) << place;
    return found.st_mode & 0777;
  }

  // Everything that the folder's files hold.
  std::string Bytes() {
    std::ostringstream all;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder.Path())) {
      if (!file.is_regular_file() || file.file_size() == 0) continue;  // nothing to insert is a failure
      all << std::ifstream(file.path(), std::ios::binary).rdbuf();
    }
    return all.str();
  }

  const tests::TemporaryFolder folder;
  const std::string path = folder.File("state/kiv_proxy/pages.db");
};

TEST_F(PageStoreTest, KnowsInTheNextRunWhatThisOneHasLearnt) {
  host::KnownPage learnt;
  {
    Session run(path);
    constexpr char kBlock[] = "HTTP/1.1 200 OK\0Content-Length: 7\0Content-Type: text/html\0";
    host::PageVisit visit(kPage, run.settings);
    visit.ResourceSeen({.url = "https://cdn.test/a.css",
                        .kind = host::ResourceKind::Stylesheet,
                        .headers = "Accept: text/css\r\nReferer: https://shop.test/\r\nCookie: a=secret\r\n"},
                       4000);
    visit.ResponseSeen("https://cdn.test/a.css", net::HttpResponseHeaders(std::string(kBlock, sizeof kBlock)),
                       9000);
    visit.FirstPaint();
    visit.LoadEvent();
    visit.ResourceSeen({.url = "https://shop.test/late", .method = "POST", .withCredentials = false});
    run.pages.Remember(std::move(visit));
    run.Visit("https://other.test/", {});
    run.Visit(kPage, {"https://shop.test/new", "https://cdn.test/a.css"});
    learnt = *run.pages.Find(kPage);
    EXPECT_EQ(run.told, std::vector<std::string>());
  }
  EXPECT_EQ(ModeOf(path), 0600u);
  EXPECT_EQ(ModeOf(folder.File("state/kiv_proxy")), 0700u);
  EXPECT_EQ(Bytes().find("secret"), std::string::npos);

  const Session run(path);
  EXPECT_EQ(run.Known(),
            "2 visits: https://shop.test/new 1 https://cdn.test/a.css 2 https://shop.test/late 1");
  EXPECT_EQ(run.Known("https://other.test/"), "1 visits:");
  const std::vector<host::KnownResource>& resources = run.pages.Find(kPage)->resources;
  const host::KnownResource& restored = resources[1];
  EXPECT_TRUE(restored.get && restored.withCredentials && restored.beforePaint && !restored.afterLoad);
  EXPECT_EQ(restored.kind, learnt.resources[1].kind);
  EXPECT_EQ(restored.carriedCookies, learnt.resources[1].carriedCookies);
  EXPECT_EQ(restored.lastVisit, 2u);
  EXPECT_EQ(restored.askedUs, 0) << "of the second visit";
  EXPECT_EQ(restored.waitedUs, 5000);
  EXPECT_EQ(restored.status, 200);
  EXPECT_EQ(restored.declaredLength, 7);
  EXPECT_TRUE(restored.html);
  EXPECT_EQ(restored.headersToRepeat, learnt.resources[1].headersToRepeat);
  const host::KnownResource& late = resources[2];
  EXPECT_TRUE(!late.get && !late.withCredentials && !late.beforePaint && late.afterLoad && !late.html);
  const auto& groups = run.pages.Find(kPage)->groups;
  ASSERT_EQ(groups.size(), 2u);
  for (const auto& [name, group] : learnt.groups) {
    EXPECT_EQ(groups.at(name).visitsSeen, group.visitsSeen) << name;
    EXPECT_EQ(groups.at(name).lastVisit, 2u) << name;
  }
  EXPECT_EQ(late.status, -1);
  EXPECT_EQ(late.declaredLength, -1);
}

TEST_F(PageStoreTest, WritesNothingThatLooksLikeASecret) {
  {
    Session run(path);
    run.Visit("https://shop.test/?token=hunter2", {"https://shop.test/a"});
    host::PageVisit visit(kPage, run.settings);
    visit.ResourceSeen({.url = "https://shop.test/b?password=hunter2"});
    visit.ResourceSeen({.url = "https://shop.test/c", .headers = "X-Api-Key: hunter2\r\n"});
    visit.ResourceSeen({.url = "https://shop.test/d"});
    run.pages.Remember(std::move(visit));
    EXPECT_EQ(run.pages.Find(kPage)->resources.size(), 3u) << "this run knows them";
  }
  EXPECT_EQ(Bytes().find("hunter2"), std::string::npos);
  const Session run(path);
  EXPECT_EQ(run.Known(), "1 visits: https://shop.test/d 1");
  EXPECT_EQ(run.pages.PageCount(), 1u);
}

TEST_F(PageStoreTest, IsBoundedAsTheDatabaseIs) {
  const auto url = [](int number) { return "https://shop.test/" + std::to_string(number); };
  {
    Session run(path, 3);
    for (const int number : {1, 2, 3, 1, 4}) run.Visit(url(number), {});
  }
  {
    const Session run(path, 3);
    EXPECT_EQ(run.pages.PageCount(), 3u);
    EXPECT_EQ(run.Known(url(2)), "nothing") << "the least recently visited one";
    EXPECT_EQ(run.Known(url(1)), "2 visits:");
  }
  {
    Session run(path, 2);
    EXPECT_EQ(run.Known(url(3)), "nothing") << "the bound has become tighter";
    run.Visit(url(5), {});
  }
  const Session run(path);
  EXPECT_EQ(run.Known(url(1)), "nothing") << "the order of visits outlives a run";
  EXPECT_EQ(run.pages.PageCount(), 2u);
}

TEST_F(PageStoreTest, ForgetsASiteOrEverythingAndLeavesNoTrace) {
  {
    Session run(path);
    for (const char* const url : {"https://shop.test/", "https://www.shop.test/a", "https://workshop.test/",
                                  "http://shop.test:8080/b", "https://other.test/"}) {
      run.Visit(url, {"https://cdn.test/of?page=" + std::string(url)});
    }
  }
  PageStore store(path, 1000, [](const std::string& message) { FAIL() << message; });
  EXPECT_EQ(store.Forget("shop.test"), 3u);
  EXPECT_EQ(store.Forget("shop.test"), 0u);
  EXPECT_EQ(Bytes().find("//shop.test"), std::string::npos);
  EXPECT_EQ(Bytes().find("www.shop.test"), std::string::npos);
  EXPECT_NE(Bytes().find("workshop.test"), std::string::npos);
  EXPECT_EQ(store.ForgetAll(), 2u);
  EXPECT_EQ(Bytes().find(".test"), std::string::npos);
}

TEST_F(PageStoreTest, FollowsWhatAnotherProcessForgets) {
  Session run(path);
  run.Visit(kPage, {"https://shop.test/a"});
  run.Visit("https://other.test/", {});
  run.store.FollowOthers();
  EXPECT_EQ(run.pages.PageCount(), 2u) << "nobody has forgotten anything";
  PageStore(path, 1000, [](const std::string& /*message*/) {}).Forget("shop.test");
  run.store.FollowOthers();
  EXPECT_EQ(run.Known(), "nothing");
  EXPECT_EQ(run.Known("https://other.test/"), "1 visits:");
  run.Visit(kPage, {"https://shop.test/b"});
  EXPECT_EQ(Session(path).Known(), "1 visits: https://shop.test/b 1");
  EXPECT_EQ(run.told, std::vector<std::string>());
}

TEST_F(PageStoreTest, LosesNothingThatWasStoredWhenItIsKilled) {
  const auto url = [](int number) { return "https://shop.test/" + std::to_string(number % 20); };
  int visits = 0;  // that the killed processes have reported
  for (int round = 0; round < 8; ++round) {
    int reports[2];
    ASSERT_EQ(pipe(reports), 0);
    const pid_t child = fork();
    if (child == 0) {
      Session run(path);
      for (int number = visits;; ++number) {
        std::vector<std::string> resources;
        for (int i = 0; i < 100; ++i) resources.push_back(url(number) + "/" + std::to_string(i));
        run.Visit(url(number), resources);
        if (write(reports[1], "x", 1) != 1) _exit(1);
      }
    }
    close(reports[1]);
    char byte = 0;
    for (int i = 0; i < 25 + round * 3 && read(reports[0], &byte, 1) == 1; ++i) ++visits;
    kill(child, SIGKILL);  // while it writes the next one
    while (read(reports[0], &byte, 1) == 1) ++visits;
    close(reports[0]);
    waitpid(child, nullptr, 0);

    const Session run(path);
    ASSERT_EQ(run.told, std::vector<std::string>());
    int known = 0;
    for (int number = 0; number < 20; ++number) {
      const host::KnownPage* const page = run.pages.Find(url(number));
      ASSERT_NE(page, nullptr) << number;
      known += static_cast<int>(page->visits);
      ASSERT_EQ(page->resources.size(), 100u) << "a visit is stored as a whole";
      for (const host::KnownResource& resource : page->resources) {
        ASSERT_EQ(resource.visitsSeen, page->visits);
      }
    }
    EXPECT_GE(known, visits);
    EXPECT_LE(known, visits + 1) << "one may be stored and not reported";
    visits = known;
  }
}

TEST_F(PageStoreTest, SetsAsideWhatItCannotRead) {
  { Session(path).Visit(kPage, {"https://shop.test/a"}); }
  const std::string good = Bytes();
  std::string damaged = good;
  for (size_t at = 4096; at < damaged.size(); ++at) damaged[at] = static_cast<char>(at * 7);
  const struct {
    std::string bytes, told;
  } cases[] = {
      {"my notes, which are no database", "not a database"},
      {good.substr(0, good.size() / 2), "malformed"},
      {damaged, ""},
  };
  int number = 0;
  for (const auto& row : cases) {
    const std::string place = path + ".unreadable-" + std::to_string(++number);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << row.bytes;
    {
      Session run(path);
      ASSERT_EQ(run.told.size(), 1u) << row.told;
      EXPECT_EQ(run.told[0].find(path + ": cannot be read ("), 0u) << run.told[0];
      EXPECT_NE(run.told[0].find(row.told), std::string::npos) << run.told[0];
      EXPECT_NE(run.told[0].find("it is now " + place + ","), std::string::npos) << run.told[0];
      EXPECT_EQ(run.Known(), "nothing");
      run.Visit(kPage, {"https://shop.test/b"});
    }
    std::ostringstream kept;
    kept << std::ifstream(place, std::ios::binary).rdbuf();
    EXPECT_EQ(kept.str(), row.bytes);
    EXPECT_EQ(Session(path).Known(), "1 visits: https://shop.test/b 1");
  }
  {
    SqliteFile later(path, 0);
    later.Run("PRAGMA user_version = 2");
  }
  EXPECT_NE(Session(path).told.at(0).find("layout 2"), std::string::npos);
}

// Wherever it is: the program begins, with what it can read or with nothing, and stores what it learns.
TEST_F(PageStoreTest, SurvivesAnyByteThatIsWrong) {
  { Session(path).Visit(kPage, {"https://shop.test/a"}); }
  SqliteFile(path, 0).Run("PRAGMA journal_mode=DELETE");
  const std::string good = Bytes();
  const size_t step = std::max<size_t>(good.size() / 60, 1);  // besides each byte of the file's own header
  for (size_t at = 0; at < good.size(); at += at < 100 ? 1 : step) {
    if (at == 18) continue;  // may be written: one that may not is left alone, as the user may want
    if (at >= 68 && at < 72) continue;  // whose database it is: that of another program is left alone
    std::string damaged = good;
    damaged[at] = static_cast<char>(~damaged[at]);
    std::filesystem::remove_all(folder.File("state"));
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << damaged;
    {
      Session run(path);
      ASSERT_LE(run.told.size(), 1u) << at;
      run.Visit(kPage, {"https://shop.test/b"});
    }
    const Session next(path);
    ASSERT_EQ(next.told, std::vector<std::string>()) << at;
    ASSERT_NE(next.Known(), "nothing") << at;
  }
}

TEST_F(PageStoreTest, SavesItsPagesWhenTheFileIsDamagedWhileItRuns) {
  Session run(path);
  run.Visit(kPage, {"https://shop.test/a"});
  SqliteFile(path, 0).Run(
      "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = 'nonsense' WHERE name = 'pages';"
      "PRAGMA schema_version = 1000");
  for (int visit = 0; visit < 3; ++visit) run.Visit("https://other.test/", {});
  ASSERT_EQ(run.told.size(), 1u);
  EXPECT_NE(run.told[0].find(".unreadable-1"), std::string::npos) << run.told[0];
  const Session next(path);
  EXPECT_EQ(next.Known(), "1 visits: https://shop.test/a 1");
  EXPECT_EQ(next.Known("https://other.test/"), "3 visits:");
}

TEST_F(PageStoreTest, GoesOnInMemoryAndWritesWhenTheDiskHasRoomAgain) {
  signal(SIGXFSZ, SIG_IGN);
  Session run(path);
  run.Visit(kPage, {"https://shop.test/a"});
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full = {.rlim_cur = 4096, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  run.Visit("https://other.test/", {"https://other.test/a"});
  run.Visit("https://other.test/", {"https://other.test/a"});
  setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_EQ(run.told.size(), 1u);
  EXPECT_NE(run.told[0].find("in memory only"), std::string::npos) << run.told[0];
  EXPECT_EQ(run.Known("https://other.test/"), "2 visits: https://other.test/a 2");
  EXPECT_EQ(Session(path).Known("https://other.test/"), "nothing");

  run.Visit(kPage, {"https://shop.test/a"});
  ASSERT_EQ(run.told.size(), 2u);
  EXPECT_NE(run.told[1].find("written again"), std::string::npos) << run.told[1];
  const Session next(path);
  EXPECT_EQ(next.Known(), "2 visits: https://shop.test/a 2");
  EXPECT_EQ(next.Known("https://other.test/"), "2 visits: https://other.test/a 2");
}

TEST_F(PageStoreTest, LeavesAloneWhatIsNotItsOwn) {
  const std::string foreign = folder.File("foreign.db");
  folder.Write("foreign.db", "");
  SqliteFile(foreign, 0).Run("CREATE TABLE bookmarks (url TEXT); INSERT INTO bookmarks VALUES ('x')");
  const struct {
    std::string path, told;
  } cases[] = {
      {foreign, "database of another program"},
      {folder.Path(), "Is a directory"},
      {"/dev/null", "is not a file"},
      {"/proc/nowhere/pages.db", "the folder /proc/nowhere cannot be made"},
  };
  for (const auto& row : cases) {
    {
      Session run(row.path);
      run.Visit(kPage, {"https://shop.test/a"});
      ASSERT_EQ(run.told.size(), 1u) << row.told;
      EXPECT_NE(run.told[0].find(row.told), std::string::npos) << run.told[0];
      EXPECT_EQ(run.Known(), "1 visits: https://shop.test/a 1");
      EXPECT_THROW(run.store.ForgetAll(), std::runtime_error);
    }
  }
  EXPECT_EQ(SqliteFile(foreign, 0).Number("SELECT count(*) FROM bookmarks"), 1);
}

// What somebody has put into the file is no more than what the program would have written.
TEST_F(PageStoreTest, BelievesNothingOddInItsFile) {
  { Session(path).Visit(kPage, {"https://shop.test/a", "https://shop.test/b", "https://shop.test/c"}); }
  SqliteFile(path, 0).Run(
      "UPDATE resources SET url = 'https://shop.test/?token=1' WHERE position = 0;"
      "UPDATE resources SET headers = 'Cookie: a=b' WHERE position = 1;"
      "UPDATE resources SET kind = 'strange', visits_seen = -5, last_visit = 1 << 40, status = 1 << 33, "
      "declared_length = -9, html = 'yes' WHERE position = 2;"
      "INSERT INTO pages (url, host, visits, saved) VALUES ('file:///etc/passwd', '', 1, 100)");
  const Session run(path);
  EXPECT_EQ(run.Known(), "1 visits: https://shop.test/c 0");
  const host::KnownResource& odd = run.pages.Find(kPage)->resources[0];
  EXPECT_EQ(odd.kind, host::ResourceKind::Other);
  EXPECT_EQ(odd.status, 999);
  EXPECT_EQ(odd.declaredLength, -1);
  EXPECT_EQ(run.pages.PageCount(), 1u);
  EXPECT_EQ(run.told, std::vector<std::string>());
}

}  // namespace
}  // namespace live
