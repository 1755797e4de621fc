#include "gui/search_window.h"

#include "search/session.h"

namespace kelvor::gui {

SearchWindow::SearchWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("frmDupSearch"));
}

SearchWindow::~SearchWindow() = default;

void SearchWindow::StartSearch(std::unique_ptr<SearchSession> session) {
  session_ = std::move(session);
}

}  // namespace kelvor::gui
