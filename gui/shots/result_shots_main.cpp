// Writes the pictures of the results window (see screenshot_results.h):
//   xvfb-run -a kelvor_result_shots OUTDIR SAMPLE_TREE
#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <cstdio>

#include "gui/screenshot_results.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s OUTDIR SAMPLE_TREE\n", argv[0]);
    return 1;
  }
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Kelvor"));
  // Without a desktop session there is no icon theme of the user's.
  if (QIcon::themeName().isEmpty() || QIcon::themeName() == QStringLiteral("hicolor"))
    QIcon::setThemeName(QStringLiteral("Adwaita"));
  QString error;
  const QStringList files = kelvor::gui::TakeResultShots(
      QString::fromLocal8Bit(argv[1]),
      QFileInfo(QString::fromLocal8Bit(argv[2])).canonicalFilePath(), &error);
  for (const QString& f : files) std::printf("%s\n", qPrintable(f));
  if (!error.isEmpty()) std::fprintf(stderr, "%s", qPrintable(error));
  return files.size() == 3 ? 0 : 1;
}
