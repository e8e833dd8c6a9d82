// The desktop program as a process: the hand-over between two real starts, private instances,
// a stale or hung channel, the settings written at exit and /C. Each test runs the built program
// offscreen with its own runtime, configuration and cache folders and follows it through its
// trace file.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <fstream>
#include <memory>

#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace {

class DesktopProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    chmod(tree_.root().c_str(), 0700);
    runtime_ = tree_.path("run");
    mkdir(runtime_.c_str(), 0700);
    trace_ = tree_.path("trace.txt");
  }
  void TearDown() override {
    for (auto& p : processes_) {
      if (p->state() != QProcess::NotRunning) {
        p->kill();
        p->waitForFinished(3000);
      }
    }
  }

  // The desktop program, with its configuration in `config` (the tree's config/ by default).
  QProcess* Start(const QStringList& arguments, const std::string& config = "") {
    auto p = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("XDG_RUNTIME_DIR", QString::fromStdString(runtime_));
    env.insert("XDG_CONFIG_HOME", QString::fromStdString(config.empty() ? tree_.path("config") : config));
    env.insert("XDG_CACHE_HOME", QString::fromStdString(tree_.path("cache")));
    env.insert("XDG_DATA_HOME", QString::fromStdString(tree_.path("data")));
    env.insert("TROVIX_TRACE", QString::fromStdString(trace_));
    env.insert("TROVIX_EXTRACT", TROVIX_EXTRACT_PATH);
    p->setProcessEnvironment(env);
    p->setWorkingDirectory(QString::fromStdString(tree_.root()));
    p->start(TROVIX_GUI_PATH, arguments);
    EXPECT_TRUE(p->waitForStarted(5000));
    processes_.push_back(std::move(p));
    return processes_.back().get();
  }

  // The console program on the same configuration; its output.
  std::string Cli(const QStringList& args, const std::string& config = "") {
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", QString::fromStdString(config.empty() ? tree_.path("config") : config));
    p.setProcessEnvironment(env);
    p.start(QString(TROVIX_BUILD_DIR) + "/trovix-cli", args);
    EXPECT_TRUE(p.waitForFinished(20000));
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    return p.readAllStandardOutput().toStdString();
  }

  std::string Trace() const {
    std::ifstream in(trace_);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  // Waits until the trace holds `text` `count` times; false after `ms`.
  bool WaitForTrace(const std::string& text, int count = 1, int ms = 15000) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
      if (trovix::testing::Occurrences(Trace(), text) >= static_cast<size_t>(count)) return true;
      QThread::msleep(50);
    }
    return false;
  }

  static bool Terminate(QProcess* p) {
    ::kill(static_cast<pid_t>(p->processId()), SIGTERM);
    return p->waitForFinished(15000);
  }

  std::string Socket() const { return runtime_ + "/trovix_CommPort"; }

  // A socket bound at the channel's place by the test itself; -1 when that failed.
  int BindChannel() const {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", Socket().c_str());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
      ::close(fd);
      return -1;
    }
    return fd;
  }

  // A folder name with a blank and non-ASCII letters: it must travel whole through the hand-over.
  trovix::testing::TempTree tree_{{"docs/", "docs/report one.txt=quarterly figures", "docs/notes.txt=x", "Fotos Ägypten/"}};
  std::string runtime_;
  std::string trace_;
  std::vector<std::unique_ptr<QProcess>> processes_;
};

TEST_F(DesktopProcessTest, ASecondStartHandsItsFolderToTheFirstAndEnds) {
  QProcess* first = Start({});
  ASSERT_TRUE(WaitForTrace("listening")) << Trace();
  ASSERT_TRUE(WaitForTrace("frame"));

  QProcess* second = Start({QString::fromStdString(tree_.path("Fotos Ägypten"))});
  ASSERT_TRUE(second->waitForFinished(8000));
  EXPECT_EQ(second->exitCode(), 0);
  // The first instance opened a frame at that folder.
  EXPECT_TRUE(WaitForTrace("frame " + tree_.path("Fotos Ägypten"))) << Trace();
  EXPECT_EQ(first->state(), QProcess::Running);

  // A private instance runs on its own and ends with its last window.
  QProcess* own = Start({"/P"});
  EXPECT_FALSE(own->waitForFinished(1500));
  EXPECT_EQ(own->state(), QProcess::Running);
  EXPECT_TRUE(Terminate(own));
  EXPECT_TRUE(Terminate(first));
}

