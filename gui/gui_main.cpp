#include "gui/gui_main.h"

#include <QApplication>
#include <QIcon>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

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
  QApplication app(argc, argv);  // takes Qt's own options (-style, -platform, ...) out
  QApplication::setApplicationName(QStringLiteral("Kelvor"));
  QApplication::setApplicationDisplayName(QStringLiteral("Kelvor"));
  QApplication::setDesktopFileName(QStringLiteral("kelvor"));
  // Outside a desktop session no icon theme is named; the GNOME theme that
  // Debian installs with Qt's dependencies gives the icons then.
  if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
    QIcon::setThemeName(QStringLiteral("Adwaita"));
  QIcon::setFallbackThemeName(QStringLiteral("Adwaita"));

  SessionOptions so;
  so.executable = ExecutablePath(argv[0]);
  so.env = Environment::FromProcess();
  const QStringList args = QApplication::arguments();
  for (qsizetype i = 1; i < args.size(); ++i) {
    const std::string a = args[i].toStdString();
    if (a == "--data-dir") {
      if (i + 1 >= args.size()) {
        std::cerr << "kelvor: --data-dir needs a folder\n";
        return 1;
      }
      so.dataDir = args[++i].toStdString();
    } else if (a.rfind("--data-dir=", 0) == 0) {
      so.dataDir = a.substr(11);
    } else if (a.rfind("--", 0) == 0) {
      std::cerr << "kelvor: unknown option '" << a << "' (see kelvor --help)\n";
      return 1;
    } else {
      so.items.push_back(a);
    }
  }

  MainWindow window(std::move(so));
  // The program ends with the setup window; a results window closing brings
  // the setup window back.
  QApplication::setQuitOnLastWindowClosed(false);
  QObject::connect(&window, &MainWindow::closed, &app, &QApplication::quit, Qt::QueuedConnection);
  std::vector<std::string> unknown;
  if (!window.OpenWithCommandLine(&unknown)) {
    for (const std::string& u : unknown)
      std::cerr << "kelvor: unknown item '" << u << "' (see kelvor --help)\n";
    return 1;
  }
  return QApplication::exec();
}

}  // namespace kelvor::gui
