#include "index/postgres/pg_connection.h"

#include <poll.h>

#include <algorithm>
#include <thread>

#include "index/postgres/libpq_on_demand.h"

namespace trovix::engine::index {
namespace {

constexpr char kHex[] = "0123456789abcdef";

std::string Trimmed(const char* message) {
  std::string s = message ? message : "";
  while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
  return s;
}

}  // namespace

PgParam PgText(std::string_view text) { return PgParam{std::string(text), false}; }
PgParam PgInt(int64_t value) { return PgParam{std::to_string(value), false}; }
PgParam PgNull() { return PgParam{{}, true}; }
PgParam PgBytes(std::string_view bytes) {
  PgParam p;
  p.text.reserve(2 + bytes.size() * 2);
  p.text = "\\x";
  for (unsigned char c : bytes) {
    p.text += kHex[c >> 4];
    p.text += kHex[c & 15];
  }
  return p;
}

std::string ConnInfoFor(std::string_view target) {
  if (target.substr(0, 13) == "postgresql://" || target.substr(0, 11) == "postgres://" ||
      target.find('=') != std::string_view::npos)
    return std::string(target);
  return "service=" + std::string(target);
}

PgConnection::PgConnection(PGconn* conn) : conn_(conn) {}

PgConnection::~PgConnection() { PQfinish(conn_); }

PgConnection::Wait PgConnection::WaitSocket(bool for_write, std::chrono::steady_clock::time_point deadline,
                                            bool bounded, const std::stop_token& stop) {
  pollfd pfd{PQsocket(conn_), static_cast<short>(for_write ? POLLOUT : POLLIN), 0};
  if (pfd.fd < 0) return Wait::kTimedOut;
  // A stop is looked for this often while the server is silent.
  constexpr int kStopSliceMs = 25;
  while (true) {
    if (stop.stop_requested()) return Wait::kStopped;
    int wait_ms = stop.stop_possible() ? kStopSliceMs : -1;
    if (bounded) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return Wait::kTimedOut;
      wait_ms = wait_ms < 0 ? static_cast<int>(left.count()) : std::min(wait_ms, static_cast<int>(left.count()));
    }
    const int n = poll(&pfd, 1, wait_ms);
    if (n > 0) return Wait::kReady;
    if (n < 0 && errno != EINTR) return Wait::kReady;  // let libpq meet the error itself
  }
}

void PgConnection::AskToCancel() {
  // PQcancel waits for the server's answer, and a server that hangs never gives one: it is
  // asked on a thread of its own, so that the stop returns at once all the same.
  if (PGcancel* cancel = PQgetCancel(conn_)) {
    std::thread([cancel] {
      char buffer[256];
      PQcancel(cancel, buffer, sizeof buffer);
      PQfreeCancel(cancel);
    }).detach();
  }
}

void PgConnection::CancelAfterStop() {
  AskToCancel();
  // A server that is well ends the statement at once; then the connection serves the next query.
  const auto grace = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (PQisBusy(conn_)) {
    if (WaitSocket(false, grace, true) != Wait::kReady || !PQconsumeInput(conn_)) {
      broken_ = true;
      return;
    }
  }
  while (PGresult* r = PQgetResult(conn_)) PQclear(r);
}

std::unique_ptr<PgConnection> PgConnection::Open(const std::string& conninfo, std::chrono::milliseconds timeout,
                                                 std::string* error, std::stop_token stop) {
  if (!LibpqLoaded(error)) return nullptr;
  PGconn* conn = PQconnectStart(conninfo.c_str());
  if (conn == nullptr) return *error = "out of memory", nullptr;
  std::unique_ptr<PgConnection> c(new PgConnection(conn));
  if (PQstatus(conn) == CONNECTION_BAD) return *error = Trimmed(PQerrorMessage(conn)), nullptr;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  PostgresPollingStatusType state = PGRES_POLLING_WRITING;
  while (state != PGRES_POLLING_OK) {
    if (state == PGRES_POLLING_FAILED) return *error = Trimmed(PQerrorMessage(conn)), nullptr;
    const Wait waited = c->WaitSocket(state == PGRES_POLLING_WRITING, deadline, true, stop);
    if (waited == Wait::kStopped) return *error = kStopped, nullptr;
    if (waited == Wait::kTimedOut) return *error = "no answer within " + std::to_string(timeout.count()) + " ms", nullptr;
    state = PQconnectPoll(conn);
  }
  // Text in and out as UTF-8, whatever the client's locale says.
  PQsetClientEncoding(conn, "UTF8");
  return c;
}

PgResult PgConnection::Query(const std::string& sql, const std::vector<PgParam>& params, std::string* error,
                             std::chrono::milliseconds timeout, std::stop_token stop) {
  sqlstate_.clear();
  const std::stop_token& until = stop.stop_possible() ? stop : stop_;
  if (until.stop_requested()) return *error = kStopped, nullptr;
  std::vector<const char*> values;
  values.reserve(params.size());
  for (const PgParam& p : params) values.push_back(p.null ? nullptr : p.text.c_str());
  if (!PQsendQueryParams(conn_, sql.c_str(), static_cast<int>(params.size()), nullptr, values.data(), nullptr,
                         nullptr, 0)) {
    *error = LastError();
    return nullptr;
  }
  return Await(error, timeout, until);
}

