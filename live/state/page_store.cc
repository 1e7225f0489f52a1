#include "live/state/page_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "live/state/privacy_rules.h"
#include "live/state/sqlite.h"
#include "url/gurl.h"

namespace live {
namespace {

constexpr int64_t kApplicationId = 0x4b495650;  // "KIVP"
constexpr int64_t kVersion = 1;
constexpr int kBusyMs = 100;           // another process of ours holds the file for much less
constexpr size_t kWrittenAtOnce = 20;  // pages, after trouble, so that the executor's thread does not stand
constexpr int64_t kLongestUs = 86'400'000'000;  // a day, for times within one page load
constexpr int kMostSetAside = 100;

constexpr const char* kSettings =
    "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=ON; PRAGMA secure_delete=ON;"
    "PRAGMA journal_size_limit=4194304";

// A page's `saved` is larger than that of all pages that were visited before.
constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS pages (
  id INTEGER PRIMARY KEY,
  url TEXT NOT NULL UNIQUE,
  host TEXT NOT NULL,
  visits INTEGER NOT NULL,
  saved INTEGER NOT NULL UNIQUE
);
CREATE TABLE IF NOT EXISTS resources (
  page INTEGER NOT NULL REFERENCES pages ON DELETE CASCADE,
  position INTEGER NOT NULL,
  url TEXT NOT NULL,
  kind TEXT NOT NULL,
  get INTEGER NOT NULL,
  with_credentials INTEGER NOT NULL,
  carried_cookies INTEGER NOT NULL,
  after_load INTEGER NOT NULL,
  before_paint INTEGER NOT NULL,
  asked_us INTEGER NOT NULL,
  waited_us INTEGER NOT NULL,
  html INTEGER NOT NULL,
  visits_seen INTEGER NOT NULL,
  last_visit INTEGER NOT NULL,
  status INTEGER NOT NULL,
  declared_length INTEGER NOT NULL,
  headers TEXT NOT NULL,
  PRIMARY KEY (page, position)
) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS groups (
  page INTEGER NOT NULL REFERENCES pages ON DELETE CASCADE,
  name TEXT NOT NULL,
  visits_seen INTEGER NOT NULL,
  last_visit INTEGER NOT NULL,
  PRIMARY KEY (page, name)
) WITHOUT ROWID;
)";

constexpr const char* kAllPages = "SELECT id, url, visits FROM pages ORDER BY saved";
constexpr const char* kResourcesOfPage = R"(
SELECT url, kind, get, with_credentials, carried_cookies, after_load, before_paint, html, asked_us, waited_us,
       visits_seen, last_visit, status, declared_length, headers
FROM resources WHERE page = ? ORDER BY position)";
constexpr const char* kGroupsOfPage = "SELECT name, visits_seen, last_visit FROM groups WHERE page = ?";

// A file that holds nothing that this program can use.
struct Unreadable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string Reason() {
  return std::generic_category().message(errno);
}

void MakeFolders(const std::filesystem::path& folder) {
  if (folder.empty() || std::filesystem::exists(folder)) return;
  MakeFolders(folder.parent_path());
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::runtime_error("the folder " + folder.string() + " cannot be made: " + Reason());
  }
}

// SQLite gives its other files the mode of this one.
void MakeFile(const std::string& path) {
  MakeFolders(std::filesystem::path(path).parent_path());
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 && errno == EACCES && std::filesystem::is_regular_file(path)) throw Unreadable(Reason());
  if (file < 0) throw std::runtime_error("cannot be opened: " + Reason());
  struct stat found {};
  const bool isFile = fstat(file, &found) == 0 && S_ISREG(found.st_mode);
  if (isFile && (found.st_mode & 077) != 0) fchmod(file, 0600);
  close(file);
  if (!isFile) throw std::runtime_error("is not a file");
}

