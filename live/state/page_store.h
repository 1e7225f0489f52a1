// The page database on disk, which survives the end, kill or crash of the program. Bodies, cookies and
// everything that looks like a secret (live/state/privacy_rules.h) are never written. Each visit is one
// transaction. If the disk fails, the database in memory still works. Executor's thread.
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

  // Does not open the file yet. If the file is missing, it is created with mode 0600, and its folders with
  // mode 0700. A file that cannot be read is renamed by appending ".unreadable-1" or similar, and a new one
  // is started; a database of another program is not touched. At most `maxPages` pages are kept.
  PageStore(std::string path, size_t maxPages, Tell tell);
  ~PageStore();
  PageStore(const PageStore&) = delete;
  PageStore& operator=(const PageStore&) = delete;

  // Restores the content of the file, and from now on stores what the database learns; the store must outlive
  // it. `tell` is called once if writing fails, and once when it works again and what was missing is written.
  void Attach(host::PageDatabase& database);

  // Removes from the database what another process has removed from the file. Call it regularly.
  void FollowOthers();

  // Remove from the file and the database the pages of a host name and the names below it, or all pages, and
  // return their number. Nothing of them is left in the file, not even in its free space. Throws
  // std::runtime_error with one line if that fails.
  size_t Forget(const std::string& hostName);
  size_t ForgetAll();

 private:
  struct File;

  void Open();
  void SetAside(const std::string& why);
  // Runs it on the open file. If it fails, reports the error instead of throwing it, and returns false.
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