PgResult PgConnection::Await(std::string* error, std::chrono::milliseconds timeout, const std::stop_token& stop) {
  const bool bounded = timeout.count() > 0;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  PgResult last;
  std::string failure;
  while (true) {
    while (PQisBusy(conn_)) {
      const Wait waited = WaitSocket(false, deadline, bounded, stop);
      if (waited == Wait::kStopped) {
        CancelAfterStop();
        *error = kStopped;
        return nullptr;
      }
      if (waited == Wait::kTimedOut) {
        // A server that does not answer may not answer a cancel request either (PQcancel
        // waits for it): the connection is given up instead, and the session's
        // statement_timeout ends the statement on the server's side.
        broken_ = true;
        *error = "no answer within " + std::to_string(timeout.count()) + " ms";
        return nullptr;
      }
      if (!PQconsumeInput(conn_)) {
        *error = LastError();
        return nullptr;
      }
    }
    PGresult* r = PQgetResult(conn_);
    if (r == nullptr) break;
    const ExecStatusType status = PQresultStatus(r);
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_COPY_IN && failure.empty()) {
      failure = Trimmed(PQresultErrorMessage(r));
      const char* state = PQresultErrorField(r, PG_DIAG_SQLSTATE);
      sqlstate_ = state != nullptr ? state : "";
    }
    last.reset(r);
    // The server waits for the rows: they are the caller's to send.
    if (status == PGRES_COPY_IN) return last;
  }
  if (!failure.empty() || !last) {
    *error = failure.empty() ? LastError() : failure;
    return nullptr;
  }
  return last;
}

PgResult PgConnection::Simple(const std::string& sql, std::string* error, const std::stop_token& stop) {
  sqlstate_.clear();
  std::string e;
  PgResult r;
  if (stop.stop_requested()) e = kStopped;
  else if (!PQsendQuery(conn_, sql.c_str())) e = LastError();
  else r = Await(&e, std::chrono::milliseconds(0), stop);
  if (!r && error) *error = e;
  return r;
}

bool PgConnection::Exec(const std::string& sql, std::string* error) { return Simple(sql, error, stop_) != nullptr; }

bool PgConnection::Rollback(std::string* error) { return Simple("ROLLBACK", error, {}) != nullptr; }

bool PgConnection::CopyIn(const std::string& sql, std::string_view data, std::string* error) {
  // The server takes its locks before it asks for the rows: that wait is stopped as any.
  PgResult start = Simple(sql, error, stop_);
  if (!start) return false;
  if (PQresultStatus(start.get()) != PGRES_COPY_IN) return *error = "the server did not take rows", false;
  // Without blocking, so that a stop is heard while a busy server is slow to take the rows.
  PQsetnonblocking(conn_, 1);
  // Waits until libpq has sent what it holds (after `put` 0, which took nothing: until it can
  // take more); false with *error.
  auto flushed = [&](int put) {
    if (put < 0) return *error = LastError(), false;
    int left = put == 0 ? 1 : PQflush(conn_);
    while (left == 1) {
      if (WaitSocket(true, {}, false, stop_) == Wait::kStopped) {
        // Half a COPY cannot be taken back on this connection: it is given up, and the server
        // ends the statement.
        AskToCancel();
        broken_ = true;
        return *error = kStopped, false;
      }
      left = PQflush(conn_);
    }
    if (left < 0) return *error = LastError(), false;
    return true;
  };
  // In slices: libpq buffers each call whole.
  constexpr size_t kSlice = 1 << 20;
  for (size_t at = 0; at < data.size();) {
    const std::string_view part = data.substr(at, kSlice);
    const int put = PQputCopyData(conn_, part.data(), static_cast<int>(part.size()));
    if (!flushed(put)) return false;
    if (put > 0) at += part.size();
  }
  int ended;
  while ((ended = PQputCopyEnd(conn_, nullptr)) == 0)
    if (!flushed(0)) return false;
  if (!flushed(ended)) return false;
  PQsetnonblocking(conn_, 0);
  std::string e;
  if (Await(&e, std::chrono::milliseconds(0), stop_)) return true;
  *error = e;
  return false;
}

std::string PgConnection::LastError() const { return Trimmed(PQerrorMessage(conn_)); }

std::string PgBytesOf(const PGresult* r, int row, int column) {
  size_t n = 0;
  unsigned char* bytes = PQunescapeBytea(reinterpret_cast<const unsigned char*>(PQgetvalue(r, row, column)), &n);
  if (bytes == nullptr) return {};
  std::string out(reinterpret_cast<char*>(bytes), n);
  PQfreemem(bytes);
  return out;
}

void AppendCopyField(std::string* out, std::string_view text) {
  for (char c : text) {
    switch (c) {
      case '\\': *out += "\\\\"; break;
      case '\t': *out += "\\t"; break;
      case '\n': *out += "\\n"; break;
      case '\r': *out += "\\r"; break;
      default: *out += c;
    }
  }
}

void AppendCopyBytes(std::string* out, std::string_view bytes) {
  *out += "\\\\x";
  for (unsigned char c : bytes) {
    *out += kHex[c >> 4];
    *out += kHex[c & 15];
  }
}

}  // namespace trovix::engine::index
