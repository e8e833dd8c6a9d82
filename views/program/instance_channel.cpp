#include "views/program/instance_channel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>
#include <QtEndian>

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace trovix::views {
namespace {

constexpr char kSocketName[] = "trovix_CommPort";
constexpr char kTag[4] = {'T', 'R', 'V', '1'};
constexpr qsizetype kHeaderBytes = 12;  // tag, show command, length
constexpr char kAck = 0x06;
// How long a start waits to learn whether the socket it found still has a listener. A live
// instance accepts at once (the kernel does it, even while the instance is busy).
constexpr int kProbeMs = 1000;

QByteArray Message(quint32 show_command, const QByteArray& line) {
  QByteArray message(kHeaderBytes, Qt::Uninitialized);
  std::copy(kTag, kTag + 4, message.data());
  qToLittleEndian<quint32>(show_command, message.data() + 4);
  qToLittleEndian<quint32>(static_cast<quint32>(line.size()), message.data() + 8);
  return message + line;
}

// One incoming connection: collects the message, acknowledges it, hands it on, and drops
// anything that is not a whole message of ours in good time.
void Serve(QLocalSocket* socket, InstanceServer* server,
           const std::function<void(quint32, const QString&)>& deliver) {
  auto buffer = std::make_shared<QByteArray>();
  QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
  // A client that connects and then says nothing (or too little) does not hold a socket open.
  QTimer::singleShot(kHandOverTimeoutMs, socket, [socket] { socket->abort(); });
  QObject::connect(socket, &QLocalSocket::readyRead, server, [socket, buffer, deliver] {
    if (socket->state() != QLocalSocket::ConnectedState) return;
    buffer->append(socket->readAll());
    if (buffer->size() < kHeaderBytes) return;
    const quint32 length = qFromLittleEndian<quint32>(buffer->constData() + 8);
    if (!std::equal(kTag, kTag + 4, buffer->constData()) || length > kMaxHandOverBytes ||
        buffer->size() > kHeaderBytes + static_cast<qsizetype>(length)) {
      buffer->clear();
      socket->abort();
      return;
    }
    if (buffer->size() < kHeaderBytes + static_cast<qsizetype>(length)) return;
    const quint32 show_command = qFromLittleEndian<quint32>(buffer->constData() + 4);
    const QString line = QString::fromUtf8(buffer->constData() + kHeaderBytes, length);
    buffer->clear();
    // Acknowledge first: the sender is released before this instance opens a frame for it.
    socket->write(&kAck, 1);
    socket->flush();
    socket->disconnectFromServer();
    deliver(show_command, line);
  });
}

}  // namespace

QString CommPortPath() {
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (!runtime.isEmpty() && QFileInfo(runtime).isDir()) return QDir(runtime).filePath(kSocketName);

  // No runtime folder: one of our own in the temporary folder. Another user must not be able to
  // plant a socket there that would receive our command lines.
  const uint uid = ::getuid();
  const QString folder = QDir(QDir::tempPath()).filePath(QStringLiteral("trovix-%1").arg(uid));
  QDir().mkpath(folder);
  const QFileInfo info(folder);
  if (!info.isDir() || info.isSymLink() || info.ownerId() != uid) return QString();
  const QFileDevice::Permissions own =
      QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner | QFileDevice::ReadUser |
      QFileDevice::WriteUser | QFileDevice::ExeUser;
  if ((QFile::permissions(folder) & ~own) != 0 && !QFile::setPermissions(folder, own)) return QString();
  return QDir(folder).filePath(kSocketName);
}

bool HandOverToRunningInstance(quint32 show_command, const QString& line, int timeout_ms,
                               const QString& socket_path) {
  if (socket_path.isEmpty()) return false;
  const QByteArray utf8 = line.toUtf8();
  if (utf8.size() > static_cast<qsizetype>(kMaxHandOverBytes)) return false;

  // One deadline for the whole exchange, so a hung instance costs at most `timeout_ms`.
  QElapsedTimer clock;
  clock.start();
  auto left = [&] { return std::max(0, timeout_ms - static_cast<int>(clock.elapsed())); };

  QLocalSocket socket;
  socket.connectToServer(socket_path);
  if (!socket.waitForConnected(left())) return false;
  socket.write(Message(show_command, utf8));
  while (socket.bytesToWrite() > 0) {
    if (left() == 0 || !socket.waitForBytesWritten(left())) return false;
  }
  while (socket.bytesAvailable() < 1) {
    if (left() == 0 || !socket.waitForReadyRead(left())) return false;
  }
  char ack = 0;
  return socket.read(&ack, 1) == 1 && ack == kAck;
}

InstanceServer::InstanceServer(QObject* parent) : QObject(parent) {}

InstanceServer::~InstanceServer() {
  if (server_) server_->close();  // also removes the socket file
}

bool InstanceServer::Listen(const QString& socket_path) {
  if (socket_path.isEmpty()) return false;
  if (server_) {
    server_->close();
    delete server_;
    server_ = nullptr;
  }
  // A socket file that is there already belongs to a live instance when it accepts a
  // connection; otherwise it was left by one that crashed, and we take it over.
  if (QFileInfo::exists(socket_path) || QFileInfo(socket_path).isSymLink()) {
    QLocalSocket probe;
    probe.connectToServer(socket_path);
    if (probe.waitForConnected(kProbeMs)) {
      probe.abort();
      return false;
    }
    QLocalServer::removeServer(socket_path);
  }
  auto* server = new QLocalServer(this);
  if (!server->listen(socket_path)) {
    delete server;
    return false;
  }
  server_ = server;
  connect(server_, &QLocalServer::newConnection, this, &InstanceServer::Accept);
  return true;
}

void InstanceServer::Accept() {
  while (QLocalSocket* socket = server_->nextPendingConnection()) {
    Serve(socket, this, [this](quint32 show_command, const QString& line) {
      emit commandLineArrived(show_command, line);
    });
  }
}

}  // namespace trovix::views
