#pragma once

#include <QMainWindow>

namespace kelvor::gui {

// The results window (object name frmDupSearch): progress of a running
// search, then the tree of groups.
class SearchWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit SearchWindow(QWidget* parent = nullptr);
};

}  // namespace kelvor::gui
