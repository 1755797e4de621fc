#include "gui/main_window.h"

namespace kelvor::gui {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("frmMain"));
  setWindowTitle(QStringLiteral("Kelvor"));
}

}  // namespace kelvor::gui