// For a file that is ours, or empty.
void CheckOwner(SqliteFile& sqlite) {
  const int64_t owner = sqlite.Number("PRAGMA application_id");
  const int64_t version = sqlite.Number("PRAGMA user_version");
  const bool isEmpty = sqlite.Number("SELECT count(*) FROM sqlite_schema") == 0;
  if (owner != kApplicationId && !(isEmpty && owner == 0)) {
    throw std::runtime_error("is a database of another program");
  }
  if (owner == kApplicationId && version != kVersion) {
    throw Unreadable("it has layout " + std::to_string(version) + ", and only " + std::to_string(kVersion) +
                     " is known");
  }
  const std::string check = sqlite.Text("PRAGMA quick_check(1)");
  if (check != "ok") throw Unreadable(check);
}

SqliteFile OpenSqlite(const std::string& path) {
  MakeFile(path);
  SqliteFile sqlite(path, kBusyMs);
  CheckOwner(sqlite);
  sqlite.Run(kSettings);
  SqliteTransaction transaction(sqlite);
  sqlite.Run(kSchema);
  sqlite.Run(("PRAGMA application_id=" + std::to_string(kApplicationId)).c_str());
  sqlite.Run(("PRAGMA user_version=" + std::to_string(kVersion)).c_str());
  transaction.Commit();
  return sqlite;
}

// The file may have been changed by anybody, so nothing in it is believed that would not be written now.
bool IsSane(const host::KnownResource& resource) {
  return MayStoreUrl(resource.url) && MayStoreHeaders(resource.headersToRepeat);
}

uint32_t Count(int64_t stored) {
  return static_cast<uint32_t>(std::clamp<int64_t>(stored, 0, UINT32_MAX));
}

host::KnownResource ResourceOf(const SqliteStatement& row) {
  host::KnownResource resource;
  int column = 0;
  resource.url = row.Text(column++);
  resource.kind = host::KindByDestination(row.Text(column++));
  resource.get = row.Number(column++) != 0;
  resource.withCredentials = row.Number(column++) != 0;
  resource.carriedCookies = row.Number(column++) != 0;
  resource.afterLoad = row.Number(column++) != 0;
  resource.beforePaint = row.Number(column++) != 0;
  resource.html = row.Number(column++) != 0;
  resource.askedUs = std::clamp<int64_t>(row.Number(column++), 0, kLongestUs);
  resource.waitedUs = std::clamp<int64_t>(row.Number(column++), 0, kLongestUs);
  resource.visitsSeen = Count(row.Number(column++));
  resource.lastVisit = Count(row.Number(column++));
  resource.status = static_cast<int>(std::clamp<int64_t>(row.Number(column++), -1, 999));
  resource.declaredLength = std::max<int64_t>(row.Number(column++), -1);
  resource.headersToRepeat = row.Text(column++);
  return resource;
}

}  // namespace

struct PageStore::File {
  explicit File(const std::string& path) : sqlite(OpenSqlite(path)) {}

  void Write(const std::string& url, const host::KnownPage& page, size_t maxPages) {
    SqliteTransaction transaction(sqlite);
    const std::string host = GURL(url).host();
    savePage.Bind(url).Bind(host).Bind(page.visits).Step();
    const int64_t id = savePage.Number(0);
    savePage.Run();
    dropResources.Bind(id).Run();
    int64_t position = 0;
    for (const host::KnownResource& resource : page.resources) {
      if (!IsSane(resource)) continue;
      saveResource.Bind(id).Bind(position++).Bind(resource.url).Bind(host::NameOfKind(resource.kind));
      for (const bool flag : {resource.get, resource.withCredentials, resource.carriedCookies,
                              resource.afterLoad, resource.beforePaint, resource.html}) {
        saveResource.Bind(flag ? 1 : 0);
      }
      for (const int64_t number :
           {resource.askedUs, resource.waitedUs, int64_t{resource.visitsSeen}, int64_t{resource.lastVisit},
            int64_t{resource.status}, resource.declaredLength}) {
        saveResource.Bind(number);
      }
      saveResource.Bind(resource.headersToRepeat).Run();
    }
    dropGroups.Bind(id).Run();
    for (const auto& [name, group] : page.groups) {
      saveGroup.Bind(id).Bind(name).Bind(group.visitsSeen).Bind(group.lastVisit).Run();
    }
    dropExcess.Bind(static_cast<int64_t>(maxPages)).Run();
    transaction.Commit();
  }

