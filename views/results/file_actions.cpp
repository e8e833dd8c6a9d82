#include "views/results/file_actions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QUrl>

#include "platform/no_replace_rename.h"

namespace trovix::views {
namespace {

QString LocalPath(const props::ShellItem& item) { return QFile::decodeName(QByteArray::fromStdString(item.path())); }

bool Exists(const props::ShellItem& item) {
  // lstat rather than stat: a dangling link is still an item that can be shown or trashed.
  struct stat st;
  return item.IsFileSystem() && ::lstat(item.path().c_str(), &st) == 0;
}

}  // namespace

bool OpenItem(const props::ShellItem& item) {
  if (!item.IsFileSystem() || ::access(item.path().c_str(), R_OK) != 0) return false;
  return QDesktopServices::openUrl(QUrl::fromLocalFile(LocalPath(item)));
}

bool ShowItemsInFolder(const std::vector<props::ShellItemPtr>& items) {
  QStringList uris;
  for (const props::ShellItemPtr& item : items) {
    if (item && Exists(*item)) uris << QUrl::fromLocalFile(LocalPath(*item)).toString();
  }
  if (uris.isEmpty()) return false;
  QDBusConnection bus = QDBusConnection::sessionBus();
  const QString service = QStringLiteral("org.freedesktop.FileManager1");
  if (bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(service).value()) {
    QDBusMessage call = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/FileManager1"),
                                                       service, QStringLiteral("ShowItems"));
    call << uris << QString();
    if (bus.call(call, QDBus::Block, 3000).type() != QDBusMessage::ErrorMessage) return true;
  }
  QString folder = QFileInfo(LocalPath(*items.front())).absolutePath();
  return QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

bool MoveItemToTrash(const props::ShellItem& item) {
  if (!Exists(item)) return false;
  return QFile::moveToTrash(LocalPath(item));
}

bool CanRename(const props::ShellItem& item) { return Exists(item); }

RenameResult RenameItem(const props::ShellItem& item, const std::string& new_name,
                        std::string* new_path, std::string* why) {
  if (!CanRename(item)) return RenameResult::kCannotRename;
  if (new_name.empty() || new_name == "." || new_name == ".." || new_name.find('/') != std::string::npos)
    return RenameResult::kFailed;
  std::string folder = item.path().substr(0, item.path().size() - item.name().size());
  std::string target = folder + new_name;
  if (target == item.path()) {
    if (new_path) *new_path = target;
    return RenameResult::kRenamed;
  }
  // Never over another item: where the file system has no rename that cannot replace, the
  // item is left as it is and the user is told why.
  platform::RenameOutcome outcome = platform::RenameNoReplace(item.path(), target);
  if (outcome.no_atomic_way) {
    if (why) *why = outcome.message;
    return RenameResult::kNoSafeWay;
  }
  if (outcome.error != 0) return RenameResult::kFailed;
  if (new_path) *new_path = target;
  return RenameResult::kRenamed;
}

}  // namespace trovix::views
