#include "live/state/sqlite.h"

#include <sqlite3.h>

#include <utility>

namespace live {
namespace {

void Check(int code, sqlite3* file) {
  if (code != SQLITE_OK)
    throw SqliteError(code, file != nullptr ? sqlite3_errmsg(file) : sqlite3_errstr(code));
}

}  // namespace

bool SqliteError::IsDamage() const {
  // The statements are right, so if one does not fit, the file is not what it was made as.
  return (code_ & 0xff) == SQLITE_CORRUPT || (code_ & 0xff) == SQLITE_NOTADB || code_ == SQLITE_ERROR;
}

// --- The file

void SqliteFile::Close::operator()(sqlite3* file) const {
  sqlite3_close(file);
}

SqliteFile::SqliteFile(const std::string& path, int busyMs) {
  sqlite3* file = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  file_.reset(file);
  Check(code, file);
  sqlite3_extended_result_codes(file, 1);
  sqlite3_busy_timeout(file, busyMs);
}

void SqliteFile::Run(const char* sql) {
  Check(sqlite3_exec(file_.get(), sql, nullptr, nullptr, nullptr), file_.get());
}

int64_t SqliteFile::Number(const char* sql) {
  SqliteStatement statement(*this, sql);
  return statement.Step() ? statement.Number(0) : 0;
}

std::string SqliteFile::Text(const char* sql) {
  SqliteStatement statement(*this, sql);
  return statement.Step() ? statement.Text(0) : std::string();
}

// --- Statements

void SqliteStatement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SqliteStatement::SqliteStatement(SqliteFile& file, const char* sql) : file_(file.file_.get()) {
  sqlite3_stmt* statement = nullptr;
  Check(sqlite3_prepare_v2(file_, sql, -1, &statement, nullptr), file_);
  statement_.reset(statement);
}

SqliteStatement& SqliteStatement::Bind(int64_t value) {
  Check(sqlite3_bind_int64(statement_.get(), ++bound_, value), file_);
  return *this;
}

SqliteStatement& SqliteStatement::Bind(std::string_view value) {
  Check(sqlite3_bind_text(statement_.get(), ++bound_, value.data(), static_cast<int>(value.size()),
                          SQLITE_STATIC),
        file_);
  return *this;
}

bool SqliteStatement::Step() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  SqliteError error(code, sqlite3_errmsg(file_));
  Finish();
  throw error;
}

void SqliteStatement::Finish() {
  sqlite3_reset(statement_.get());  // reports the error of the last step again
  sqlite3_clear_bindings(statement_.get());
  bound_ = 0;
}

void SqliteStatement::Run() {
  while (Step()) {
  }
  Finish();
}

int64_t SqliteStatement::Number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string SqliteStatement::Text(int column) const {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return text != nullptr ? std::string(text, static_cast<size_t>(size)) : std::string();
}

// --- Transactions

SqliteTransaction::SqliteTransaction(SqliteFile& file) : file_(&file) {
  file.Run("BEGIN IMMEDIATE");
}

SqliteTransaction::~SqliteTransaction() {
  if (file_ == nullptr) return;
  try {
    file_->Run("ROLLBACK");
  } catch (const SqliteError&) {  // SQLite has done it already
  }
}

void SqliteTransaction::Commit() {
  file_->Run("COMMIT");
  file_ = nullptr;
}

}  // namespace live
