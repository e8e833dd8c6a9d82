// trovix: the desktop program.
#include <QApplication>
#include <QLabel>

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QLabel label("trovix");
  label.show();
  return app.exec();
}
