#pragma once

#include <QMainWindow>

namespace kelvor::gui {

// The setup window (object name frmMain): source folders, criteria, options.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(QWidget* parent = nullptr);
};

}  // namespace kelvor::gui
