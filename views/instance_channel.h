// The single-instance hand-over: a later start hands its command line to the running
// instance, which opens a new frame for it, and ends. The running instance listens on a local
// socket named "trovix_CommPort" in the user's runtime folder.
//
// The client waits at most 5,000 ms in all (connect, send, acknowledgement): a first instance
// that hangs or a socket left behind by a crash never keeps a new start from running on its
// own. The server takes over a socket that nobody answers on.
//
// UI thread for the server (it lives in the event loop); the client blocks its caller.
#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace trovix::views {

inline constexpr int kHandOverTimeoutMs = 5000;

// The socket's path: $XDG_RUNTIME_DIR/trovix_CommPort, else a folder of this user's own under
// the temporary folder.
QString CommPortPath();

// Hands `line` (the whole command line, program first) with its show command to a running
// instance. True when the instance acknowledged it within `timeout_ms`.
bool HandOverToRunningInstance(quint32 show_command, const QString& line, int timeout_ms = kHandOverTimeoutMs,
                               const QString& socket_path = CommPortPath());

class InstanceServer : public QObject {
  Q_OBJECT
 public:
  explicit InstanceServer(QObject* parent = nullptr);
  ~InstanceServer() override;

  // Starts listening at `socket_path`; a stale socket (nobody answers) is removed first. False
  // when a live instance holds it or the socket cannot be made: this process then runs alone.
  bool Listen(const QString& socket_path = CommPortPath());

 signals:
  // A later start's command line, acknowledged already.
  void commandLineArrived(quint32 show_command, const QString& line);

 private:
  QLocalServer* server_ = nullptr;
};

}  // namespace trovix::views
