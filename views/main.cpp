// trovix: the desktop program.
//
//   trovix [/C] [/F] [/G:saved-search] [/I:settings-path] [/J] [/M] [/P] [root]
//
// A start while another instance runs hands its command line to that instance (which opens a
// new window for it) and ends at once; /P always starts a private instance of its own.
#include <QApplication>
#include <QIcon>

#include <string>
#include <vector>

#include "app/command_line.h"
#include "views/desktop_app.h"
#include "views/instance_channel.h"

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

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const std::string line = JoinArguments(argc, argv);
  // Arguments come already split by the shell; none of them counts as quoted.
  const trovix::app::CommandLine parsed = trovix::app::ParseArguments(arguments, 1);
  const bool private_instance = (parsed.switches & trovix::app::kSwitchPrivate) != 0;

  QApplication application(argc, argv);
  QApplication::setApplicationName("trovix");
  QApplication::setApplicationVersion(TROVIX_VERSION_TEXT);
  QApplication::setDesktopFileName("trovix");
  QApplication::setWindowIcon(QIcon(":/trovix.svg"));
  // The manager decides when the process ends: after the last frame, once the settings are saved.
  QApplication::setQuitOnLastWindowClosed(false);

  if (!private_instance && trovix::views::HandOverToRunningInstance(parsed.show_command, QString::fromStdString(line)))
    return 0;

  trovix::views::DesktopApp desktop(parsed);
  if (!private_instance) desktop.ListenForHandOver();
  if (!desktop.Start()) return 100;
  application.exec();
  return 1;
}
