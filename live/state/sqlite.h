// Wraps SQLite: errors are exceptions, and handles close themselves. One thread.
#ifndef LIVE_STATE_SQLITE_H_
#define LIVE_STATE_SQLITE_H_

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace live {

// The message of SQLite, in one line.
class SqliteError : public std::runtime_error {
 public:
  SqliteError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}

  int Code() const { return code_; }
  // The file is damaged, or is not a database.
  bool IsDamage() const;

 private:
  int code_;
};

// All of these throw SqliteError.
class SqliteFile {
 public:
  // Waits for at most `busyMs` if another process has locked the file.
  SqliteFile(const std::string& path, int busyMs);

  // Any number of statements without results.
  void Run(const char* sql);
  // The first column of the first row of the result; 0 if there is none.
  int64_t Number(const char* sql);
  std::string Text(const char* sql);

 private:
  friend class SqliteStatement;
  struct Close {
    void operator()(sqlite3* file) const;
  };
  std::unique_ptr<sqlite3, Close> file_;
};

// A prepared statement, which can be used again after each Finish. The file must outlive it.
class SqliteStatement {
 public:
  SqliteStatement(SqliteFile& file, const char* sql);

  // Binds the next parameter. A text must live until Finish.
  SqliteStatement& Bind(int64_t value);
  SqliteStatement& Bind(std::string_view value);
  // Returns true if there is a row.
  bool Step();
  void Finish();
  // Runs a statement that has no results.
  void Run();

  int64_t Number(int column) const;
  std::string Text(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  sqlite3* const file_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int bound_ = 0;
};

// Rolled back unless it is committed.
class SqliteTransaction {
 public:
  explicit SqliteTransaction(SqliteFile& file);
  ~SqliteTransaction();
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;

  void Commit();

 private:
  SqliteFile* file_;
};

}  // namespace live

#endif  // LIVE_STATE_SQLITE_H_
