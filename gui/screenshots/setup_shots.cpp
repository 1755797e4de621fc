#include "gui/screenshots/setup_shots.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QColor>
#include <QGroupBox>
#include <QListWidget>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QTabWidget>
#include <QTimer>
#include <iostream>

#include "gui/main_window.h"

namespace kelvor::gui {

namespace {

bool Save(QWidget* w, const QString& dir, const QString& name) {
  QApplication::processEvents();
  const QString file = dir + QLatin1Char('/') + name + QStringLiteral(".png");
  if (w->grab().save(file)) {
    std::cout << file.toStdString() << '\n';
    return true;
  }
  std::cerr << "kelvor_screenshots: cannot write " << file.toStdString() << '\n';
  return false;
}

void Click(MainWindow& w, const QString& name) {
  if (auto* b = w.findChild<QAbstractButton*>(name)) b->click();
  if (auto* g = w.findChild<QGroupBox*>(name)) {
    g->setChecked(!g->isChecked());
    emit g->clicked(g->isChecked());
  }
}

}  // namespace

int TakeSetupShots(const QString& dir, const QString& sample, const QString& dataDir) {
  SessionOptions so;
  so.executable = ExecutablePath("kelvor");
  so.dataDir = dataDir.toStdString();
  so.env = Environment::FromProcess();
  MainWindow w(so);
  w.resize(1200, 820);
  w.AddSourceFolder(sample);
  Click(w, QStringLiteral("chkSuchKriterien(3)"));
  w.show();
  auto* tabs = w.findChild<QTabWidget*>(QStringLiteral("tabMain"));
  static const char* const kPages[] = {"setup-folders", "setup-criteria", "setup-filters",
                                       "setup-archives", "setup-options"};
  int written = 0;
  for (int i = 0; i < tabs->count() && i < 5; ++i) {
    tabs->setCurrentIndex(i);
    if (i == 2) {
      // A file filter as a user would write one: two patterns in a row.
      Click(w, QStringLiteral("chkDateifilterVerwenden"));
      auto* files = w.findChild<QListWidget*>(QStringLiteral("lvwFiF"));
      auto* row = new QListWidgetItem(QStringLiteral("*.tmp | *.bak"), files);
      row->setFlags(row->flags() | Qt::ItemIsUserCheckable);
      row->setCheckState(Qt::Checked);
    }
    if (i == 3) Click(w, QStringLiteral("chkScanArchives"));
    written += Save(&w, dir, QString::fromLatin1(kPages[i]));
  }
  // Similar pictures: the other criteria step back.
  Click(w, QStringLiteral("chkSuchKriterien(8)"));
  tabs->setCurrentIndex(1);
  written += Save(&w, dir, QStringLiteral("setup-criteria-pictures"));

  // The start check's message over the window: no criterion chosen.
  Click(w, QStringLiteral("chkSuchKriterien(8)"));
  tabs->setCurrentIndex(0);
  QTimer::singleShot(300, [&] {
    if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
      QPixmap shot = w.grab();
      // The box drawn where the desktop would put it, over the window's centre.
      QPixmap boxShot = box->grab();
      QPainter p(&shot);
      // Without a window manager the box has no frame: the window behind is
      // dimmed and the box gets a border, as a desktop would show it.
      p.fillRect(shot.rect(), QColor(0, 0, 0, 60));
      const QRect at((shot.width() - boxShot.width()) / 2, (shot.height() - boxShot.height()) / 2,
                     boxShot.width(), boxShot.height());
      p.drawPixmap(at.topLeft(), boxShot);
      p.setPen(QColor(90, 90, 90));
      p.drawRect(at.adjusted(-1, -1, 0, 0));
      p.end();
      const QString file = dir + QStringLiteral("/setup-start-check.png");
      if (shot.save(file)) {
        std::cout << file.toStdString() << '\n';
        ++written;
      }
      box->accept();
    }
  });
  w.StartSearchForDups();
  w.close();
  return written;
}

}  // namespace kelvor::gui