  SqliteFile sqlite;
  int64_t version = sqlite.Number("PRAGMA data_version");  // changes when others write
  SqliteStatement savePage{sqlite,
                           "INSERT INTO pages (url, host, visits, saved) "
                           "VALUES (?, ?, ?, (SELECT ifnull(max(saved), 0) + 1 FROM pages)) "
                           "ON CONFLICT (url) DO UPDATE SET visits = excluded.visits, saved = excluded.saved "
                           "RETURNING id"};
  SqliteStatement dropResources{sqlite, "DELETE FROM resources WHERE page = ?"};
  SqliteStatement saveResource{sqlite,
                               "INSERT INTO resources (page, position, url, kind, get, with_credentials, "
                               "carried_cookies, after_load, before_paint, html, asked_us, waited_us, "
                               "visits_seen, last_visit, status, declared_length, headers) "
                               "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"};
  SqliteStatement dropGroups{sqlite, "DELETE FROM groups WHERE page = ?"};
  SqliteStatement saveGroup{sqlite,
                            "INSERT INTO groups (page, name, visits_seen, last_visit) VALUES (?, ?, ?, ?)"};
  SqliteStatement dropPage{sqlite, "DELETE FROM pages WHERE url = ?"};
  SqliteStatement dropExcess{
      sqlite, "DELETE FROM pages WHERE id IN (SELECT id FROM pages ORDER BY saved DESC LIMIT -1 OFFSET ?)"};
};

PageStore::PageStore(std::string path, size_t maxPages, Tell tell)
    : path_(std::move(path)), maxPages_(maxPages), tell_(std::move(tell)) {}

PageStore::~PageStore() = default;

// --- Opening, and trouble

void PageStore::Open() {
  if (file_ != nullptr) return;
  std::string why;
  try {
    file_ = std::make_unique<File>(path_);
    return;
  } catch (const Unreadable& error) {
    why = error.what();
  } catch (const SqliteError& error) {
    if (!error.IsDamage()) throw;
    why = error.what();
  }
  SetAside(why);
  file_ = std::make_unique<File>(path_);
}

void PageStore::SetAside(const std::string& why) {
  file_.reset();
  std::string place;
  for (int number = 1; place.empty(); ++number) {
    if (number > kMostSetAside) throw std::runtime_error("cannot be read (" + why + "), nor set aside again");
    const std::string candidate = path_ + ".unreadable-" + std::to_string(number);
    if (access(candidate.c_str(), F_OK) != 0) place = candidate;
  }
  // Its log first: beside a new file it would spoil that.
  for (const char* const ending : {"-wal", "-shm", ""}) {
    if (rename((path_ + ending).c_str(), (place + ending).c_str()) != 0 && errno != ENOENT) {
      throw std::runtime_error("cannot be read (" + why + "), nor renamed: " + Reason());
    }
  }
  unsaved_.merge(stored_);
  stored_.clear();
  tell_(path_ + ": cannot be read (" + why + "); it is now " + place + ", and a new one begins");
}

bool PageStore::Try(const std::function<void(File&)>& work) {
  const auto fail = [this](const char* why) {
    if (!std::exchange(inTrouble_, true)) {
      tell_(path_ + ": " + why + "; what pages teach is remembered in memory only until that is over");
    }
    return false;
  };
  try {
    Open();
    try {
      work(*file_);
    } catch (const SqliteError& error) {
      if (!error.IsDamage()) throw;
      SetAside(error.what());
      Open();
      work(*file_);
    }
  } catch (const std::exception& error) {
    return fail(error.what());
  }
  if (std::exchange(inTrouble_, false)) tell_(path_ + ": is written again");
  return true;
}

// --- What the database learns

