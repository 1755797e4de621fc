#pragma once
// The setup window (object name frmMain): source folders, the ten criteria
// and their options, filters, archives, options and language. Every control
// carries the name of its design and is bound to its settings key, so the
// state of the window is the state of config4.ini: read at start, written
// back on leaving and before each search.

#include <QMainWindow>
#include <QPointer>
#include <memory>
#include <string>
#include <vector>

#include "gui/qt_prompt.h"
#include "gui/settings_binding.h"
#include "search/session.h"

class QTabWidget;
class QTreeWidget;
class QListWidget;

namespace kelvor::gui {

class SearchWindow;

class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  // Start-up runs here (data folder, settings, language); its boxes are shown.
  explicit MainWindow(SessionOptions options, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Kelvor's command line (the items of the options given): criteria and
  // folders shape the window, a profile is loaded, and the search starts when
  // the start check passes; else the window shows with the check's messages.
  // Items that are none of Kelvor's are put into *unknown and false is
  // returned: nothing is shown then.
  bool OpenWithCommandLine(std::vector<std::string>* unknown);

  // Folder_Add_to_List with the window's rows.
  void AddSourceFolder(const QString& path);
  // The start button: the start check over the window's rows; its messages
  // as message boxes, or the results window with the session handed over.
  void StartSearchForDups();
  // Controls into the settings, the settings into config4.ini.
  bool SaveSettings();

  SettingsStore& Settings() { return session_->Settings(); }
  const AppPaths& Paths() const { return session_->Paths(); }
  // The source rows the last search started with.
  const std::vector<SourceFolderRow>& StartedRows() const { return startedRows_; }
  std::vector<SourceFolderRow> SourceRows() const;

 signals:
  void searchStarted(kelvor::gui::SearchWindow* window);
  void closed();

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  QString T(const TextDef& t) const;
  void BuildUi();
  QWidget* BuildFolderPage();
  QWidget* BuildCriteriaPage();
  QWidget* BuildFilterPage();
  QWidget* BuildArchivePage();
  QWidget* BuildOptionsPage();
  void BuildActions();
  void Connect();

  // Settings <-> controls.
  void LoadControls();
  void StoreControls();
  void LoadSourceRows(const std::vector<SourceFolderRow>& rows);
  void LoadFilterRows(QListWidget* list, const char* section);
  void StoreFilterRows(const QListWidget* list, const char* section);

  // The rules between the controls.
  void CriterionClicked(int index, bool on);
  void UpdateEnabled();
  void ContentMethodChosen(int index);
  void MendField(const char* control, std::string (*mend)(std::string_view));
  void MendCompareBuffers();
  void RewriteFilters(void (*rewrite)(SettingsStore&));

  void AddFolderByDialog();
  void RemoveSelectedFolders();
  void AddFilterRow(QListWidget* list);
  void OpenResults();
  void ShowRejection(const std::vector<std::string>& messages);

  SessionOptions options_;
  std::vector<std::string> commandLine_;
  QtPrompt prompt_;
  std::unique_ptr<SearchSession> session_;
  SettingsBinder binder_;
  QTabWidget* tabs_ = nullptr;
  QTreeWidget* sources_ = nullptr;
  int languageIndexAtLoad_ = -1;
  std::vector<SourceFolderRow> startedRows_;
  std::vector<QPointer<SearchWindow>> results_;
};

}  // namespace kelvor::gui
