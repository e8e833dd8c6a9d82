// PgTestServer: a real PostgreSQL server of its own for the tests of the shared index, made
// in a temporary folder and removed with it.
//
//   auto server = trovix::testing::PgTestServer::Start();   // skip the test when it is null
//   server->conninfo()   // "host=<folder> port=5432 dbname=trovix user=trovix"
//   auto replica = PgTestServer::StartReplica(*server);   // a hot standby streaming from it
//   replica->CaughtUpWith(*server)                        // waits for it to replay
//
// How it runs, and why:
//   - initdb and the server refuse to run as root, and the tests often do: as root the folder
//     is given to the system user "nobody" and both programs run as that user (the test
//     process keeps reaching the socket, root passes the folder's permissions); as any other
//     user they run as that user.
//   - It listens only on a Unix socket in its own folder (no TCP: nothing on the machine's
//     network sees it, and two test programs never fight over a port).
//   - Authentication is "trust" on that socket: the folder is the test's alone.
//   - The cluster is made with UTF-8 and the C.UTF-8 locale, as a file server's would be;
//     pg_trgm then takes any letter, not only ASCII ones, for a word character.
//   - The server dies with the test program (a parent-death signal) and is stopped by the
//     destructor, so a failing or crashing test leaves no server behind.
//
// Start() and StartReplica() return null, with the reason in *why, when the PostgreSQL 15 programs are missing
// or the server cannot start; callers skip visibly (GTEST_SKIP) with that reason.
// Not thread-safe; a test program may run several (a primary and its replica).
#pragma once

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace trovix::testing {

class PgTestServer {
 public:
  static constexpr const char* kBinDir = "/usr/lib/postgresql/15/bin";
  static constexpr const char* kDatabase = "trovix";
  static constexpr const char* kSuperuser = "trovix";

  // `settings`: more "name=value" server settings (a benchmark's memory, say).
  static std::unique_ptr<PgTestServer> Start(std::string* why = nullptr, std::vector<std::string> settings = {}) {
    std::string reason;
    auto server = std::unique_ptr<PgTestServer>(new PgTestServer());
    server->settings_ = std::move(settings);
    if (!server->Init(&reason)) {
      if (why) *why = reason;
      return nullptr;
    }
    return server;
  }

  // A streaming replica of `primary`: a base backup of it (pg_basebackup -R, which writes the
  // primary's connection and standby.signal) in a folder of its own, started as a hot standby
  // that answers read-only queries on its own socket. Null with *why as Start.
  static std::unique_ptr<PgTestServer> StartReplica(const PgTestServer& primary, std::string* why = nullptr) {
    std::string reason;
    auto server = std::unique_ptr<PgTestServer>(new PgTestServer());
    server->settings_ = primary.settings_;
    if (!server->InitReplica(primary, &reason)) {
      if (why) *why = reason;
      return nullptr;
    }
    return server;
  }

  ~PgTestServer() {
    Stop();
    std::error_code ec;
    if (!folder_.empty()) std::filesystem::remove_all(folder_, ec);
  }

  // libpq connection parameters of the test database (or of another database of the server).
  std::string conninfo(const std::string& database = kDatabase) const {
    return "host=" + folder_ + " port=5432 dbname=" + database + " user=" + kSuperuser;
  }
  const std::string& folder() const { return folder_; }
  std::string data() const { return folder_ + "/data"; }
  bool running() const { return pid_ > 0; }

  // Stops the server at once (immediate shutdown: as a machine that went away looks to a
  // client mid-query). Waits for it to end.
  void Kill() { Signal(SIGQUIT); }
  // Freezes the server (it accepts connections and never answers: a machine that hangs) and
  // lets it go on.
  void Pause() const {
    if (pid_ > 0) kill(pid_, SIGSTOP);
  }
  void Resume() const {
    if (pid_ > 0) kill(pid_, SIGCONT);
  }
  // Stops it politely (fast shutdown: open sessions are ended).
  void Stop() { Signal(SIGINT); }
  // Stops it politely and starts it again on the same data (its shared buffers start empty).
  bool Restart(std::string* why) {
    Stop();
    return Launch(why);
  }

  // True once this replica has replayed everything `primary` had written when asked, within
  // `timeout`.
  bool CaughtUpWith(const PgTestServer& primary, std::chrono::seconds timeout = std::chrono::seconds(30)) const {
    std::string lsn;
    if (primary.Psql("SELECT pg_current_wal_lsn()", &lsn) != 0) return false;
    while (!lsn.empty() && lsn.back() == '\n') lsn.pop_back();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
      std::string out;
      if (Psql("SELECT pg_last_wal_replay_lsn() >= '" + lsn + "'::pg_lsn", &out) == 0 && out == "t\n") return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  // Runs psql as the superuser with `sql` on the test database; the exit status.
  int Psql(const std::string& sql, std::string* out = nullptr) const {
    const std::string file = folder_ + "/psql.out";
    unlink(file.c_str());
    std::vector<std::string> args = {std::string(kBinDir) + "/psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1",
                                     "-h", folder_, "-U", kSuperuser, "-d", kDatabase, "-c", sql};
    const int status = Run(args, file, false);
    if (out) *out = ReadFile(file);
    return status;
  }

 private:
  PgTestServer() = default;

  static std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
  }

  // Runs a program, as the server's user when `as_owner`, with its output in `log`; the exit
  // status, or -1.
  int Run(const std::vector<std::string>& args, const std::string& log, bool as_owner) const {
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
      ChildSetUp(log, as_owner);
      execv(args[0].c_str(), Argv(args).data());
      _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
      if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static std::vector<char*> Argv(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    return argv;
  }

  // In the child: output to the log, the server's user, death with the test program.
  void ChildSetUp(const std::string& log, bool as_owner) const {
    const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (fd >= 0) {
      dup2(fd, 1);
      dup2(fd, 2);
      close(fd);
    }
    const int null_in = open("/dev/null", O_RDONLY);
    if (null_in >= 0) dup2(null_in, 0);
    if (as_owner && getuid() == 0) {
      if (setgid(gid_) != 0 || setuid(uid_) != 0) _exit(126);
    }
    // Set after the change of user, which clears it.
    prctl(PR_SET_PDEATHSIG, SIGQUIT);
    if (as_owner) {
      setenv("HOME", folder_.c_str(), 1);
      setenv("LC_ALL", "C.UTF-8", 1);
    }
    if (chdir(folder_.c_str()) != 0) _exit(126);
  }

  bool HavePrograms(std::initializer_list<const char*> programs, std::string* why) const {
    for (const char* program : programs) {
      if (access((std::string(kBinDir) + "/" + program).c_str(), X_OK) != 0) {
        *why = std::string("PostgreSQL 15 is not installed (") + kBinDir + "/" + program + " is missing)";
        return false;
      }
    }
    return true;
  }

  // The server's own folder, and the user it runs as.
  bool MakeFolder(std::string* why) {
    // A short folder: the socket's whole path must fit in 107 bytes.
    const char* tmp = getenv("TMPDIR");
    std::string base = tmp && *tmp && std::string(tmp).size() < 60 ? tmp : "/tmp";
    std::string templ = base + "/trovix-pg-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) return *why = "cannot make a folder under " + base, false;
    folder_ = templ;
    uid_ = getuid();
    gid_ = getgid();
    if (uid_ == 0) {
      const passwd* nobody = getpwnam("nobody");
      if (nobody == nullptr) return *why = "running as root and there is no user 'nobody' to run PostgreSQL as", false;
      uid_ = nobody->pw_uid;
      gid_ = nobody->pw_gid;
      if (chown(folder_.c_str(), uid_, gid_) != 0) return *why = "cannot give " + folder_ + " to nobody", false;
    }
    chmod(folder_.c_str(), 0700);
    return true;
  }

  bool Init(std::string* why) {
    if (!HavePrograms({"initdb", "postgres", "psql"}, why) || !MakeFolder(why)) return false;
    const std::string bin = kBinDir;
    const std::string log = folder_ + "/server.log";
    if (Run({bin + "/initdb", "-D", data(), "-U", kSuperuser, "--auth=trust", "--encoding=UTF8",
             "--locale=C.UTF-8", "--no-sync"},
            log, true) != 0)
      return *why = "initdb failed: " + ReadFile(log), false;
    if (!Launch(why)) return false;
    const std::string create = std::string("CREATE DATABASE ") + kDatabase;
    std::vector<std::string> args = {bin + "/psql", "-X", "-q", "-h", folder_, "-U", kSuperuser, "-d", "postgres",
                                     "-c", create};
    if (Run(args, log, false) != 0) return *why = "cannot create the test database: " + ReadFile(log), false;
    return true;
  }

  bool InitReplica(const PgTestServer& primary, std::string* why) {
    if (!HavePrograms({"pg_basebackup", "postgres", "psql"}, why) || !MakeFolder(why)) return false;
    const std::string log = folder_ + "/server.log";
    // The primary's settings allow it as they are: initdb's access file lets local sockets
    // replicate, and wal_level and max_wal_senders have room for a standby by default.
    if (Run({std::string(kBinDir) + "/pg_basebackup", "-h", primary.folder(), "-U", kSuperuser, "-D", data(), "-R",
             "-X", "stream", "--no-sync",
             // An immediate checkpoint: the default waits for the next timed one (minutes).
             "--checkpoint=fast"},
            log, true) != 0)
      return *why = "pg_basebackup failed: " + ReadFile(log), false;
    return Launch(why);
  }

  // Starts the server on data() and waits until it takes connections: its pid file says
  // "ready" ("standby" for a replica) and the socket is there.
  bool Launch(std::string* why) {
    const std::string log = folder_ + "/server.log";
    pid_ = fork();
    if (pid_ < 0) return pid_ = 0, *why = "cannot start the server", false;
    if (pid_ == 0) {
      ChildSetUp(log, true);
      std::vector<std::string> args = {std::string(kBinDir) + "/postgres", "-D", data(), "-k", folder_, "-c",
                                       "listen_addresses=", "-c", "fsync=off", "-c", "max_connections=40",
                                       "-c", "shared_buffers=16MB"};
      for (const std::string& setting : settings_) {
        args.push_back("-c");
        args.push_back(setting);
      }
      execv(args[0].c_str(), Argv(args).data());
      _exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = 0;
        return *why = "the server ended at start: " + ReadFile(log), false;
      }
      const std::string pidfile = ReadFile(data() + "/postmaster.pid");
      if ((pidfile.find("ready") != std::string::npos || pidfile.find("standby") != std::string::npos) &&
          access((folder_ + "/.s.PGSQL.5432").c_str(), F_OK) == 0)
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return *why = "the server did not start within 60 s: " + ReadFile(log), false;
  }

  void Signal(int sig) {
    if (pid_ <= 0) return;
    kill(pid_, SIGCONT);
    kill(pid_, sig);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = 0;
  }

  std::string folder_;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  pid_t pid_ = 0;
  std::vector<std::string> settings_;
};

}  // namespace trovix::testing
