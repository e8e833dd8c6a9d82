#include "views/instance_channel.h"

#include <QLocalServer>

namespace trovix::views {

QString CommPortPath() { return QString(); }
bool HandOverToRunningInstance(quint32, const QString&, int, const QString&) { return false; }
InstanceServer::InstanceServer(QObject* parent) : QObject(parent) {}
InstanceServer::~InstanceServer() = default;
bool InstanceServer::Listen(const QString&) { return false; }

}  // namespace trovix::views
