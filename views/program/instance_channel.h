// The single-instance hand-over: a later start hands its command line to the running
// instance, which opens a new frame for it, and ends. The running instance listens on a local
// socket named "trovix_CommPort" in the user's runtime folder.
//
// The client waits at most 5,000 ms in all (connect, send, acknowledgement): a first instance
// that hangs or a socket left behind by a crash never keeps a new start from running on its
// own. The server takes over a socket that nobody answers on.
//
// The messages are this program's own: the 4 bytes "TRV1", the show command (32 bits), the
// length of the line in bytes (32 bits, little-endian both) and the line in UTF-8. The server
// answers with one acknowledgement byte as soon as the message is whole, before it works on the
// line, so that a forwarding start is released at once. A message with another tag, a length
// over kMaxHandOverBytes or one that stays unfinished for kHandOverTimeoutMs is dropped and its
// connection closed.
//
// UI thread for the server (it lives in the event loop); the client blocks its caller, so it
// must never run on the thread of a server it talks to.
#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace trovix::views {

inline constexpr int kHandOverTimeoutMs = 5000;
// Longer command lines than this are not handed over.
inline constexpr quint32 kMaxHandOverBytes = 1u << 20;

// The socket's path: $XDG_RUNTIME_DIR/trovix_CommPort, else trovix-<uid>/trovix_CommPort in the
// temporary folder (made 0700; a folder of that name that belongs to someone else, or that
// others may enter, is not used: the path is then empty and no hand-over happens).
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
  void Accept();

  QLocalServer* server_ = nullptr;
};

}  // namespace trovix::views
