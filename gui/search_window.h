#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QTimer>
#include <QTreeView>
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "search/options.h"
#include "search/session.h"

class QLabel;
class QListWidget;
class QMenu;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSplitter;

namespace kelvor {
class ProgressSnapshot;
class ResultModel;
}  // namespace kelvor

namespace kelvor::gui {

class CommandActions;
class ResultTreeModel;
class StepRecorder;
class WorkerPrompt;

// The tree of the results window: check boxes with the space bar, a context
// menu of the window's commands, and the rows drawn at one height.
class ResultTreeView final : public QTreeView {
  Q_OBJECT

 public:
  explicit ResultTreeView(QWidget* parent = nullptr);
  void SetContextActions(std::vector<QAction*> actions) { context_ = std::move(actions); }

 signals:
  void spacePressed();

 protected:
  void keyPressEvent(QKeyEvent* e) override;
  void contextMenuEvent(QContextMenuEvent* e) override;
  void drawRow(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

 private:
  std::vector<QAction*> context_;
};

// The results window (object name frmDupSearch): progress of a running
// search, then the tree of groups.
//
// Threads: the session's Run runs on a worker thread of this window. While
// it runs the window reads nothing of the session: it polls a progress
// snapshot once a second, sets the run state (pause, stop), and answers the
// worker's questions on this thread while the worker waits. When the run
// has ended the worker is joined and the window takes the result over.
class SearchWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit SearchWindow(QWidget* parent = nullptr);
  ~SearchWindow() override;

  // Takes a session whose start check passed (Prepare answered Ready) and
  // runs its search on a worker thread; the window shows the progress and
  // then the result.
  void StartSearch(std::unique_ptr<SearchSession> session);

  // The questions and messages of the window and of the run (default:
  // message boxes). Not owned; null goes back to the boxes.
  void SetPrompt(Prompt* prompt);

  bool IsRunning() const { return running_; }
  bool IsPaused() const { return run_.SearchState.load() == kPaused; }
  // The stop bar: pause toggles, stop asks first (text 4125).
  void TogglePause();
  void CancelSearch();
  // The next search pauses by itself at its first progress refresh inside
  // the step whose text holds `text` (a demonstration of the panel, and
  // its pictures, at a known point of the run).
  void PauseInStep(const QString& text);
  const RunOutcome& Outcome() const { return outcome_; }
  std::int32_t StopReason() const;

  // The result shown (null before the end of a search).
  ResultModel* Result() const { return result_.get(); }
  ResultTreeModel* TreeModel() const { return model_; }
  ResultTreeView* Tree() const { return tree_; }
  CommandActions* Actions() const { return actions_; }
  SearchSession* Session() const { return session_.get(); }

  // The text of a status bar pane (1 to 5).
  QString PaneText(int pane) const;

  // Report_Change_Column_Visible: the toggle's check mark, the setting and
  // the column (a column the result cannot fill stays hidden).
  void Report_Change_Column_Visible(int commandId, bool visible);
  // List_Folder_GetColIndexByID: the current position of a column id
  // (1..17), 0 outside.
  int List_Folder_GetColIndexByID(int id) const;
  // Whether the column of an id is shown now.
  bool IsColumnShown(int id) const;

  // A command of the core run by id (selection, removal, undo, saving):
  // the window enables the command once it has an operation.
  void SetCommandHandler(int commandId, std::function<void(int)> handler);
  // The undo command's state as the undo history gives it: enabled, its
  // tool tip ("Rückgängig:" and the latest step) and the drop-down of older
  // steps (id 6000 + step index, caption). A drop-down entry runs the undo
  // command's operation with the entry's id.
  void ShowUndoState(bool enabled, const QString& toolTip,
                     const std::vector<std::pair<int, QString>>& olderSteps);
  QMenu* UndoMenu() const { return undoMenu_; }
  // After a command changed marks or rows of the result behind the tree.
  void ResultChanged(bool rowsChanged);
  // Saving says when the result on screen is kept on disk.
  void SetResultSaved(bool saved) { saved_ = saved; }

  // Report_SelectDeselectFile: the space bar on the focused row.
  void Report_SelectDeselectFile();

 signals:
  void searchFinished();

 protected:
  void closeEvent(QCloseEvent* e) override;

 private:
  void BuildUi();
  void BuildMenus();
  void PollProgress();
  void OnRunFinished();
  void ShowResult();
  void ShowDupCount();
  void ApplyColumnVisibility();
  bool HiddenByResult(int id) const;
  void LoadColumnPositions();
  void ApplyColumnPositions();
  void OnSectionMoved();
  void WriteColumnPositions();
  void WriteSetting(const std::string& key, const std::string& value);
  void ChangeSizeFormat(int format);
  Prompt& Ask();

  std::unique_ptr<SearchSession> session_;
  std::unique_ptr<ProgressSnapshot> snapshot_;
  std::unique_ptr<StepRecorder> recorder_;
  std::unique_ptr<WorkerPrompt> workerPrompt_;
  std::unique_ptr<Prompt> boxes_;
  Prompt* prompt_ = nullptr;
  RunState run_;
  std::thread worker_;
  RunOutcome outcome_;
  bool running_ = false;
  bool closeAfterRun_ = false;
  bool saved_ = true;
  bool positionsDirty_ = false;
  std::size_t stepsShown_ = 0;
  std::string holdAt_;

  // What the settings and the criteria of the search say about the grid.
  SearchOptions searchOptions_;
  std::array<bool, 18> columnSetting_{};  // visibility setting per id
  std::array<int, 18> positions_{};       // position per id (1..17)

  std::unique_ptr<ResultModel> result_;
  ResultTreeModel* model_ = nullptr;
  ResultTreeView* tree_ = nullptr;
  CommandActions* actions_ = nullptr;

  QSplitter* splitter_ = nullptr;
  QWidget* panel_ = nullptr;
  std::array<QLabel*, kLabelCount> labels_{};
  QProgressBar* bar_ = nullptr;
  QListWidget* steps_ = nullptr;
  QPlainTextEdit* log_ = nullptr;
  QPushButton* stopButton_ = nullptr;
  QPushButton* pauseButton_ = nullptr;
  std::array<QLabel*, 6> panes_{};
  QMenu* undoMenu_ = nullptr;
  QTimer timer_;
};

}  // namespace kelvor::gui
