#pragma once
// The export window (object name frmSave): the result shown in a results
// window written to a text, CSV or XLSX file.
//
// The controls are bound to section "ExportList"; the folder and base name
// of the last export are offered again. The export runs on a worker thread
// of this window (a big result takes a while), with the window modal and the
// results window's commands off; the export only reads the result. The
// writer goes through a temporary file, so a stop or a failure leaves the
// chosen name as it was. "Open when done" hands the file to the desktop's
// default program.

#include <QDialog>
#include <QTimer>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "frame/run_state.h"
#include "frame/sinks.h"
#include "results/export.h"

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace kelvor {
class ProgressSnapshot;
}

namespace kelvor::gui {

class SearchWindow;
class QtPrompt;

class SaveWindow final : public QDialog {
  Q_OBJECT

 public:
  explicit SaveWindow(SearchWindow& results, QWidget* parent = nullptr);
  ~SaveWindow() override;

  // Messages (default: message boxes). Called on the interface thread.
  void SetPrompt(Prompt* prompt) { prompt_ = prompt; }
  // What opens the written file (default: the desktop's default program).
  void SetOpener(std::function<void(const QString& file)> open) { open_ = std::move(open); }

  // cmdSave: writes the file named in the window. False when it did not
  // start.
  bool Start();
  // Stops a running export; otherwise closes the window.
  void CancelOrClose();
  bool IsRunning() const { return running_; }
  // Controls of the settings table that the window lacks (none in a sound
  // window).
  int MissingControls() const;
  const ExportOutcome& Outcome() const { return outcome_; }
  // The file name the export takes (the extension of the format added when
  // the name has none of the three).
  QString TargetFile() const;

 protected:
  void closeEvent(QCloseEvent* e) override;
  void reject() override;

 private:
  void BuildUi();
  void LoadControls();
  void StoreControls();
  void ChooseFile();
  void EnableControls();
  void Poll();
  void OnFinished();
  ExportFormat Format() const;

  SearchWindow& results_;
  std::unique_ptr<QtPrompt> boxes_;
  Prompt* prompt_ = nullptr;
  std::function<void(const QString&)> open_;

  RunState run_;
  std::thread worker_;
  std::unique_ptr<ProgressSnapshot> snapshot_;
  std::atomic<bool> workerDone_{false};
  ExportOutcome outcome_;
  QString target_;
  bool running_ = false;

  QWidget* settingsArea_ = nullptr;
  QLineEdit* file_ = nullptr;
  QProgressBar* bar_ = nullptr;
  QLabel* status_ = nullptr;
  QPushButton* save_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QTimer timer_;
};

}  // namespace kelvor::gui
