#pragma once
// The file manager window (object name frmFileManager): one action on every
// marked file of the result shown in a results window.
//
// Every control is bound to its key of section "Aktionen", so the window
// opens as it was left. Start saves the controls and runs
// Process_Selected_Files on a worker thread of this window. While it runs the
// window is modal, the results window's tree does not repaint and its
// commands are off: nothing on the interface thread reads the result. The
// window polls the labels, the bar and the log lines a few times a second;
// cancel raises the stop flag, which the walk reads between files. The
// worker's questions (the safety question, the error question with its "do
// not show this again" box) wait, under a lock of the window's own, until
// the poll on this thread has asked them. At the
// end the worker is joined, the results window redraws its tree and counters,
// the undo history is reset when a file was done, and the cancel button turns
// into "Close" (or the window closes when the user asked for that).

#include <QDialog>
#include <QTimer>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/file_manager.h"

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace kelvor {
class ProgressSnapshot;
}

namespace kelvor::gui {

class SearchWindow;

class FileManagerWindow final : public QDialog {
  Q_OBJECT

 public:
  // `results` shows the result the action works on; it outlives the window.
  explicit FileManagerWindow(SearchWindow& results, QWidget* parent = nullptr);
  ~FileManagerWindow() override;

  // The questions and messages (default: message boxes). A prompt given here
  // is called from the worker thread while the action runs. Not owned.
  void SetPrompt(Prompt* prompt) { prompt_ = prompt; }
  // What resets the undo history of the results window after a file was
  // done (called on the interface thread).
  void SetUndoReset(std::function<void()> reset) { undoReset_ = std::move(reset); }

  // OKButton_Click: checks the target folder, saves the controls and starts
  // the action. False when it did not start.
  bool Start();
  // cmdDeleteCancel: stops a running action between two files; otherwise
  // closes the window.
  void CancelOrClose();

  bool IsRunning() const { return running_; }
  // Controls of the settings table that the window lacks (none in a sound
  // window).
  int MissingControls() const;
  // The action has ended (its report is there and the button says "Close").
  bool Finished() const { return finished_; }
  const FileManagerReport& Report() const { return report_; }
  // The lines of the log box.
  QString LogText() const;

 protected:
  void closeEvent(QCloseEvent* e) override;
  void reject() override;

 private:
  void BuildUi();
  void LoadControls();
  void StoreControls();
  void EnableByAction();
  void SetControlsEnabled(bool enabled);
  void Poll();
  void OnFinished();
  // Runs `job` on the interface thread; from the worker it waits until the
  // window's poll has run it (a question and its answer).
  void OnInterfaceThread(const std::function<void()>& job);
  void AnswerQuestion();

  SearchWindow& results_;
  std::unique_ptr<Prompt> workerPrompt_;
  Prompt* prompt_ = nullptr;
  std::function<void()> undoReset_;

  RunState run_;
  std::thread worker_;
  std::unique_ptr<ProgressSnapshot> snapshot_;
  std::mutex linesMutex_;
  std::vector<std::pair<std::string, bool>> lines_;  // from the worker
  std::mutex askMutex_;
  std::condition_variable askCv_;
  const std::function<void()>* pendingAsk_ = nullptr;  // under askMutex_
  bool closing_ = false;                               // under askMutex_
  bool asking_ = false;
  std::atomic<bool> workerDone_{false};
  std::atomic<bool> undoWanted_{false};
  FileManagerReport report_;
  FileManagerOptions options_;
  bool running_ = false;
  bool finished_ = false;

  QWidget* settingsArea_ = nullptr;
  QLabel* lblDauer_ = nullptr;
  QLabel* lblGesamt_ = nullptr;
  QLabel* lblAktuellerOrdner_ = nullptr;
  QLabel* lblStep_ = nullptr;
  QProgressBar* bar_ = nullptr;
  QPlainTextEdit* log_ = nullptr;
  QPushButton* ok_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QTimer timer_;
};

}  // namespace kelvor::gui
