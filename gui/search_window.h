#pragma once

#include <QMainWindow>
#include <memory>

namespace kelvor {
class SearchSession;
}

namespace kelvor::gui {

// The results window (object name frmDupSearch): progress of a running
// search, then the tree of groups.
class SearchWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit SearchWindow(QWidget* parent = nullptr);
  ~SearchWindow() override;

  // Takes a session whose start check passed (Prepare answered Ready) and
  // runs its search on a worker thread; the window shows the progress and
  // then the result.
  void StartSearch(std::unique_ptr<SearchSession> session);

 private:
  std::unique_ptr<SearchSession> session_;
};

}  // namespace kelvor::gui
