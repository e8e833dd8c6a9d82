// A prepared SQLite statement that finalizes itself, with the few binds and column reads the
// index and the key store use. Texts are bound as copies, so callers may pass temporaries.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace trovix::platform {

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* db, std::string_view sql) { Prepare(db, sql); }
  Statement(sqlite3* db, const char* sql) { Prepare(db, sql); }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  Statement(Statement&& other) noexcept : stmt_(other.stmt_) { other.stmt_ = nullptr; }
  Statement& operator=(Statement&& other) noexcept {
    std::swap(stmt_, other.stmt_);
    return *this;
  }

  // SQLITE_OK or the error; a failed statement steps to SQLITE_ERROR.
  int Prepare(sqlite3* db, std::string_view sql) {
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
    return sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &stmt_, nullptr);
  }
  bool ok() const { return stmt_ != nullptr; }
  sqlite3_stmt* get() const { return stmt_; }

  Statement& Bind(int i, std::string_view text) {
    sqlite3_bind_text(stmt_, i, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& BindBlob(int i, std::string_view bytes) {
    sqlite3_bind_blob(stmt_, i, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
    return *this;
  }
  Statement& Bind(int i, int64_t value) {
    sqlite3_bind_int64(stmt_, i, value);
    return *this;
  }
  Statement& Bind(int i, double value) {
    sqlite3_bind_double(stmt_, i, value);
    return *this;
  }
  Statement& BindNull(int i) {
    sqlite3_bind_null(stmt_, i);
    return *this;
  }

  int Step() { return stmt_ == nullptr ? SQLITE_ERROR : sqlite3_step(stmt_); }
  // Steps a statement that returns no rows and resets it for the next use.
  int Run() {
    int rc = Step();
    Reset();
    return rc == SQLITE_ROW ? SQLITE_DONE : rc;
  }
  void Reset() {
    if (stmt_ == nullptr) return;
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }

  int64_t Int(int column) const { return sqlite3_column_int64(stmt_, column); }
  double Double(int column) const { return sqlite3_column_double(stmt_, column); }
  bool IsNull(int column) const { return sqlite3_column_type(stmt_, column) == SQLITE_NULL; }
  int Type(int column) const { return sqlite3_column_type(stmt_, column); }
  // The bytes of a column as stored (a text that is not UTF-8 comes back unchanged).
  std::string_view Blob(int column) const {
    const void* p = sqlite3_column_blob(stmt_, column);
    int n = sqlite3_column_bytes(stmt_, column);
    return p == nullptr ? std::string_view() : std::string_view(static_cast<const char*>(p), static_cast<size_t>(n));
  }
  std::string_view Text(int column) const {
    const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    int n = sqlite3_column_bytes(stmt_, column);
    return p == nullptr ? std::string_view() : std::string_view(p, static_cast<size_t>(n));
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace trovix::platform