void PageStore::Attach(host::PageDatabase& database) {
  database_ = &database;
  Try([this](File& file) { Load(file); });
  database.Observe(
      {.onLearnt = [this](const std::string& pageUrl, const host::KnownPage& /*page*/) { Learn(pageUrl); },
       .onForgotten =
           [this](const std::string& pageUrl) {
             unsaved_.erase(pageUrl);
             if (stored_.erase(pageUrl) == 0) return;
             Try([&pageUrl](File& file) { file.dropPage.Bind(pageUrl).Run(); });
           }});
}

void PageStore::Load(File& file) {
  file.dropExcess.Bind(static_cast<int64_t>(maxPages_)).Run();
  SqliteStatement pages(file.sqlite, kAllPages);
  SqliteStatement resources(file.sqlite, kResourcesOfPage);
  SqliteStatement groups(file.sqlite, kGroupsOfPage);
  while (pages.Step()) {
    const int64_t id = pages.Number(0);
    const std::string url = pages.Text(1);
    stored_.insert(url);
    host::KnownPage page{.visits = Count(pages.Number(2))};
    resources.Bind(id);
    while (resources.Step()) {
      host::KnownResource resource = ResourceOf(resources);
      if (IsSane(resource)) page.resources.push_back(std::move(resource));
    }
    resources.Finish();
    groups.Bind(id);
    while (groups.Step()) {
      page.groups[groups.Text(0)] = {.visitsSeen = Count(groups.Number(1)),
                                     .lastVisit = Count(groups.Number(2))};
    }
    groups.Finish();
    if (MayStoreUrl(url) && page.visits > 0) database_->Restore(url, std::move(page));
  }
}

void PageStore::Learn(const std::string& pageUrl) {
  if (!MayStoreUrl(pageUrl)) return;
  unsaved_.insert(pageUrl);
  WriteUnsaved();
}

void PageStore::WriteUnsaved() {
  Try([this](File& file) {
    for (size_t written = 0; written < kWrittenAtOnce && !unsaved_.empty(); ++written) {
      const std::string url = *unsaved_.begin();
      const host::KnownPage* const page = database_->Find(url);
      if (page != nullptr) {
        file.Write(url, *page, maxPages_);
        stored_.insert(url);
      }
      unsaved_.erase(url);
    }
  });
}

void PageStore::FollowOthers() {
  if (file_ == nullptr || database_ == nullptr) return;
  Try([this](File& file) {
    const int64_t version = file.sqlite.Number("PRAGMA data_version");
    if (version == file.version) return;
    std::set<std::string> present;
    SqliteStatement rows(file.sqlite, "SELECT url FROM pages");
    while (rows.Step()) present.insert(rows.Text(0));
    std::erase_if(stored_, [&](const std::string& url) {
      if (present.contains(url)) return false;
      database_->Forget(url);
      return true;
    });
    file.version = version;
  });
}

// --- Forgetting

size_t PageStore::Forget(const std::string& hostName) {
  return ForgetWhere("host = ?1 OR substr(host, -length(?1) - 1) = '.' || ?1", hostName);
}

size_t PageStore::ForgetAll() {
  return ForgetWhere("?1 = ''", "");
}

size_t PageStore::ForgetWhere(const char* condition, const std::string& hostName) {
  std::vector<std::string> gone;
  try {
    Open();
    SqliteStatement drop(file_->sqlite,
                         ("DELETE FROM pages WHERE " + std::string(condition) + " RETURNING url").c_str());
    drop.Bind(hostName);
    while (drop.Step()) gone.push_back(drop.Text(0));
    drop.Finish();
    // The log holds older states of what is gone.
    file_->sqlite.Run("PRAGMA wal_checkpoint(TRUNCATE)");
  } catch (const std::exception& error) {
    throw std::runtime_error(path_ + ": " + error.what());
  }
  for (const std::string& url : gone) {
    stored_.erase(url);
    unsaved_.erase(url);
    if (database_ != nullptr) database_->Forget(url);
  }
  return gone.size();
}

}  // namespace live
