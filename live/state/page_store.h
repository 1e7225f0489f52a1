// The page database on disk: what pages have taught survives the program, its kill and its crash. Bodies,
// cookies and what looks like a secret (live/state/privacy_rules.h) are never written. Each visit is one
// transaction. Whatever is wrong with the disk, the database in memory goes on. Executor's thread.
#ifndef LIVE_STATE_PAGE_STORE_H_
#define LIVE_STATE_PAGE_STORE_H_

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "host/page_database.h"

namespace live {

class PageStore {
 public:
  // One line for the user, without the path's program.
  using Tell = std::function<void(const std::string& message)>;

  // Opens nothing yet. The file is made when it is missing, with mode 0600, and so are its folders, with mode
  // 0700. A file that cannot be read is renamed, with ".unreadable-1" or the like behind its name, and a new
  // one begun; a database of another program is left alone. At most `maxPages` pages are kept.
  PageStore(std::string path, size_t maxPages, Tell tell);
  ~PageStore();
  PageStore(const PageStore&) = delete;
  PageStore& operator=(const PageStore&) = delete;

  // Restores what the file holds, and stores from now on what the database learns; this must outlive it.
  // Trouble is told once, and once more when it is over; what could not be written is written then.
  void Attach(host::PageDatabase& database);

  // Forgets in the database what another process has taken out of the file. To be called now and then.
  void FollowOthers();

  // Takes out of the file, and of the database, the pages of a host name and of the names below it; of all.
  // Their number. Nothing is left of them in the file, free space included. Throws std::runtime_error with
  // one line when that cannot be done.
  size_t Forget(const std::string& hostName);
  size_t ForgetAll();

 private:
  struct File;

  void Open();
  void SetAside(const std::string& why);
  // Runs it on the open file; tells of trouble and swallows it. False when there was some.
  bool Try(const std::function<void(File&)>& work);
  void Learn(const std::string& pageUrl);
  void WriteUnsaved();
  void Load(File& file);
  size_t ForgetWhere(const char* condition, const std::string& hostName);

  const std::string path_;
  const size_t maxPages_;
  const Tell tell_;
  std::unique_ptr<File> file_;  // null until it could be opened
  host::PageDatabase* database_ = nullptr;
  std::set<std::string> stored_;   // pages that are in the file, by URL; maxPages at most
  std::set<std::string> unsaved_;  // pages that are not, or differ there; as many as the database has
  bool inTrouble_ = false;
};

}  // namespace live

#endif  // LIVE_STATE_PAGE_STORE_H_
