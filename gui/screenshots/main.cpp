// kelvor_screenshots: draws each window of Kelvor in its states and writes a
// PNG of each, for review (scripts/screenshots runs it under Xvfb).
//
//   kelvor_screenshots OUT_DIR SAMPLE_FOLDER DATA_DIR

#include <QApplication>
#include <QIcon>
#include <iostream>

#include "gui/screenshots/file_window_shots.h"
#include "gui/screenshots/result_shots.h"
#include "gui/screenshots/setup_shots.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 4) {
    std::cerr << "usage: kelvor_screenshots OUT_DIR SAMPLE_FOLDER DATA_DIR\n";
    return 2;
  }
  QApplication::setApplicationDisplayName(QStringLiteral("Kelvor"));
  if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
    QIcon::setThemeName(QStringLiteral("Adwaita"));
  const QString out = QString::fromLocal8Bit(argv[1]);
  const QString sample = QString::fromLocal8Bit(argv[2]);
  const QString data = QString::fromLocal8Bit(argv[3]);
  int written = 0;
  written += kelvor::gui::TakeSetupShots(out, sample, data);
  QString error;
  const QStringList results = kelvor::gui::TakeResultShots(out, sample, &error);
  written += static_cast<int>(kelvor::gui::TakeFileWindowShots(out, sample, &error).size());
  if (!error.isEmpty()) std::cerr << error.toStdString();
  written += static_cast<int>(results.size());
  return written > 0 && error.isEmpty() ? 0 : 1;
}
