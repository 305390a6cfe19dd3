// An application with Qt 6 that requests URLs side by side. Qt on Linux turns the run loop that the library needs.
//
//   example-qt [URL...]

#include <QApplication>

#include "Window.h"

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  example::Window window;
  const QStringList arguments = QApplication::arguments();
  for (const QString& url : arguments.mid(1)) {
    window.add(url);
  }
  window.show();
  return QApplication::exec();
}
