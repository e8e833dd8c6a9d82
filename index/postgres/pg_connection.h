// A connection to the PostgreSQL server that keeps a shared index, through libpq.
//
// Why libpq and not libpqxx: libpq is C, reports failures as values (the rest of the index
// speaks status codes, and libpqxx throws), and gives what a client of a file server needs
// that libpqxx 6.4 hides: a connect and a query with a deadline of our own (PQconnectStart,
// PQsendQueryParams and poll on the socket), cancelling a query that runs past it, and COPY
// through PQputCopyData. Every value goes in through PQexecParams-style parameters, in text
// form; no value is ever written into the SQL text.
//
// Where the connection comes from: a postgresql:// URI, "key=value" parameters, or a libpq
// service name (then "service=NAME"); passwords come from ~/.pgpass or the service file, as
// libpq reads them, never from our own command line or settings.
//
// One thread at a time per connection; another thread stops a query through its stop_token.
#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace trovix::engine::index {

// A query's result; frees itself.
struct PgResultFree {
  void operator()(PGresult* r) const { PQclear(r); }
};
using PgResult = std::unique_ptr<PGresult, PgResultFree>;

// A parameter in text form; null when `null`. bytea values go as "\x" and hex digits.
struct PgParam {
  std::string text;
  bool null = false;
};
PgParam PgText(std::string_view text);
PgParam PgBytes(std::string_view bytes);  // for a bytea parameter (cast it: $n::bytea)
PgParam PgInt(int64_t value);
PgParam PgNull();

// The libpq connection string for what indexes.conf names: a URI or "key=value" text is
// taken as it stands, a bare word is a service name.
std::string ConnInfoFor(std::string_view target);

class PgConnection {
 public:
  ~PgConnection();
  PgConnection(const PgConnection&) = delete;
  PgConnection& operator=(const PgConnection&) = delete;

  // Connects within `timeout`; null with *error otherwise, or when `stop` is asked for.
  static std::unique_ptr<PgConnection> Open(const std::string& conninfo, std::chrono::milliseconds timeout,
                                            std::string* error, std::stop_token stop = {});

  // Runs one statement with parameters ($1, $2 ...). The result when it succeeded (commands
  // and rows alike); null with *error when it failed, the server went away or `timeout`
  // passed (the connection is then given up: ok() turns false). A zero timeout waits as long as it takes.
  // When `stop` (without one: the connection's, set_stop) is asked for, the server is asked to
  // end the statement and Query returns at once with kStopped as *error (the connection stays
  // when the server ends it within a moment); once it was asked for, nothing is sent.
  PgResult Query(const std::string& sql, const std::vector<PgParam>& params, std::string* error,
                 std::chrono::milliseconds timeout = std::chrono::milliseconds(0), std::stop_token stop = {});
  static constexpr const char* kStopped = "stopped";
  // Statements without parameters or results; false with *error. Stopped as Query.
  bool Exec(const std::string& sql, std::string* error = nullptr);
  // Ends the transaction, undone. Never stopped: it is what a stopped batch ends with.
  bool Rollback(std::string* error = nullptr);

  // COPY ... FROM STDIN: `sql` starts it, `data` is the whole text-format payload. Stopped as
  // Query; a stop while the rows are being sent gives the connection up.
  bool CopyIn(const std::string& sql, std::string_view data, std::string* error);

  // The stop every statement from now on honours (Query's own aside): a writer's statements
  // may wait long on locks or run long over many rows, and Ctrl+C must not wait for them.
  void set_stop(std::stop_token stop) { stop_ = std::move(stop); }

  // False once the server went away or a query ran past its time-out: open a new one.
  bool ok() const { return !broken_ && PQstatus(conn_) == CONNECTION_OK; }
  std::string LastError() const;
  // The SQLSTATE of the last statement that failed on the server ("57P01": the session was
  // ended; "" when the connection itself failed or none failed).
  const std::string& sqlstate() const { return sqlstate_; }
  PGconn* get() const { return conn_; }

 private:
  explicit PgConnection(PGconn* conn);
  enum class Wait { kReady, kTimedOut, kStopped };
  // Waits until the socket is readable (or writable), the deadline passed or `stop` is asked for.
  Wait WaitSocket(bool for_write, std::chrono::steady_clock::time_point deadline, bool bounded,
                  const std::stop_token& stop = {});
  // After a stop: the server is asked to end the statement, and given a moment to say it did.
  void CancelAfterStop();
  void AskToCancel();
  // Gathers the results of the statement sent: the last (or the COPY's go-ahead), null with
  // *error as Query.
  PgResult Await(std::string* error, std::chrono::milliseconds timeout, const std::stop_token& stop);
  // Sends statements without parameters (several may go at once); as Exec.
  PgResult Simple(const std::string& sql, std::string* error, const std::stop_token& stop);

  PGconn* conn_;
  bool broken_ = false;
  std::string sqlstate_;
  std::stop_token stop_;
};

// The bytes of a bytea field of a result in text form.
std::string PgBytesOf(const PGresult* r, int row, int column);

// COPY's text format for one field: backslash, tab, newline and carriage return escaped.
void AppendCopyField(std::string* out, std::string_view text);
// A bytea field in COPY's text format (hex, its backslash escaped).
void AppendCopyBytes(std::string* out, std::string_view bytes);

}  // namespace trovix::engine::index
