// The index route of a file server's shared index on PostgreSQL, and the choice between the
// servers of indexes.conf and this machine's own index.
//
// A root is in a server's scope when it is "//NAME/share/path" or lies in a folder that
// indexes.conf maps to NAME (a mounted share). The route writes the SELECT text with the
// server's name as its machine prefix ("SELECT Path FROM NAME.SystemIndex ..."), translates
// it (pg_translation.h), runs it within the server's time-out and re-tests the rows as the
// local route does when the WHERE text does not say everything the rules say.
//
// A server that does not answer within its time-out (3 s unless indexes.conf says otherwise),
// refuses the connection, or fails during the query, gives no rows: the route says so once
// through ResultSink::Notice (stderr in the console, the status line in the desktop program)
// and returns 0, and the search then walks the root ("robust search"). The rows of a query are
// read whole before the first goes to the sink, so a server that goes away mid-query never
// leaves a half answer behind the walk's.
//
// Stop ends a query at once: the server is asked to end the statement (pg_connection.h).
//
// Called on the search's worker thread, one query at a time per route.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/search/search_routes.h"
#include "index/postgres/indexes_conf.h"

namespace trovix::engine::index {

class PgConnection;

// What the last query of a route did, for front ends and tests.
struct PgQueryReport {
  std::string server;    // the server that was asked
  std::string sql;       // the SELECT text, machine prefix included
  int filter_mode = 0;
  std::string error;     // why the server could not answer (then the walk does)
  int64_t rows = 0;
  int64_t accepted = 0;
};

class PgIndexRoute final : public IndexRoute {
 public:
  explicit PgIndexRoute(IndexServer server);
  ~PgIndexRoute() override;

  // Configured; whether the server answers is only known when it is asked.
  bool ServiceAvailable() override { return true; }
  bool IsInScope(const std::string& root) override;
  int64_t RunIndexQuery(rules::RuleSet& rule_set, const std::string& root, const IndexQueryOptions& options,
                        ResultSink& sink, std::stop_token stop) override;

  const IndexServer& server() const { return server_; }
  PgQueryReport last_report() const;

 private:
  IndexServer server_;
  std::unique_ptr<PgConnection> connection_;
  mutable std::mutex mutex_;
  PgQueryReport report_;
};

// The route a search uses: a root in a server's scope goes to that server, any other to this
// machine's own index. Reads indexes.conf once, when made; its problems are kept for the
// front end to show.
class SharedIndexRoutes final : public IndexRoute {
 public:
  // `local` must outlive this object. `conf_path` empty: DefaultIndexesConfPath().
  explicit SharedIndexRoutes(IndexRoute& local, const std::string& conf_path = {});

  bool ServiceAvailable() override;
  bool IsInScope(const std::string& root) override;
  // Drives that are not mounted are this machine's: a server's index has no such catalogues.
  std::vector<std::string> OfflineCatalogues() override { return local_.OfflineCatalogues(); }
  int64_t RunIndexQuery(rules::RuleSet& rule_set, const std::string& root, const IndexQueryOptions& options,
                        ResultSink& sink, std::stop_token stop) override;

  const std::vector<std::string>& problems() const { return problems_; }
  // The server that answered the last root, empty when it was this machine's index.
  std::string last_server() const;

 private:
  PgIndexRoute* ServerFor(const std::string& root);

  IndexRoute& local_;
  std::vector<std::unique_ptr<PgIndexRoute>> servers_;
  std::vector<std::string> problems_;
  mutable std::mutex mutex_;
  std::string last_server_;
};

}  // namespace trovix::engine::index
