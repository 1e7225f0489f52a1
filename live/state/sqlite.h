// SQLite with errors as exceptions and handles that close themselves. One thread.
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

// What SQLite says, in one line.
class SqliteError : public std::runtime_error {
 public:
  SqliteError(int code, const std::string& what) : std::runtime_error(what), code_(code) {}

  int Code() const { return code_; }
  // The file is damaged, or no database at all.
  bool IsDamage() const;

 private:
  int code_;
};

// All of these throw SqliteError.
class SqliteFile {
 public:
  // Waits for `busyMs` at most where another process has locked the file.
  SqliteFile(const std::string& path, int busyMs);

  // Any number of statements without results.
  void Run(const char* sql);
  // The first column of the first row of the result; 0 when there is none.
  int64_t Number(const char* sql);
  std::string Text(const char* sql);

 private:
  friend class SqliteStatement;
  struct Close {
    void operator()(sqlite3* file) const;
  };
  std::unique_ptr<sqlite3, Close> file_;
};

// Used again after each Finish; the file outlives it.
class SqliteStatement {
 public:
  SqliteStatement(SqliteFile& file, const char* sql);

  // The next parameter. A text must live until Finish.
  SqliteStatement& Bind(int64_t value);
  SqliteStatement& Bind(std::string_view value);
  // True when there is a row.
  bool Step();
  void Finish();
  // Without results.
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
