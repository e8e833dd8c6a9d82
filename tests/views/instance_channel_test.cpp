// The single-instance hand-over, end to end over a real local socket: the server lives in this
// thread's event loop, the forwarding start runs on a thread of its own (as a second process
// would, it blocks while it waits for the acknowledgement).
#include "views/program/instance_channel.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <future>

namespace trovix::views {
namespace {

class InstanceChannelTest : public ::testing::Test {
 protected:
  QString SocketPath() const { return dir_.filePath("trovix_CommPort"); }

  // Runs a forwarding start on another thread while this thread serves events.
  std::future<bool> HandOverLater(quint32 show, const QString& line) {
    const QString path = SocketPath();
    return std::async(std::launch::async, [=] { return HandOverToRunningInstance(show, line, kHandOverTimeoutMs, path); });
  }

  // Waits (serving events) for a future from another thread.
  template <typename T>
  static T Await(std::future<T>& result) {
    QElapsedTimer clock;
    clock.start();
    while (result.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && clock.elapsed() < 10000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return result.get();
  }

  QTemporaryDir dir_;
};

TEST_F(InstanceChannelTest, NoListenerMeansNoHandOver) {
  EXPECT_FALSE(HandOverToRunningInstance(1, "trovix", 1000, SocketPath()));
  EXPECT_FALSE(HandOverToRunningInstance(1, "trovix", 1000, QString()));
}

TEST_F(InstanceChannelTest, SecondServerLeavesLiveInstanceAlone) {
  InstanceServer first;
  ASSERT_TRUE(first.Listen(SocketPath()));
  InstanceServer second;
  EXPECT_FALSE(second.Listen(SocketPath()));

  // The first still receives.
  auto sent = HandOverLater(1, "trovix /x");
  EXPECT_TRUE(Await(sent));
}

// (A stale socket, a hung instance and a second process are driven end to end by the tests of
// the program itself.)
TEST_F(InstanceChannelTest, HungInstanceDoesNotHoldALongLine) {
  // Accepts connections (the kernel does, while nobody serves the events) but never answers, and
  // the line is too long for the socket's buffers: the write stalls.
  QLocalServer hung;
  ASSERT_TRUE(hung.listen(SocketPath()));
  QElapsedTimer clock;
  clock.start();
  EXPECT_FALSE(HandOverToRunningInstance(1, QString(500000, QChar('x')), 1000, SocketPath()));
  EXPECT_LT(clock.elapsed(), 2000);
}

TEST_F(InstanceChannelTest, DropsMalformedMessagesAndKeepsServing) {
  InstanceServer server;
  ASSERT_TRUE(server.Listen(SocketPath()));
  QSignalSpy arrived(&server, &InstanceServer::commandLineArrived);

  // Each raw message must be answered by a closed connection and no acknowledgement.
  auto send_raw = [&](QByteArray bytes) {
    const QString path = SocketPath();
    auto reply = std::async(std::launch::async, [path, bytes] {
      QLocalSocket socket;
      socket.connectToServer(path);
      if (!socket.waitForConnected(2000)) return QByteArray("no connection");
      socket.write(bytes);
      socket.waitForBytesWritten(2000);
      QByteArray answer;
      while (socket.state() == QLocalSocket::ConnectedState && socket.waitForReadyRead(3000))
        answer += socket.readAll();
      answer += socket.readAll();
      return answer;
    });
    return Await(reply);
  };
  QByteArray wrong_tag("XXXX\x01\x00\x00\x00\x03\x00\x00\x00" "abc", 15);
  EXPECT_EQ(send_raw(wrong_tag), QByteArray());
  QByteArray oversized("TRV1\x01\x00\x00\x00\xff\xff\xff\x7f", 12);
  EXPECT_EQ(send_raw(oversized + QByteArray(100, 'a')), QByteArray());
  QByteArray too_long("TRV1\x01\x00\x00\x00\x02\x00\x00\x00" "abcdef", 18);
  EXPECT_EQ(send_raw(too_long), QByteArray());
  QCoreApplication::processEvents();
  EXPECT_EQ(arrived.count(), 0);

  auto sent = HandOverLater(3, "trovix /c");
  EXPECT_TRUE(Await(sent));
  ASSERT_TRUE(arrived.count() == 1 || arrived.wait(2000));
  EXPECT_EQ(arrived.at(0).at(1).toString(), "trovix /c");
}

TEST(CommPortPathTest, RuntimeFolderElsePrivateTemporaryFolder) {
  const QByteArray saved_runtime = qgetenv("XDG_RUNTIME_DIR");
  const QByteArray saved_tmp = qgetenv("TMPDIR");
  QTemporaryDir runtime;
  qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
  EXPECT_EQ(CommPortPath(), runtime.filePath("trovix_CommPort"));

  QTemporaryDir tmp;
  qunsetenv("XDG_RUNTIME_DIR");
  qputenv("TMPDIR", QFile::encodeName(tmp.path()));
  const QString path = CommPortPath();
  ASSERT_FALSE(path.isEmpty());
  EXPECT_TRUE(path.startsWith(tmp.path()));
  EXPECT_TRUE(path.endsWith("/trovix_CommPort"));
  struct stat info{};
  ASSERT_EQ(::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  // A folder that others may enter is closed again before use.
  ::chmod(QFile::encodeName(QFileInfo(path).path()).constData(), 0777);
  EXPECT_EQ(CommPortPath(), path);
  ASSERT_EQ(::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  qputenv("XDG_RUNTIME_DIR", saved_runtime);
  if (saved_runtime.isEmpty()) qunsetenv("XDG_RUNTIME_DIR");
  qputenv("TMPDIR", saved_tmp);
  if (saved_tmp.isEmpty()) qunsetenv("TMPDIR");
}

}  // namespace
}  // namespace trovix::views