TEST_F(DesktopProcessTest, AStaleSocketIsTakenOver) {
  // A socket file that nobody listens on, as a crashed instance leaves it.
  int fd = BindChannel();
  ASSERT_GE(fd, 0);
  ::close(fd);

  QElapsedTimer timer;
  timer.start();
  QProcess* first = Start({});
  ASSERT_TRUE(WaitForTrace("listening", 1, 8000)) << Trace();
  EXPECT_LT(timer.elapsed(), 6000);
  QProcess* second = Start({QString::fromStdString(tree_.path("docs"))});
  ASSERT_TRUE(second->waitForFinished(8000));
  EXPECT_TRUE(WaitForTrace("frame " + tree_.path("docs")));
  EXPECT_TRUE(Terminate(first));
}

TEST_F(DesktopProcessTest, AHungFirstInstanceDoesNotKeepANewStartWaiting) {
  // Listens but never answers: connections complete in the kernel and then nothing happens.
  int fd = BindChannel();
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::listen(fd, 8), 0);

  QElapsedTimer timer;
  timer.start();
  QProcess* gui = Start({QString::fromStdString(tree_.path("docs"))});
  ASSERT_TRUE(WaitForTrace("frame " + tree_.path("docs"), 1, 10000)) << Trace();
  EXPECT_LT(timer.elapsed(), 7000);
  EXPECT_EQ(gui->state(), QProcess::Running);
  EXPECT_TRUE(Terminate(gui));
  ::close(fd);
}

TEST_F(DesktopProcessTest, SettingsAndListsAreWrittenAtExit) {
  const std::string ini = tree_.path("settings/trovix.ini");
  mkdir(tree_.path("settings").c_str(), 0700);
  QProcess* gui = Start({"/P", QString::fromStdString("/I:" + ini)});
  ASSERT_TRUE(WaitForTrace("frame")) << Trace();
  ASSERT_TRUE(Terminate(gui));
  EXPECT_TRUE(WaitForTrace("saved 0")) << Trace();
  std::ifstream in(ini);
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  // A first start writes the default map area, the general section and the frame's own.
  EXPECT_NE(text.find("[MapRects\\0]"), std::string::npos) << text;
  EXPECT_NE(text.find("New York"), std::string::npos);
  EXPECT_NE(text.find("[general]"), std::string::npos);
  EXPECT_NE(text.find("binWindowPlacement"), std::string::npos);
}

TEST_F(DesktopProcessTest, ConsoleSwitchWritesTheSavedSearchsResults) {
  const std::string ini = tree_.path("trovix.ini");
  // A saved search as the console program writes it.
  Cli({"--settings", QString::fromStdString(ini), "saved", "save", "reports", "-r", "name: report*", "--root",
       QString::fromStdString(tree_.path("docs"))});

  QProcess* gui = Start({"/P", "/C", "/G:Reports", QString::fromStdString("/I:" + ini)});
  QElapsedTimer timer;
  timer.start();
  QByteArray out;
  while (timer.elapsed() < 20000 && !out.contains("report one.txt")) {
    gui->waitForReadyRead(200);
    out += gui->readAllStandardOutput();
  }
  EXPECT_TRUE(out.contains((tree_.path("docs/report one.txt") + "\n").c_str())) << out.toStdString() << Trace();
  EXPECT_FALSE(out.contains("notes.txt"));
  EXPECT_TRUE(Terminate(gui));
}

// The console saves a search and sets a value while a window is open; the program, saving at
// exit what it loaded at start and what its windows changed, keeps both: for the settings file
// and for the key store.
TEST_F(DesktopProcessTest, ASearchTheConsoleSavesWhileAWindowIsOpenSurvivesTheProgramsExit) {
  for (const bool file_store : {true, false}) {
    SCOPED_TRACE(file_store ? "settings file" : "key store");
    const std::string ini = tree_.path(file_store ? "one/trovix.ini" : "unused.ini");
    const std::string config = tree_.path(file_store ? "config-file" : "config-keys");
    auto cli = [&](QStringList args) {
      if (file_store) args << "--settings" << QString::fromStdString(ini);
      return Cli(args, config);
    };
    cli({"saved", "save", "before", "-r", "name: *.a"});
    QStringList gui_args = {"/P"};
    if (file_store) gui_args << QString::fromStdString("/I:" + ini);
    QFile::remove(QString::fromStdString(trace_));
    QProcess* gui = Start(gui_args, config);
    ASSERT_TRUE(WaitForTrace("frame")) << Trace();

    cli({"saved", "save", "while open", "-r", "name: *.b"});
    cli({"settings", "set", "bin1OffNotify", "+2"});
    ASSERT_TRUE(Terminate(gui));
    EXPECT_TRUE(WaitForTrace("saved 0")) << Trace();

    EXPECT_EQ(cli({"saved", "list"}), "before\nwhile open\n");
    EXPECT_EQ(cli({"settings", "get", "bin1OffNotify", "--raw"}), "0x00000002\n");
    // The program's own change at exit is there too.
    EXPECT_NE(cli({"settings", "get", "frame\\binWindowPlacement", "--raw"}).rfind("hex:", 0),
              std::string::npos);
  }
}

}  // namespace
