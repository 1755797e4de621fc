#include "gui/save_window.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTreeView>
#include <QUrl>
#include <QVBoxLayout>
#include <filesystem>

#include "data/file_system.h"
#include "frame/progress_snapshot.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "gui/actions.h"
#include "gui/qt_prompt.h"
#include "gui/search_window.h"
#include "gui/settings_binding.h"
#include "results/result_columns.h"
#include "results/result_model.h"
#include "search/session.h"

namespace kelvor::gui {

namespace {

constexpr const char* kExp = "ExportList";
const char* const kFormats[] = {"TXT", "CSV", "XLSX"};

QString Q(std::string_view s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

const SettingBinding kBindings[] = {
    {"optSaveFileType", kExp, "SaveFileType", Bind::Radio},
    {"cboDelimiter", kExp, "Delimiter"},
    {"txtDelimiterChars", kExp, "DelimiterChars"},
    {"chkSaveOnlyFiles", kExp, "SaveOnlyFiles"},
    {"chkOpenFile", kExp, "OpenFile"},
};

template <typename W>
W* Named(W* w, const char* name) {
  w->setObjectName(QString::fromLatin1(name));
  return w;
}

}  // namespace

SaveWindow::SaveWindow(SearchWindow& results, QWidget* parent)
    : QDialog(parent != nullptr ? parent : &results), results_(results) {
  setObjectName(QStringLiteral("frmSave"));
  setWindowModality(Qt::WindowModal);
  boxes_ = std::make_unique<QtPrompt>(this);
  open_ = [](const QString& file) { QDesktopServices::openUrl(QUrl::fromLocalFile(file)); };
  BuildUi();
  LoadControls();
  EnableControls();
  timer_.setInterval(200);
  connect(&timer_, &QTimer::timeout, this, &SaveWindow::Poll);
}

SaveWindow::~SaveWindow() {
  if (worker_.joinable()) {
    run_.RequestStop(kStopUser);
    worker_.join();
  }
}

void SaveWindow::BuildUi() {
  const TextCatalog& t = results_.Session()->Texts();
  auto T = [&](TextDef d) { return Q(t.Get(d)); };
  setWindowTitle(T(txt::T9842));

  settingsArea_ = new QWidget(this);
  auto* form = new QFormLayout(settingsArea_);
  form->setContentsMargins(0, 0, 0, 0);

  auto* fileRow = new QHBoxLayout;
  file_ = Named(new QLineEdit, "txtFile");
  file_->setMinimumWidth(360);
  auto* browse = Named(new QPushButton(T(txt::T9854)), "cmdFile");
  connect(browse, &QPushButton::clicked, this, &SaveWindow::ChooseFile);
  fileRow->addWidget(file_, 1);
  fileRow->addWidget(browse);
  form->addRow(T(txt::T9843), fileRow);

  auto* format = Named(new QComboBox, "cboFormat");
  for (const char* f : kFormats) format->addItem(QString::fromLatin1(f));
  connect(format, &QComboBox::currentIndexChanged, this, [this] {
    // The name follows the format when it carries one of the three.
    const QString name = file_->text();
    const QString ext = QFileInfo(name).suffix().toLower();
    if (ext == QLatin1String("txt") || ext == QLatin1String("csv") || ext == QLatin1String("xlsx"))
      file_->setText(name.left(name.size() - ext.size()) +
                     QString::fromLatin1(kFormats[static_cast<int>(Format())]).toLower());
    EnableControls();
  });
  form->addRow(T(txt::T9844), format);

  auto* delimRow = new QHBoxLayout;
  auto* delim = Named(new QComboBox, "cboDelimiter");
  for (TextDef d : {txt::T9846, txt::T9847, txt::T9848, txt::T9849, txt::T9850})
    delim->addItem(T(d));
  auto* chars = Named(new QLineEdit, "txtDelimiterChars");
  chars->setMaximumWidth(80);
  connect(delim, &QComboBox::currentIndexChanged, this, &SaveWindow::EnableControls);
  delimRow->addWidget(delim);
  delimRow->addWidget(chars);
  delimRow->addStretch(1);
  form->addRow(Named(new QLabel(T(txt::T9845)), "lblDelimiter"), delimRow);

  auto* which = Named(new QGroupBox(T(txt::T9859)), "fraSaveFileType");
  auto* whichBox = new QVBoxLayout(which);
  const TextDef kChoices[] = {txt::T9630, txt::T9631, txt::T9632};
  for (int i = 0; i < 3; ++i) {
    auto* r = new QRadioButton(T(kChoices[i]));
    r->setObjectName(QStringLiteral("optSaveFileType(%1)").arg(i));
    whichBox->addWidget(r);
  }
  form->addRow(which);
  form->addRow(Named(new QCheckBox(T(txt::T9851)), "chkSaveOnlyFiles"));
  form->addRow(Named(new QCheckBox(T(txt::T9852)), "chkOpenFile"));

  bar_ = Named(new QProgressBar, "pgbProgress");
  bar_->setRange(0, 100);
  bar_->setValue(0);
  status_ = Named(new QLabel, "lblStatus");
  status_->setWordWrap(true);

  save_ = Named(new QPushButton(T(txt::T9853)), "cmdSave");
  save_->setDefault(true);
  cancel_ = Named(new QPushButton(T(txt::T9765)), "cmdCancel");
  connect(save_, &QPushButton::clicked, this, [this] { Start(); });
  connect(cancel_, &QPushButton::clicked, this, &SaveWindow::CancelOrClose);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(save_);
  buttons->addWidget(cancel_);

  auto* main = new QVBoxLayout(this);
  main->addWidget(settingsArea_);
  main->addWidget(bar_);
  main->addWidget(status_);
  main->addStretch(1);
  main->addLayout(buttons);
}

void SaveWindow::LoadControls() {
  const SettingsStore& s = results_.Session()->Settings();
  SettingsBinder(this, kBindings).Load(s);
  auto* format = findChild<QComboBox*>(QStringLiteral("cboFormat"));
  const int f = format->findText(Q(s.Get(kExp, "FileFormat")), Qt::MatchFixedString);
  format->setCurrentIndex(f >= 0 ? f : 0);
  // The last folder and base name, else the export folder of the program.
  std::string dir = s.Get(kExp, "LastSaveDir");
  if (dir.empty()) {
    // The program's own export folder, made when first offered.
    const std::filesystem::path own = results_.Session()->Paths().exportFolder;
    std::error_code ec;
    std::filesystem::create_directories(own, ec);
    dir = own.string();
  }
  const std::string name = s.Get(kExp, "LastSaveFileName");
  if (!name.empty())
    file_->setText(
        QDir(Q(dir)).filePath(Q(name) + QLatin1Char('.') +
                              QString::fromLatin1(kFormats[format->currentIndex()]).toLower()));
  else
    file_->setText(QDir::toNativeSeparators(Q(dir)) + QLatin1Char('/'));
}

void SaveWindow::StoreControls() {
  SettingsStore& s = results_.Session()->Settings();
  SettingsBinder(this, kBindings).Store(s);
  s.Set(kExp, "FileFormat", kFormats[static_cast<int>(Format())]);
  const QFileInfo info(TargetFile());
  s.Set(kExp, "LastSaveDir", info.absolutePath().toStdString());
  s.Set(kExp, "LastSaveFileName", info.completeBaseName().toStdString());
  std::string error;
  if (!EinstellungenSpeichern(s, results_.Session()->Paths().settingsFile, &error,
                              results_.Session()->Texts()))
    status_->setText(Q(error));
}

ExportFormat SaveWindow::Format() const {
  switch (findChild<QComboBox*>(QStringLiteral("cboFormat"))->currentIndex()) {
    case 0:
      return ExportFormat::Txt;
    case 2:
      return ExportFormat::Xlsx;
    default:
      return ExportFormat::Csv;
  }
}

QString SaveWindow::TargetFile() const {
  QString name = file_->text().trimmed();
  if (name.isEmpty() || name.endsWith(QLatin1Char('/'))) return {};
  ExportFormat f;
  if (!ExportFormatFromPath(name.toStdString(), &f) || f != Format())
    name += QLatin1Char('.') + QString::fromLatin1(kFormats[static_cast<int>(Format())]).toLower();
  return name;
}

void SaveWindow::ChooseFile() {
  const QString ext = QString::fromLatin1(kFormats[static_cast<int>(Format())]);
  const QString filter = QStringLiteral("%1 (*.%2)").arg(ext, ext.toLower());
  const QString chosen =
      QFileDialog::getSaveFileName(this, windowTitle(), file_->text(), filter, nullptr);
  if (!chosen.isEmpty()) file_->setText(chosen);
}

void SaveWindow::EnableControls() {
  const bool csv = Format() == ExportFormat::Csv;
  auto* delim = findChild<QComboBox*>(QStringLiteral("cboDelimiter"));
  delim->setEnabled(csv);
  findChild<QLabel*>(QStringLiteral("lblDelimiter"))->setEnabled(csv);
  findChild<QLineEdit*>(QStringLiteral("txtDelimiterChars"))
      ->setEnabled(csv && delim->currentIndex() == 4);
}

bool SaveWindow::Start() {
  if (running_) return false;
  SearchSession* session = results_.Session();
  const ResultModel* result = results_.Result();
  if (session == nullptr || result == nullptr || results_.IsRunning()) return false;
  const TextCatalog& texts = session->Texts();
  Prompt& ask = prompt_ != nullptr ? *prompt_ : *boxes_;
  target_ = TargetFile();
  if (target_.isEmpty()) {
    ask.Message(texts.Get(txt::T9855), MessageIcon::Exclamation);
    return false;
  }
  file_->setText(target_);
  StoreControls();
  ExportOptions o = LoadExportOptions(session->Settings());
  o.format = Format();
  std::vector<ResultColumn> columns = MakeResultColumns(session->Settings(), result->Options(),
                                                        ColumnContextOfResult(*result), texts);

  running_ = true;
  workerDone_ = false;
  run_.SearchState = kRunning;
  run_.StopReason = kStopNone;
  settingsArea_->setEnabled(false);
  save_->setEnabled(false);
  status_->clear();
  bar_->setValue(0);
  if (results_.Actions() != nullptr) results_.Actions()->SetLongOperation(true);
  // The export reads the result; the tree waits with its own reads.
  if (results_.Tree() != nullptr) results_.Tree()->setUpdatesEnabled(false);
  snapshot_ = std::make_unique<ProgressSnapshot>();
  const std::filesystem::path target = target_.toStdString();
  // The file-system faults a test put in place here hold for the worker too.
  const FileSystemFaults* faults = FileSystemFaults::Current();
  worker_ = std::thread([this, result, columns = std::move(columns), target, o, &texts, faults] {
    FileSystemFaults::Scope scope(faults);
    ProgressSnapshot* progress = snapshot_.get();
    ExportContext ctx{texts, run_, progress,
                      [progress](std::string_view line) { progress->LogPanel(line); }};
    outcome_ = SAVE(*result, columns, target, o, ctx);
    workerDone_ = true;
  });
  timer_.start();
  return true;
}

void SaveWindow::Poll() {
  if (snapshot_) {
    const ProgressSnapshot::View v = snapshot_->Poll();
    if (v.percent >= 0) bar_->setValue(std::clamp(v.percent, 0, 100));
    for (const std::string& line : v.newLines) status_->setText(Q(line));
  }
  if (running_ && workerDone_) OnFinished();
}

void SaveWindow::OnFinished() {
  worker_.join();
  running_ = false;
  Poll();
  timer_.stop();
  if (results_.Actions() != nullptr) results_.Actions()->SetLongOperation(false);
  if (results_.Tree() != nullptr) results_.Tree()->setUpdatesEnabled(true);
  settingsArea_->setEnabled(true);
  save_->setEnabled(true);
  status_->setText(Q(outcome_.message));
  Prompt& ask = prompt_ != nullptr ? *prompt_ : *boxes_;
  if (outcome_.status != ExportStatus::Done) {
    if (outcome_.status != ExportStatus::Stopped)
      ask.Message(outcome_.message, MessageIcon::Exclamation);
    return;
  }
  bar_->setValue(100);
  cancel_->setText(Q(results_.Session()->Texts().Get(txt::T9762)));
  if (findChild<QCheckBox*>(QStringLiteral("chkOpenFile"))->isChecked() && open_) open_(target_);
}

void SaveWindow::CancelOrClose() {
  if (running_) {
    run_.RequestStop(kStopUser);
    return;
  }
  close();
}

int SaveWindow::MissingControls() const {
  return SettingsBinder(const_cast<SaveWindow*>(this), kBindings).MissingControls();
}

void SaveWindow::closeEvent(QCloseEvent* e) {
  if (running_) {
    run_.RequestStop(kStopUser);
    e->ignore();
    return;
  }
  QDialog::closeEvent(e);
}

void SaveWindow::reject() {
  if (running_) {
    run_.RequestStop(kStopUser);
    return;
  }
  QDialog::reject();
}

}  // namespace kelvor::gui
