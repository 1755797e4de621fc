#include "gui/search_window.h"

namespace kelvor::gui {

SearchWindow::SearchWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("frmDupSearch"));
}

}  // namespace kelvor::gui
