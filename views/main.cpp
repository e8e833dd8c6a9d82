// trovix: the desktop program.
//
//   trovix [/C] [/F] [/G:saved-search] [/I:settings-path] [/J] [/M] [/P] [root]
//
// A start while another instance runs hands its command line to that instance (which opens a
// new window for it) and ends at once; /P always starts a private instance of its own.
#include <QApplication>
#include <QIcon>
#include <QMetaObject>

#include <stop_token>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "platform/stop_signals.h"
#include "views/program/app_icon.h"
#include "views/program/desktop_app.h"
#include "views/program/instance_channel.h"
#include "views/frame/main_frame.h"
#include "views/program/sanitizer_defaults.h"
#include "views/program/web_engine_setup.h"

namespace {

// The command line as one text, program first, each argument quoted when it holds a blank, as
// a later start hands it over.
std::string JoinArguments(int argc, char** argv) {
  std::string line;
  for (int i = 0; i < argc; ++i) {
    std::string a = argv[i];
    if (i) line += ' ';
    if (a.find_first_of(" \t") != std::string::npos) line += '"' + a + '"';
    else line += a;
  }
  return line;
}

// SIGTERM and SIGINT (a session ending, Ctrl+C in the terminal that started the program) close
// every window as Alt+X does, so the settings and lists are saved as at any other exit; a
// second one ends the program at once, for a close that does not come. Nobody may be there to
// answer whether a running search is to be abandoned: it is.
void CloseAllFrames() {
  for (QWidget* w : QApplication::topLevelWidgets())
    if (auto* frame = qobject_cast<trovix::views::MainFrame*>(w)) frame->AbandonSearchOnClose();
  QApplication::closeAllWindows();
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const std::string line = JoinArguments(argc, argv);
  // Arguments come already split by the shell; none of them counts as quoted.
  const trovix::app::CommandLine parsed = trovix::app::ParseArguments(arguments, 1);
  const bool private_instance = (parsed.switches & trovix::app::kSwitchPrivate) != 0;

  trovix::views::PrepareWebEngine();
  // Debian's Qt 6.4 plays MP3 and FLAC in the quick view only with the FFmpeg back end; a
  // back end the user chose stays.
  if (!qEnvironmentVariableIsSet("QT_MEDIA_BACKEND")) qputenv("QT_MEDIA_BACKEND", "ffmpeg");
  QApplication application(argc, argv);
  QApplication::setApplicationName("trovix");
  QApplication::setApplicationVersion(TROVIX_VERSION_TEXT);
  QApplication::setDesktopFileName("trovix");
  QApplication::setWindowIcon(trovix::views::AppIcon());
  // The manager decides when the process ends: after the last frame, once the settings are saved.
  QApplication::setQuitOnLastWindowClosed(false);

  if (!private_instance && trovix::views::HandOverToRunningInstance(parsed.show_command, QString::fromStdString(line)))
    return 0;

  // The stop comes on the signal relay's thread; the windows are closed on the UI thread.
  std::stop_source terminate;
  trovix::platform::StopSignals stop_signals(terminate, /*second_ends_program=*/true);
  std::stop_callback on_terminate(terminate.get_token(), [] {
    QMetaObject::invokeMethod(qApp, &CloseAllFrames, Qt::QueuedConnection);
  });
  trovix::views::DesktopApp desktop(parsed);
  if (!private_instance) desktop.ListenForHandOver();
  QObject::connect(&desktop, &trovix::views::DesktopApp::lastFrameClosed, &application, &QCoreApplication::quit,
                   Qt::QueuedConnection);
  if (!desktop.Start()) return 100;
  application.exec();
  return 1;
}
