#include "index/postgres/libpq_on_demand.h"

#include <dlfcn.h>
#include <libpq-fe.h>

namespace trovix::engine::index {
namespace {

struct Library {
  void* handle = nullptr;
  std::string error;
};

const Library& Libpq() {
  static const Library library = [] {
    Library l;
    // RTLD_LOCAL: the library's symbols are found through the handle only, never instead of
    // these forwarders.
    l.handle = dlopen("libpq.so.5", RTLD_NOW | RTLD_LOCAL);
    if (l.handle == nullptr) {
      const char* e = dlerror();
      l.error = e != nullptr ? e : "libpq.so.5 could not be loaded";
    }
    return l;
  }();
  return library;
}

template <typename F>
F Find(const char* name) {
  void* handle = Libpq().handle;
  return handle == nullptr ? nullptr : reinterpret_cast<F>(dlsym(handle, name));
}

}  // namespace

bool LibpqLoaded(std::string* why) {
  if (Libpq().handle != nullptr) return true;
  if (why != nullptr) *why = "the PostgreSQL client library is not installed (" + Libpq().error + ")";
  return false;
}

}  // namespace trovix::engine::index

// Each forwarder looks its function up once; without it, the answer a failed connection gives.
#define TROVIX_LIBPQ(name, fallback, ...)                                                  \
  static const auto real = trovix::engine::index::Find<decltype(&::name)>(#name);          \
  return real != nullptr ? real(__VA_ARGS__) : fallback
#define TROVIX_LIBPQ_VOID(name, ...)                                                       \
  static const auto real = trovix::engine::index::Find<decltype(&::name)>(#name);          \
  if (real != nullptr) real(__VA_ARGS__)

extern "C" {

PGconn* PQconnectStart(const char* conninfo) { TROVIX_LIBPQ(PQconnectStart, nullptr, conninfo); }
PostgresPollingStatusType PQconnectPoll(PGconn* conn) { TROVIX_LIBPQ(PQconnectPoll, PGRES_POLLING_FAILED, conn); }
ConnStatusType PQstatus(const PGconn* conn) { TROVIX_LIBPQ(PQstatus, CONNECTION_BAD, conn); }
int PQsocket(const PGconn* conn) { TROVIX_LIBPQ(PQsocket, -1, conn); }
char* PQerrorMessage(const PGconn* conn) {
  static char missing[] = "the PostgreSQL client library is not installed\n";
  TROVIX_LIBPQ(PQerrorMessage, missing, conn);
}
int PQsetClientEncoding(PGconn* conn, const char* encoding) { TROVIX_LIBPQ(PQsetClientEncoding, -1, conn, encoding); }
void PQfinish(PGconn* conn) { TROVIX_LIBPQ_VOID(PQfinish, conn); }

PGresult* PQexecParams(PGconn* conn, const char* command, int n, const Oid* types, const char* const* values,
                       const int* lengths, const int* formats, int result_format) {
  TROVIX_LIBPQ(PQexecParams, nullptr, conn, command, n, types, values, lengths, formats, result_format);
}
int PQsendQueryParams(PGconn* conn, const char* command, int n, const Oid* types, const char* const* values,
                      const int* lengths, const int* formats, int result_format) {
  TROVIX_LIBPQ(PQsendQueryParams, 0, conn, command, n, types, values, lengths, formats, result_format);
}
int PQsendQuery(PGconn* conn, const char* query) { TROVIX_LIBPQ(PQsendQuery, 0, conn, query); }
int PQsetnonblocking(PGconn* conn, int arg) { TROVIX_LIBPQ(PQsetnonblocking, -1, conn, arg); }
int PQflush(PGconn* conn) { TROVIX_LIBPQ(PQflush, -1, conn); }
int PQconsumeInput(PGconn* conn) { TROVIX_LIBPQ(PQconsumeInput, 0, conn); }
int PQisBusy(PGconn* conn) { TROVIX_LIBPQ(PQisBusy, 0, conn); }
PGresult* PQgetResult(PGconn* conn) { TROVIX_LIBPQ(PQgetResult, nullptr, conn); }
int PQputCopyData(PGconn* conn, const char* buffer, int nbytes) { TROVIX_LIBPQ(PQputCopyData, -1, conn, buffer, nbytes); }
int PQputCopyEnd(PGconn* conn, const char* errormsg) { TROVIX_LIBPQ(PQputCopyEnd, -1, conn, errormsg); }

PGcancel* PQgetCancel(PGconn* conn) { TROVIX_LIBPQ(PQgetCancel, nullptr, conn); }
int PQcancel(PGcancel* cancel, char* errbuf, int errbufsize) { TROVIX_LIBPQ(PQcancel, 0, cancel, errbuf, errbufsize); }
void PQfreeCancel(PGcancel* cancel) { TROVIX_LIBPQ_VOID(PQfreeCancel, cancel); }

ExecStatusType PQresultStatus(const PGresult* res) { TROVIX_LIBPQ(PQresultStatus, PGRES_FATAL_ERROR, res); }
char* PQresultErrorField(const PGresult* res, int field) { TROVIX_LIBPQ(PQresultErrorField, nullptr, res, field); }
char* PQresultErrorMessage(const PGresult* res) {
  static char missing[] = "";
  TROVIX_LIBPQ(PQresultErrorMessage, missing, res);
}
int PQntuples(const PGresult* res) { TROVIX_LIBPQ(PQntuples, 0, res); }
char* PQgetvalue(const PGresult* res, int row, int field) {
  static char empty[] = "";
  TROVIX_LIBPQ(PQgetvalue, empty, res, row, field);
}
int PQgetisnull(const PGresult* res, int row, int field) { TROVIX_LIBPQ(PQgetisnull, 1, res, row, field); }
char* PQcmdTuples(PGresult* res) {
  static char empty[] = "";
  TROVIX_LIBPQ(PQcmdTuples, empty, res);
}
void PQclear(PGresult* res) { TROVIX_LIBPQ_VOID(PQclear, res); }
unsigned char* PQunescapeBytea(const unsigned char* text, size_t* length) {
  TROVIX_LIBPQ(PQunescapeBytea, nullptr, text, length);
}
void PQfreemem(void* ptr) { TROVIX_LIBPQ_VOID(PQfreemem, ptr); }

}  // extern "C"
