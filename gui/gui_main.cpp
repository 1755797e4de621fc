#include "gui/gui_main.h"

#include <QApplication>
#include <cstdlib>
#include <iostream>

#include "gui/main_window.h"

namespace kelvor::gui {

namespace {

// Qt aborts when it finds no display; say it plainly instead.
bool HasDisplay() {
  const char* platform = std::getenv("QT_QPA_PLATFORM");
  if (platform != nullptr && *platform != '\0') return true;
  const char* x = std::getenv("DISPLAY");
  const char* wayland = std::getenv("WAYLAND_DISPLAY");
  return (x != nullptr && *x != '\0') || (wayland != nullptr && *wayland != '\0');
}

}  // namespace

int RunGui(int argc, char** argv) {
  if (!HasDisplay()) {
    std::cerr << "kelvor: no display found (DISPLAY and WAYLAND_DISPLAY are not set); "
                 "run 'kelvor --headless ...' in a terminal (see kelvor --help)\n";
    return 1;
  }
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Kelvor"));
  MainWindow window;
  window.show();
  return QApplication::exec();
}

}  // namespace kelvor::gui
