#include "gui/file_manager_window.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QThread>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>

#include "archive/archive_edit.h"
#include "data/file_system.h"
#include "frame/progress_snapshot.h"
#include "frame/settings_store.h"
#include "frame/startup.h"
#include "frame/texts.h"
#include "gui/actions.h"
#include "gui/search_window.h"
#include "gui/settings_binding.h"
#include "results/result_model.h"
#include "search/session.h"
#include "search/source_folders.h"

namespace kelvor::gui {

namespace {

constexpr const char* kAkt = "Aktionen";

QString Q(std::string_view s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

// clang-format off
const SettingBinding kBindings[] = {
    {"optAktion", kAkt, "Aktion", Bind::Radio},
    {"optGroupAction", kAkt, "GroupAction", Bind::Radio},
    {"chkLogNoActions", kAkt, "LogNoActions"},
    {"chkLinks(0)", kAkt, "OptionShortcut"},
    {"chkLinks(1)", kAkt, "OptionHardlink"},
    {"chkLinks(2)", kAkt, "OptionReflink"},
    {"txtOrdner", kAkt, "Ordner"},
    {"chkOrdnerstruktur", kAkt, "Ordnerstruktur"},
    {"chkCreateSubfolder", kAkt, "CreateSubfolder"},
    {"txtSubfolder", kAkt, "CreateSubfolderText"},
    {"chkDateienEntfernen", kAkt, "DateienEntfernen"},
    {"chkGruppenEntfernen", kAkt, "GruppenEntfernen"},
    {"chkSetFileSizeToZero", kAkt, "SetFileSizeToZero"},
    {"txtRename", kAkt, "Rename"},
    {"chkDelEmptyFolders", kAkt, "DelEmptyFolders"},
    {"chkSecureHint", kAkt, "SecureHint"},
    {"chkIfErrorDontAskToAbort", kAkt, "IfErrorDontAskToAbort"},
    {"chkCloseFileManager", kAkt, "CloseFileManager"},
    {"chkIgnoreGroupsAllFilesSelected", kAkt, "IgnoreGroupsAllFilesSelected"},
    {"chkCheckUnchanged", kAkt, "CheckUnchanged"},
    {"chkDryRun", kAkt, "DryRun"},
};
// clang-format on

// The message boxes of the worker's questions. Each box is shown on the
// interface thread by the window's poll while the worker waits
// (FileManagerWindow::OnInterfaceThread).
class WorkerBoxes final : public Prompt {
 public:
  using Runner = std::function<void(const std::function<void()>&)>;
  WorkerBoxes(Runner run, QWidget* window, const TextCatalog& texts)
      : run_(std::move(run)), window_(window), texts_(texts) {}

  void Message(std::string_view text, MessageIcon icon) override {
    const QString t = Q(text);
    run_([&] {
      QMessageBox box(icon == MessageIcon::Critical      ? QMessageBox::Critical
                      : icon == MessageIcon::Information ? QMessageBox::Information
                                                         : QMessageBox::Warning,
                      QApplication::applicationDisplayName(), t, QMessageBox::Ok, window_);
      box.exec();
    });
  }
  bool AskYesNo(std::string_view text) override {
    const QString t = Q(text);
    bool yes = false;
    run_([&] {
      yes = QMessageBox::question(window_, QApplication::applicationDisplayName(), t,
                                  QMessageBox::Yes | QMessageBox::No,
                                  QMessageBox::Yes) == QMessageBox::Yes;
    });
    return yes;
  }
  std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) override {
    const QString p = Q(prompt), d = Q(deflt);
    std::optional<std::string> typed;
    run_([&] {
      bool ok = false;
      const QString answer = QInputDialog::getText(window_, QApplication::applicationDisplayName(),
                                                   p, QLineEdit::Normal, d, &ok);
      if (ok) typed = answer.toStdString();
    });
    return typed;
  }
  bool AskYesNoStopAsking(std::string_view text, bool* stopAsking) override {
    const QString t = Q(text);
    bool yes = false, ticked = false;
    run_([&] {
      QMessageBox box(QMessageBox::Warning, Q(texts_.Get(txt::T3714)), t,
                      QMessageBox::Yes | QMessageBox::No, window_);
      auto* check = new QCheckBox(Q(texts_.Get(txt::T9858)));
      box.setCheckBox(check);
      yes = box.exec() == QMessageBox::Yes;
      ticked = check->isChecked();
    });
    *stopAsking = ticked;
    return yes;
  }

 private:
  Runner run_;
  QWidget* window_;
  const TextCatalog& texts_;
};

template <typename W>
W* Named(W* w, const char* name) {
  w->setObjectName(QString::fromLatin1(name));
  return w;
}

}  // namespace

FileManagerWindow::FileManagerWindow(SearchWindow& results, QWidget* parent)
    : QDialog(parent != nullptr ? parent : &results), results_(results) {
  setObjectName(QStringLiteral("frmFileManager"));
  setWindowModality(Qt::WindowModal);
  workerPrompt_ = std::make_unique<WorkerBoxes>(
      [this](const std::function<void()>& job) { OnInterfaceThread(job); }, this,
      results_.Session()->Texts());
  BuildUi();
  LoadControls();
  EnableByAction();
  timer_.setInterval(200);
  connect(&timer_, &QTimer::timeout, this, &FileManagerWindow::Poll);
}

FileManagerWindow::~FileManagerWindow() {
  {
    // A question still waiting is answered "no", and no further one waits.
    std::lock_guard<std::mutex> lock(askMutex_);
    closing_ = true;
    pendingAsk_ = nullptr;
    askCv_.notify_all();
  }
  if (worker_.joinable()) {
    run_.RequestStop(kStopUser);
    worker_.join();
  }
}

void FileManagerWindow::BuildUi() {
  const TextCatalog& t = results_.Session()->Texts();
  auto T = [&](TextDef d) { return Q(t.Get(d)); };
  setWindowTitle(T(txt::T9830));

  settingsArea_ = new QWidget(this);
  auto* columns = new QHBoxLayout(settingsArea_);
  columns->setContentsMargins(0, 0, 0, 0);
  auto* left = new QVBoxLayout;
  auto* right = new QVBoxLayout;
  columns->addLayout(left, 1);
  columns->addLayout(right, 1);

  // The action.
  auto* action = Named(new QGroupBox(T(txt::T9831)), "fraAktion");
  auto* actionBox = new QVBoxLayout(action);
  const FileAction kActions[] = {FileAction::Delete, FileAction::Trash, FileAction::Move,
                                 FileAction::Copy, FileAction::Rename};
  for (FileAction a : kActions) {
    auto* r = new QRadioButton(Q(FileActionCaption(a, t)));
    r->setObjectName(QStringLiteral("optAktion(%1)").arg(static_cast<int>(a)));
    connect(r, &QRadioButton::toggled, this, [this](bool on) {
      if (on) EnableByAction();
    });
    actionBox->addWidget(r);
  }
  left->addWidget(action);

  // Copy and move: where to.
  auto* target = Named(new QGroupBox(T(txt::T9832)), "fraOrdner");
  auto* targetBox = new QVBoxLayout(target);
  auto* folderRow = new QHBoxLayout;
  auto* folder = Named(new QLineEdit, "txtOrdner");
  auto* browse = Named(new QPushButton(T(txt::T9840)), "cmdOrdner");
  connect(browse, &QPushButton::clicked, this, [this, folder] {
    const QString d = QFileDialog::getExistingDirectory(this, windowTitle(), folder->text());
    if (!d.isEmpty()) folder->setText(d);
  });
  folderRow->addWidget(folder, 1);
  folderRow->addWidget(browse);
  targetBox->addLayout(folderRow);
  targetBox->addWidget(Named(new QCheckBox(T(txt::T3952)), "chkOrdnerstruktur"));
  auto* subRow = new QHBoxLayout;
  auto* sub = Named(new QCheckBox(T(txt::T4065)), "chkCreateSubfolder");
  auto* subText = Named(new QLineEdit, "txtSubfolder");
  subText->setMinimumWidth(300);
  connect(sub, &QCheckBox::toggled, subText, &QWidget::setEnabled);
  subRow->addWidget(sub);
  subRow->addWidget(subText, 1);
  targetBox->addLayout(subRow);
  left->addWidget(target);

  // Rename: the mask.
  auto* rename = Named(new QGroupBox(Q(FileActionCaption(FileAction::Rename, t))), "fraRename");
  auto* renameBox = new QVBoxLayout(rename);
  renameBox->addWidget(Named(new QLineEdit, "txtRename"));
  auto* hint = Named(new QLabel(T(txt::T9838)), "lblRenameHint");
  hint->setEnabled(false);
  renameBox->addWidget(hint);
  renameBox->addWidget(Named(new QCheckBox(T(txt::T4050)), "chkSetFileSizeToZero"));
  left->addWidget(rename);

  // What takes the treated file's place. The three exclude each other.
  auto* links = Named(new QGroupBox(T(txt::T9841)), "fraLinks");
  auto* linksBox = new QVBoxLayout(links);
  const TextDef kLinkCaptions[] = {txt::T3849, txt::T3850, txt::T9835};
  std::vector<QCheckBox*> linkBoxes;
  for (int i = 0; i < 3; ++i) {
    auto* c = new QCheckBox(T(kLinkCaptions[i]));
    c->setObjectName(QStringLiteral("chkLinks(%1)").arg(i));
    linksBox->addWidget(c);
    linkBoxes.push_back(c);
  }
  for (QCheckBox* c : linkBoxes) {
    connect(c, &QCheckBox::toggled, this, [c, linkBoxes](bool on) {
      if (!on) return;
      for (QCheckBox* other : linkBoxes)
        if (other != c) other->setChecked(false);
    });
  }
  left->addWidget(links);
  left->addStretch(1);

  // The options.
  auto* opts = Named(new QGroupBox(T(txt::T9833)), "fraOptionen");
  auto* optsBox = new QVBoxLayout(opts);
  auto* g0 = new QRadioButton(T(txt::T5282));
  g0->setObjectName(QStringLiteral("optGroupAction(0)"));
  auto* g1 = new QRadioButton(T(txt::T5283));
  g1->setObjectName(QStringLiteral("optGroupAction(1)"));
  optsBox->addWidget(g0);
  optsBox->addWidget(g1);
  const std::pair<const char*, TextDef> kChecks[] = {
      {"chkIgnoreGroupsAllFilesSelected", txt::T5284},
      {"chkDateienEntfernen", txt::T3848},
      {"chkGruppenEntfernen", txt::T3847},
      {"chkDelEmptyFolders", txt::T4062},
      {"chkLogNoActions", txt::T3987},
      {"chkSecureHint", txt::T3801},
      {"chkIfErrorDontAskToAbort", txt::T4057},
      {"chkCloseFileManager", txt::T5475},
      {"chkCheckUnchanged", txt::T9837},
      {"chkDryRun", txt::T9836},
  };
  for (const auto& [name, caption] : kChecks) {
    auto* c = Named(new QCheckBox(T(caption)), name);
    optsBox->addWidget(c);
  }
  right->addWidget(opts);
  right->addStretch(1);

  // Progress and log.
  auto* progress = new QWidget(this);
  auto* form = new QFormLayout(progress);
  form->setContentsMargins(0, 0, 0, 0);
  lblDauer_ = Named(new QLabel(QStringLiteral("0:00:00")), "lblDauer");
  lblGesamt_ = Named(new QLabel(QStringLiteral("0")), "lblGesamt");
  lblAktuellerOrdner_ = Named(new QLabel(QStringLiteral("-")), "lblAktuellerOrdner");
  lblAktuellerOrdner_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  lblAktuellerOrdner_->setMinimumWidth(200);
  lblAktuellerOrdner_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  lblStep_ = Named(new QLabel, "lblStep");
  form->addRow(T(txt::T9856), lblDauer_);
  form->addRow(T(txt::T9857), lblGesamt_);
  form->addRow(T(txt::T9843), lblAktuellerOrdner_);
  form->addRow(lblStep_);
  bar_ = Named(new QProgressBar, "pgbProgress");
  bar_->setRange(0, 100);
  bar_->setValue(0);
  form->addRow(bar_);

  auto* logGroup = Named(new QGroupBox(T(txt::T9834)), "fraLog");
  auto* logBox = new QVBoxLayout(logGroup);
  log_ = Named(new QPlainTextEdit, "rtfLog");
  log_->setReadOnly(true);
  log_->setLineWrapMode(QPlainTextEdit::NoWrap);
  log_->setMinimumHeight(120);
  logBox->addWidget(log_);

  ok_ = Named(new QPushButton(T(txt::T9839)), "cmdOK");
  ok_->setDefault(true);
  cancel_ = Named(new QPushButton(Q(t.Get(txt::T9765))), "cmdDeleteCancel");
  connect(ok_, &QPushButton::clicked, this, [this] { Start(); });
  connect(cancel_, &QPushButton::clicked, this, &FileManagerWindow::CancelOrClose);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(ok_);
  buttons->addWidget(cancel_);

  auto* main = new QVBoxLayout(this);
  main->addWidget(settingsArea_);
  main->addWidget(progress);
  main->addWidget(logGroup, 1);
  main->addLayout(buttons);
  resize(900, 720);
}

void FileManagerWindow::LoadControls() {
  SettingsBinder(this, kBindings).Load(results_.Session()->Settings());
  // A single one of the link options counts, the first set.
  bool seen = false;
  for (int i = 0; i < 3; ++i) {
    auto* c = findChild<QCheckBox*>(QStringLiteral("chkLinks(%1)").arg(i));
    if (c->isChecked() && seen) c->setChecked(false);
    seen = seen || c->isChecked();
  }
  auto* sub = findChild<QLineEdit*>(QStringLiteral("txtSubfolder"));
  sub->setEnabled(findChild<QCheckBox*>(QStringLiteral("chkCreateSubfolder"))->isChecked());
  sub->setCursorPosition(0);
}

void FileManagerWindow::StoreControls() {
  SettingsStore& s = results_.Session()->Settings();
  SettingsBinder(this, kBindings).Store(s);
  std::string error;
  if (!EinstellungenSpeichern(s, results_.Session()->Paths().settingsFile, &error,
                              results_.Session()->Texts()))
    log_->appendPlainText(Q(error));
}

// optAktion_Click: what an action can use.
void FileManagerWindow::EnableByAction() {
  int action = 0;
  for (int i = 0; i < 5; ++i) {
    auto* r = findChild<QRadioButton*>(QStringLiteral("optAktion(%1)").arg(i));
    if (r != nullptr && r->isChecked()) action = i;
  }
  const auto a = static_cast<FileAction>(action);
  const bool toFolder = a == FileAction::Copy || a == FileAction::Move;
  const bool removes = a == FileAction::Delete || a == FileAction::Move || a == FileAction::Trash;
  findChild<QGroupBox*>(QStringLiteral("fraOrdner"))->setEnabled(toFolder);
  findChild<QGroupBox*>(QStringLiteral("fraRename"))->setEnabled(a == FileAction::Rename);
  findChild<QGroupBox*>(QStringLiteral("fraLinks"))->setEnabled(removes);
  // Blocks are shared in place of a file that stays: only where it is deleted.
  findChild<QCheckBox*>(QStringLiteral("chkLinks(2)"))->setEnabled(a == FileAction::Delete);
  findChild<QCheckBox*>(QStringLiteral("chkDelEmptyFolders"))->setEnabled(removes);
  findChild<QCheckBox*>(QStringLiteral("chkIgnoreGroupsAllFilesSelected"))
      ->setEnabled(a != FileAction::Copy);
}

void FileManagerWindow::SetControlsEnabled(bool enabled) {
  settingsArea_->setEnabled(enabled);
  ok_->setEnabled(enabled);
}

bool FileManagerWindow::Start() {
  if (running_ || finished_) return false;
  SearchSession* session = results_.Session();
  ResultModel* result = results_.Result();
  if (session == nullptr || result == nullptr || results_.IsRunning()) return false;
  const TextCatalog& texts = session->Texts();
  Prompt& ask = prompt_ != nullptr ? *prompt_ : *workerPrompt_;

  StoreControls();
  options_ = LoadFileManagerOptions(session->Settings());
  if (options_.Aktion == FileAction::Copy || options_.Aktion == FileAction::Move) {
    std::error_code ec;
    if (options_.Ordner.empty() || !std::filesystem::is_directory(options_.Ordner, ec)) {
      ask.Message(texts.Get(txt::T3862, {options_.Ordner}), MessageIcon::Exclamation);
      return false;
    }
  }

  FileManagerContext ctx;
  ctx.texts = &texts;
  ctx.prompt = &ask;
  snapshot_ = std::make_unique<ProgressSnapshot>();
  ctx.progress = snapshot_.get();
  ctx.run = &run_;
  ctx.actionLog = session->Paths().logFolder / "actions.txt";
  ctx.trash = TrashOptionsFromEnvironment();
  ctx.refreshMilliseconds = 250;
  ctx.logLine = [this](std::string_view line, bool isError) {
    std::lock_guard<std::mutex> lock(linesMutex_);
    lines_.emplace_back(std::string(line), isError);
  };
  // The history is the interface thread's: the worker only says it is due.
  ctx.undoReset = [this] { undoWanted_ = true; };
  const Environment env = Environment::FromProcess();
  std::optional<std::filesystem::path> sevenZip = FindHelperProgram("7z", session->Paths(), env);
  if (!sevenZip) sevenZip = FindHelperProgram("7zz", session->Paths(), env);
  if (sevenZip) {
    ctx.deleteArchiveMember = [zip = *sevenZip, this](std::string_view archive,
                                                      std::string_view member, bool dry) {
      const ArchiveMemberDeletion d = DeleteArchiveMember(zip, archive, member, dry, &run_);
      MemberDeletion m;
      m.errorText = d.errorText;
      m.outcome = d.outcome == ArchiveMemberDeletion::Outcome::Deleted
                      ? MemberDeletion::Outcome::Deleted
                  : d.outcome == ArchiveMemberDeletion::Outcome::Failed
                      ? MemberDeletion::Outcome::Failed
                      : MemberDeletion::Outcome::NotSupported;
      return m;
    };
  }
  const auto& folders = result->Options().SourceFolders;
  ctx.sourceProtected.assign(folders.size(), false);
  for (std::size_t i = 0; i < folders.size(); ++i) {
    const std::string want = NormalizeSourcePath(folders[i]);
    for (const SourceFolderRow& row : session->Rows())
      if (row.protect && NormalizeSourcePath(row.path) == want) ctx.sourceProtected[i] = true;
  }

  // From here to the end of the walk the result is the worker's.
  running_ = true;
  workerDone_ = false;
  undoWanted_ = false;
  run_.SearchState = kRunning;
  run_.StopReason = kStopNone;
  SetControlsEnabled(false);
  log_->clear();
  if (results_.Actions() != nullptr) results_.Actions()->SetLongOperation(true);
  if (results_.Tree() != nullptr) results_.Tree()->setUpdatesEnabled(false);
  // The worker works for this thread: the file-system faults a test put in
  // place here hold there too (none in production).
  const FileSystemFaults* faults = FileSystemFaults::Current();
  worker_ = std::thread([this, result, faults, ctx = std::move(ctx)] {
    FileSystemFaults::Scope scope(faults);
    report_ = Process_Selected_Files(*result, options_, ctx);
    workerDone_ = true;
  });
  timer_.start();
  return true;
}

void FileManagerWindow::OnInterfaceThread(const std::function<void()>& job) {
  if (QThread::currentThread() == thread()) {
    job();
    return;
  }
  std::unique_lock<std::mutex> lock(askMutex_);
  if (closing_) return;
  pendingAsk_ = &job;
  askCv_.wait(lock, [&] { return closing_ || pendingAsk_ != &job; });
}

void FileManagerWindow::AnswerQuestion() {
  // The box runs its own event loop, in which this poll comes again.
  if (asking_) return;
  const std::function<void()>* job = nullptr;
  {
    std::lock_guard<std::mutex> lock(askMutex_);
    job = pendingAsk_;
  }
  if (job == nullptr) return;
  asking_ = true;
  (*job)();
  asking_ = false;
  std::lock_guard<std::mutex> lock(askMutex_);
  if (pendingAsk_ == job) pendingAsk_ = nullptr;
  askCv_.notify_all();
}

void FileManagerWindow::Poll() {
  AnswerQuestion();
  if (snapshot_) {
    const ProgressSnapshot::View v = snapshot_->Poll();
    auto show = [](QLabel* l, const std::string& s) {
      if (!s.empty() && l->text() != Q(s)) l->setText(Q(s));
    };
    show(lblDauer_, v.Get(Label::Dauer));
    show(lblGesamt_, v.Get(Label::Gesamt));
    show(lblAktuellerOrdner_, v.Get(Label::AktuellerOrdner));
    lblAktuellerOrdner_->setToolTip(lblAktuellerOrdner_->text());
    show(lblStep_, v.Get(Label::Step));
    if (v.percent >= 0) bar_->setValue(std::clamp(v.percent, 0, 100));
  }
  std::vector<std::pair<std::string, bool>> fresh;
  {
    std::lock_guard<std::mutex> lock(linesMutex_);
    fresh.swap(lines_);
  }
  for (const auto& [line, isError] : fresh) {
    if (isError)
      log_->appendHtml(
          QStringLiteral("<span style=\"color:#b00000\">%1</span>").arg(Q(line).toHtmlEscaped()));
    else
      log_->appendPlainText(Q(line));
  }
  if (running_ && workerDone_) OnFinished();
}

void FileManagerWindow::OnFinished() {
  worker_.join();
  running_ = false;
  Poll();
  timer_.stop();
  if (results_.Tree() != nullptr) results_.Tree()->setUpdatesEnabled(true);
  if (results_.Actions() != nullptr) results_.Actions()->SetLongOperation(false);
  if (report_.refused) {
    // Nothing happened (nothing marked, or the safety question said No):
    // the user may change the settings and start again.
    SetControlsEnabled(true);
    return;
  }
  finished_ = true;
  // The labels as the walk left them, whatever the last refresh showed.
  lblGesamt_->setText(
      QStringLiteral("%1 / %2").arg(std::max(report_.treated, report_.done)).arg(report_.marked));
  lblAktuellerOrdner_->setText(QStringLiteral("-"));
  lblAktuellerOrdner_->setToolTip({});
  if (!options_.DryRun) results_.ResultChanged(true);
  if (undoWanted_) {
    if (undoReset_)
      undoReset_();
    else
      results_.ShowUndoState(false, {}, {});
  }
  cancel_->setText(Q(results_.Session()->Texts().Get(txt::T9762)));
  cancel_->setDefault(true);
  ok_->setEnabled(false);
  if (findChild<QCheckBox*>(QStringLiteral("chkCloseFileManager"))->isChecked()) close();
}

void FileManagerWindow::CancelOrClose() {
  if (running_) {
    run_.RequestStop(kStopUser);
    return;
  }
  close();
}

QString FileManagerWindow::LogText() const {
  return log_->toPlainText();
}

int FileManagerWindow::MissingControls() const {
  return SettingsBinder(const_cast<FileManagerWindow*>(this), kBindings).MissingControls();
}

void FileManagerWindow::closeEvent(QCloseEvent* e) {
  // The window stays while its worker holds the result; closing asks it to
  // stop, and the window goes when the user closes it again afterwards.
  if (running_) {
    run_.RequestStop(kStopUser);
    e->ignore();
    return;
  }
  QDialog::closeEvent(e);
}

void FileManagerWindow::reject() {
  if (running_) {
    run_.RequestStop(kStopUser);
    return;
  }
  QDialog::reject();
}

}  // namespace kelvor::gui
