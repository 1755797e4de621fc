#include "gui/search_window.h"

#include "gui/qt_prompt.h"

#include <QApplication>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QFont>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "frame/progress_snapshot.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "gui/actions.h"
#include "gui/qt_prompt.h"
#include "gui/result_tree_model.h"
#include "results/result_model.h"

namespace kelvor::gui {

namespace {

constexpr const char* kOptionen = "Optionen";
constexpr int kPollMs = 1000;  // the progress refresh: once a second

QString Q(std::string_view s) {
  return QString::fromUtf8(s.data(), static_cast<qsizetype>(s.size()));
}

QString T(const TextCatalog& texts, const TextDef& t) {
  return Q(texts.Get(t));
}

}  // namespace

// Hands the progress on to the snapshot and keeps every step the run
// reaches, so that the steps list misses none between two polls. It also
// carries a pause or stop the user asked for before the run began: the run
// clears its state when it starts, and its first step comes after that.
class StepRecorder final : public ProgressSink {
 public:
  StepRecorder(ProgressSnapshot& s, RunState& run) : snapshot_(s), run_(run) {}
  void SetLabel(Label l, std::string_view text) override {
    snapshot_.SetLabel(l, text);
    if (l == Label::Dauer && holdArmed_) {
      // The first full refresh inside the step to hold at: the counters
      // stand filled, the run stands still.
      holdArmed_ = false;
      pauseWanted.store(true);
      std::int32_t running = kRunning;
      run_.SearchState.compare_exchange_strong(running, kPaused);
    }
    if (l != Label::Step || text.empty()) return;
    if (!holdAt.empty() && text.find(holdAt) != std::string_view::npos) {
      holdAt.clear();
      holdArmed_ = true;
    }
    if (stopWanted.load()) {
      if (!run_.StopRequested()) run_.RequestStop(kStopUser);
    } else if (pauseWanted.load()) {
      std::int32_t running = kRunning;
      run_.SearchState.compare_exchange_strong(running, kPaused);
    }
    std::lock_guard lock(mutex_);
    if (steps_.empty() || steps_.back() != text) steps_.emplace_back(text);
  }
  void ProgressBar(int percent) override { snapshot_.ProgressBar(percent); }
  void LogPanel(std::string_view line) override { snapshot_.LogPanel(line); }
  // Steps from index `from` on.
  std::vector<std::string> StepsFrom(std::size_t from) {
    std::lock_guard lock(mutex_);
    if (from >= steps_.size()) return {};
    return {steps_.begin() + static_cast<std::ptrdiff_t>(from), steps_.end()};
  }

  std::atomic<bool> pauseWanted{false};
  std::atomic<bool> stopWanted{false};
  std::string holdAt;  // set before the run starts; worker only afterwards

 private:
  bool holdArmed_ = false;
  ProgressSnapshot& snapshot_;
  RunState& run_;
  std::mutex mutex_;
  std::vector<std::string> steps_;
};

// The run's questions: asked on the interface thread while the worker
// waits. When the window closes, a waiting worker gets the cautious answer
// (no, cancelled) instead of waiting for ever.
class WorkerPrompt final : public Prompt {
 public:
  WorkerPrompt(QObject* context, std::function<Prompt&()> target)
      : context_(context), target_(std::move(target)) {}

  void Message(std::string_view text, MessageIcon icon) override {
    Ask([text = std::string(text), icon](Prompt& p, Answer&) { p.Message(text, icon); });
  }
  bool AskYesNo(std::string_view text) override {
    Answer a =
        Ask([text = std::string(text)](Prompt& p, Answer& out) { out.yes = p.AskYesNo(text); });
    return a.yes;
  }
  std::optional<std::string> Input(std::string_view prompt, std::string_view deflt) override {
    Answer a = Ask([prompt = std::string(prompt), deflt = std::string(deflt)](
                       Prompt& p, Answer& out) { out.input = p.Input(prompt, deflt); });
    return a.input;
  }
  void Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    answered_.notify_all();
  }

 private:
  struct Answer {
    bool yes = false;
    std::optional<std::string> input;
  };
  template <class F>
  Answer Ask(F question) {
    auto state = std::make_shared<std::pair<bool, Answer>>();
    {
      std::lock_guard lock(mutex_);
      if (closed_) return {};
    }
    QMetaObject::invokeMethod(
        context_,
        [this, state, question] {
          Answer a;
          question(target_(), a);
          std::lock_guard lock(mutex_);
          state->first = true;
          state->second = std::move(a);
          answered_.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock lock(mutex_);
    answered_.wait(lock, [&] { return state->first || closed_; });
    return state->first ? state->second : Answer{};
  }

  QObject* context_;
  std::function<Prompt&()> target_;
  std::mutex mutex_;
  std::condition_variable answered_;
  bool closed_ = false;
};

// ---------------------------------------------------------------------------

ResultTreeView::ResultTreeView(QWidget* parent) : QTreeView(parent) {
  setObjectName(QStringLiteral("tvwPL"));
  // A million rows: one height for all, so that the view never measures a
  // row it does not paint.
  setUniformRowHeights(true);
  setAlternatingRowColors(false);
  setSelectionMode(QAbstractItemView::ExtendedSelection);
  setSelectionBehavior(QAbstractItemView::SelectRows);
  setAllColumnsShowFocus(true);
  setSortingEnabled(false);  // the levels keep their own order
  setExpandsOnDoubleClick(true);
  header()->setSectionsMovable(true);
  header()->setFirstSectionMovable(false);
  header()->setStretchLastSection(false);
  header()->setSectionResizeMode(QHeaderView::Interactive);
  header()->setContextMenuPolicy(Qt::CustomContextMenu);
  // The tips of the grid: grey frame, plum text on a pale ground.
  setStyleSheet(
      QStringLiteral("QToolTip { border: 1px solid rgb(118,118,118); color: rgb(141,87,116); "
                     "background-color: rgb(246,247,250); }"));
}

void ResultTreeView::keyPressEvent(QKeyEvent* e) {
  if (e->key() == Qt::Key_Space && e->modifiers() == Qt::NoModifier) {
    emit spacePressed();
    e->accept();
    return;
  }
  QTreeView::keyPressEvent(e);
}

void ResultTreeView::drawRow(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
  // A row's own back colour (group rows) reaches under the branch lines too.
  const QVariant back = index.siblingAtColumn(0).data(Qt::BackgroundRole);
  if (back.canConvert<QColor>() && !selectionModel()->isSelected(index))
    painter->fillRect(option.rect, back.value<QColor>());
  QTreeView::drawRow(painter, option, index);
}

void ResultTreeView::contextMenuEvent(QContextMenuEvent* e) {
  if (context_.empty()) return;
  QMenu menu(this);
  for (QAction* a : context_) menu.addAction(a);
  menu.exec(e->globalPos());
}

// ---------------------------------------------------------------------------

SearchWindow::SearchWindow(QWidget* parent) : QMainWindow(parent) {
  setObjectName(QStringLiteral("frmDupSearch"));
  setWindowTitle(QStringLiteral("Kelvor"));
  boxes_ = std::make_unique<QtPrompt>(this);
  prompt_ = boxes_.get();
  for (int id = 1; id <= 17; ++id) positions_[static_cast<std::size_t>(id)] = id;
  timer_.setInterval(kPollMs);
  connect(&timer_, &QTimer::timeout, this, &SearchWindow::PollProgress);
}

SearchWindow::~SearchWindow() {
  if (worker_.joinable()) {
    run_.RequestStop(kStopUser);
    if (workerPrompt_) workerPrompt_->Close();
    worker_.join();
  }
  // The view lets go of the adapter before the result it reads goes.
  if (model_ != nullptr) model_->SetResult(nullptr);
}

void SearchWindow::SetPrompt(Prompt* prompt) {
  prompt_ = prompt != nullptr ? prompt : boxes_.get();
}

Prompt& SearchWindow::Ask() {
  return *prompt_;
}

void SearchWindow::StartSearch(std::unique_ptr<SearchSession> session) {
  if (running_ || !session) return;
  session_ = std::move(session);
  const TextCatalog& texts = session_->Texts();
  SettingsStore& settings = session_->Settings();
  // What the run will use, read before the worker starts: from then on the
  // settings are the worker's until the run ends.
  searchOptions_ = Init_Variablen(settings, texts);
  for (const ColumnSpec& c : ColumnSpecs())
    columnSetting_[static_cast<std::size_t>(c.id)] =
        c.settingKey == nullptr ||
        settings.Get(kOptionen, c.settingKey, c.visibleByDefault ? "1" : "0") != "0";
  LoadColumnPositions();
  const std::string geometry = settings.Get(kOptionen, "DupSearchGeometry", "");
  if (!geometry.empty())
    restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(geometry)));
  const std::string fontText = settings.Get(kOptionen, "Fontsize", "9");
  char* fontEnd = nullptr;
  long long font = std::strtoll(fontText.c_str(), &fontEnd, 10);
  if (fontEnd == fontText.c_str()) font = 9;

  if (tree_ == nullptr) {
    BuildUi();
    BuildMenus();
  }
  QFont f = tree_->font();
  f.setPointSize(static_cast<int>(std::clamp<long long>(font, 8, 16)));
  tree_->setFont(f);
  model_->SetHeadings(searchOptions_.GroupTitleMode);
  ApplyColumnPositions();
  ApplyColumnVisibility();

  // A fresh run.
  model_->SetResult(nullptr);
  result_.reset();
  snapshot_ = std::make_unique<ProgressSnapshot>();
  recorder_ = std::make_unique<StepRecorder>(*snapshot_, run_);
  workerPrompt_ = std::make_unique<WorkerPrompt>(this, [this]() -> Prompt& { return Ask(); });
  run_.SearchState.store(kRunning);
  run_.StopReason.store(kStopNone);
  steps_->clear();
  stepsShown_ = 0;
  log_->clear();
  bar_->setValue(0);
  pauseButton_->setChecked(false);
  pauseButton_->setText(T(texts, txt::T3693));
  panel_->show();
  stopButton_->setEnabled(true);
  pauseButton_->setEnabled(true);
  running_ = true;
  saved_ = false;
  actions_->SetHasResult(false);
  actions_->SetLongOperation(true);
  for (int p = 1; p <= 5; ++p) panes_[static_cast<std::size_t>(p)]->clear();

  recorder_->holdAt = holdAt_;
  holdAt_.clear();
  worker_ = std::thread([this] {
    outcome_ = session_->Run(*recorder_, *workerPrompt_, run_);
    QMetaObject::invokeMethod(
        this, [this] { OnRunFinished(); }, Qt::QueuedConnection);
  });
  timer_.start();
  QTimer::singleShot(0, this, &SearchWindow::PollProgress);
}

void SearchWindow::BuildUi() {
  const TextCatalog& texts = session_->Texts();
  auto* central = new QWidget(this);
  auto* outer = new QVBoxLayout(central);
  outer->setContentsMargins(6, 6, 6, 0);
  splitter_ = new QSplitter(Qt::Vertical, central);
  splitter_->setChildrenCollapsible(false);
  outer->addWidget(splitter_);

  // The progress panel: counters left, steps and log right, the stop bar
  // beneath.
  panel_ = new QFrame(splitter_);
  panel_->setObjectName(QStringLiteral("fraProgress"));
  auto* panelLayout = new QHBoxLayout(panel_);
  panelLayout->setContentsMargins(0, 0, 0, 0);
  auto* left = new QWidget(panel_);
  auto* grid = new QGridLayout(left);
  grid->setContentsMargins(0, 0, 0, 0);
  grid->setHorizontalSpacing(12);
  auto value = [&](Label l, const char* name) {
    auto* v = new QLabel(QStringLiteral("-"), left);
    v->setObjectName(QString::fromLatin1(name));
    v->setTextFormat(Qt::PlainText);
    v->setTextInteractionFlags(Qt::TextSelectableByMouse);
    labels_[static_cast<std::size_t>(l)] = v;
    return v;
  };
  auto caption = [&](const TextDef& t) {
    auto* c = new QLabel(T(texts, t), left);
    c->setForegroundRole(QPalette::PlaceholderText);
    return c;
  };
  int row = 0;
  auto wide = [&](const TextDef& t, Label l, const char* name) {
    grid->addWidget(caption(t), row, 0);
    QLabel* v = value(l, name);
    // Long paths must not widen the window: the label takes what it gets.
    v->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    v->setMinimumWidth(100);
    grid->addWidget(v, row, 1, 1, 3);
    ++row;
  };
  wide(txt::T9768, Label::Suchmethode, "lblSuchmethode");
  wide(txt::T9766, Label::SourceNr, "lblSourceNr");
  wide(txt::T9627, Label::AktuellerOrdner, "lblAktuellerOrdner");
  auto pair = [&](const TextDef& c1, Label l1, const char* n1, const TextDef& c2, Label l2,
                  const char* n2) {
    grid->addWidget(caption(c1), row, 0);
    grid->addWidget(value(l1, n1), row, 1);
    grid->addWidget(caption(c2), row, 2);
    grid->addWidget(value(l2, n2), row, 3);
    ++row;
  };
  pair(txt::T9320, Label::Dauer, "lblDauer", txt::T9310, Label::Gesamt, "lblGesamt");
  pair(txt::T9311, Label::Dups, "lblDups", txt::T9322, Label::Gruppen, "lblGruppen");
  pair(txt::T9313, Label::Vergleiche, "lblVergleiche", txt::T9335, Label::ChecksumCreated,
       "lblChecksumCreated");
  pair(txt::T9769, Label::GesamtArchive, "lblGesamtArchive", txt::T9323, Label::Archive,
       "lblArchive");
  pair(txt::T9336, Label::FilesExtracted, "lblFilesExtracted", txt::T9326, Label::FilterFiles,
       "lblFilterFiles");
  grid->addWidget(caption(txt::T9327), row, 0);
  grid->addWidget(value(Label::FilterFolder, "lblFilterFolder"), row, 1);
  ++row;
  // The archive being read, and how far its reading got.
  grid->addWidget(caption(txt::T9770), row, 0);
  QLabel* zip = value(Label::Zipdatei, "lblZipdatei");
  zip->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  grid->addWidget(zip, row, 1, 1, 2);
  grid->addWidget(value(Label::ZipProgress, "lblZipProgress"), row, 3);
  ++row;
  grid->addWidget(caption(txt::T9332), row, 0);
  bar_ = new QProgressBar(left);
  bar_->setObjectName(QStringLiteral("picProgress"));
  bar_->setRange(0, 100);
  grid->addWidget(bar_, row, 1, 1, 3);
  ++row;
  QLabel* step = value(Label::Step, "lblStep");
  QFont bold = step->font();
  bold.setBold(true);
  step->setFont(bold);
  step->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  grid->addWidget(step, row, 0, 1, 4);
  ++row;
  auto* buttons = new QHBoxLayout();
  stopButton_ =
      new QPushButton(style()->standardIcon(QStyle::SP_BrowserStop), T(texts, txt::T9765), left);
  stopButton_->setObjectName(QStringLiteral("cmdStop_0"));
  pauseButton_ =
      new QPushButton(style()->standardIcon(QStyle::SP_MediaPause), T(texts, txt::T3693), left);
  pauseButton_->setObjectName(QStringLiteral("cmdStop_1"));
  pauseButton_->setCheckable(true);
  labels_[static_cast<std::size_t>(Label::StopButtonPause)] = nullptr;
  connect(stopButton_, &QPushButton::clicked, this, &SearchWindow::CancelSearch);
  connect(pauseButton_, &QPushButton::clicked, this, &SearchWindow::TogglePause);
  buttons->addWidget(stopButton_);
  buttons->addWidget(pauseButton_);
  buttons->addStretch(1);
  grid->addLayout(buttons, row, 0, 1, 4);
  grid->setColumnStretch(1, 1);
  grid->setColumnStretch(3, 1);
  grid->setRowStretch(row + 1, 1);
  panelLayout->addWidget(left, 3);

  auto* right = new QWidget(panel_);
  auto* rightLayout = new QVBoxLayout(right);
  rightLayout->setContentsMargins(0, 0, 0, 0);
  auto* stepsCaption = new QLabel(T(texts, txt::T9771), right);
  stepsCaption->setFont(bold);
  rightLayout->addWidget(stepsCaption);
  steps_ = new QListWidget(right);
  steps_->setObjectName(QStringLiteral("lstSteps"));
  steps_->setSelectionMode(QAbstractItemView::NoSelection);
  steps_->setFocusPolicy(Qt::NoFocus);
  steps_->setIconSize(QSize(16, 16));
  rightLayout->addWidget(steps_, 2);
  auto* logCaption = new QLabel(T(texts, txt::T9792), right);
  logCaption->setFont(bold);
  rightLayout->addWidget(logCaption);
  log_ = new QPlainTextEdit(right);
  log_->setObjectName(QStringLiteral("rtfLog"));
  log_->setReadOnly(true);
  log_->setMaximumBlockCount(5000);
  log_->setLineWrapMode(QPlainTextEdit::NoWrap);
  rightLayout->addWidget(log_, 1);
  panelLayout->addWidget(right, 2);

  // The result tree.
  model_ = new ResultTreeModel(texts, this);
  tree_ = new ResultTreeView(splitter_);
  tree_->setModel(model_);
  tree_->header()->setSectionResizeMode(0, QHeaderView::Fixed);
  // Room for the branch lines of three levels and the check box.
  tree_->setColumnWidth(
      0, tree_->indentation() * 3 + style()->pixelMetric(QStyle::PM_IndicatorWidth) + 16);
  tree_->setColumnWidth(1, 280);
  tree_->setColumnWidth(2, 320);
  for (int c = 3; c < kColumnCount; ++c) tree_->setColumnWidth(c, 110);
  connect(tree_, &ResultTreeView::spacePressed, this, &SearchWindow::Report_SelectDeselectFile);
  connect(tree_->header(), &QHeaderView::sectionMoved, this, [this] { OnSectionMoved(); });
  connect(tree_, &QTreeView::expanded, this, [this](const QModelIndex& i) {
    if (result_) result_->SetExpanded(model_->RowOf(i), true);
  });
  connect(tree_, &QTreeView::collapsed, this, [this](const QModelIndex& i) {
    if (result_) result_->SetExpanded(model_->RowOf(i), false);
  });
  connect(model_, &ResultTreeModel::marksChanged, this, [this] {
    saved_ = false;
    ShowDupCount();
  });
  splitter_->setStretchFactor(0, 0);
  splitter_->setStretchFactor(1, 1);
  setCentralWidget(central);

  // Status bar panes: 1 messages, 2 the search description, 3 to 5 the
  // counters.
  for (int p = 1; p <= 5; ++p) {
    auto* l = new QLabel(this);
    l->setObjectName(QStringLiteral("pane%1").arg(p));
    l->setTextFormat(Qt::PlainText);
    panes_[static_cast<std::size_t>(p)] = l;
    if (p <= 2) {
      l->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
      statusBar()->addWidget(l, p == 1 ? 3 : 2);
    } else {
      statusBar()->addPermanentWidget(l);
    }
  }
  resize(1100, 720);
}

void SearchWindow::BuildMenus() {
  const TextCatalog& texts = session_->Texts();
  actions_ = new CommandActions(texts, this);
  auto fill = [&](QMenu* m, CommandMenu which) {
    for (QAction* a : actions_->ActionsOf(which)) m->addAction(a);
  };
  QMenu* file = menuBar()->addMenu(T(texts, txt::T9754));
  fill(file, CommandMenu::File);
  file->insertSeparator(actions_->Action(-1));
  QMenu* select = menuBar()->addMenu(T(texts, txt::T9755));
  fill(select, CommandMenu::Select);
  select->insertSeparator(actions_->Action(239));
  QMenu* remove = menuBar()->addMenu(T(texts, txt::T9756));
  fill(remove, CommandMenu::Remove);
  QMenu* view = menuBar()->addMenu(T(texts, txt::T9757));
  fill(view, CommandMenu::View);
  view->addSeparator();
  QMenu* columns = view->addMenu(T(texts, txt::T9758));
  columns->setObjectName(QStringLiteral("mnuColumns"));
  fill(columns, CommandMenu::Columns);
  QMenu* sizes = view->addMenu(T(texts, txt::T9759));
  fill(sizes, CommandMenu::SizeFormat);

  QToolBar* bar = addToolBar(T(texts, txt::T9793));
  bar->setObjectName(QStringLiteral("tbMain"));
  bar->setToolButtonStyle(Qt::ToolButtonFollowStyle);
  for (QAction* a : actions_->ToolBarActions()) bar->addAction(a);
  // Undo carries the older steps as a drop-down beside its button.
  undoMenu_ = new QMenu(this);
  undoMenu_->setObjectName(QStringLiteral("mnuUndo"));
  if (auto* undo = qobject_cast<QToolButton*>(bar->widgetForAction(actions_->Action(239)))) {
    undo->setMenu(undoMenu_);
    undo->setPopupMode(QToolButton::MenuButtonPopup);
  }
  connect(undoMenu_, &QMenu::triggered, this,
          [this](QAction* entry) { actions_->Run(239, entry->data().toInt()); });
  actions_->SetAvailable(239, false);

  std::vector<QAction*> context = actions_->ContextActions();
  tree_->SetContextActions(context);
  connect(tree_->header(), &QHeaderView::customContextMenuRequested, this,
          [this, columns](const QPoint& p) { columns->exec(tree_->header()->mapToGlobal(p)); });

  // The commands whose operations live in this window.
  actions_->SetHandler(-1, [this](int) { close(); });
  actions_->SetHandler(-2, [this](int) { Report_SelectDeselectFile(); });
  actions_->SetHandler(-3, [this](int) {
    if (!result_) return;
    result_->Group_ExpandAll(true);
    tree_->expandAll();
  });
  actions_->SetHandler(-4, [this](int) {
    if (!result_) return;
    result_->Group_ExpandAll(false);
    tree_->collapseAll();
    tree_->expand(model_->index(0, 0));
  });
  for (int id = 34; id <= 37; ++id)
    actions_->SetHandler(id, [this](int cmd) { ChangeSizeFormat(cmd - 34); });
  for (const ColumnSpec& c : ColumnSpecs()) {
    if (c.command == 0) continue;
    actions_->SetHandler(c.command, [this](int cmd) {
      Report_Change_Column_Visible(cmd, actions_->Action(cmd)->isChecked());
    });
  }
}

void SearchWindow::ShowUndoState(bool enabled, const QString& toolTip,
                                 const std::vector<std::pair<int, QString>>& olderSteps) {
  if (actions_ == nullptr) return;
  QAction* undo = actions_->Action(239);
  undo->setToolTip(toolTip.isEmpty() ? undo->text() : toolTip);
  actions_->SetAvailable(239, enabled);
  undoMenu_->clear();
  for (const auto& [id, caption] : olderSteps) undoMenu_->addAction(caption)->setData(id);
}

void SearchWindow::SetCommandHandler(int commandId, std::function<void(int)> handler) {
  if (actions_ != nullptr) actions_->SetHandler(commandId, std::move(handler));
}

// ----- during the run

void SearchWindow::PollProgress() {
  if (!snapshot_) return;
  const ProgressSnapshot::View v = snapshot_->Poll();
  for (int i = 0; i < kLabelCount; ++i) {
    QLabel* l = labels_[static_cast<std::size_t>(i)];
    const std::string& text = v.labels[static_cast<std::size_t>(i)];
    if (l == nullptr || text.empty()) continue;
    const QString q = Q(text);
    if (l->text() != q) {
      l->setText(q);
      l->setToolTip(q);
    }
  }
  if (v.percent >= 0) bar_->setValue(std::clamp(v.percent, 0, 100));
  const std::string& title = v.Get(Label::Title);
  if (!title.empty()) setWindowTitle(Q(title));
  const std::string& pause = v.Get(Label::StopButtonPause);
  if (!pause.empty()) pauseButton_->setText(Q(pause));
  panes_[1]->setText(Q(v.Get(Label::StatusBar)));
  panes_[2]->setText(Q(v.Get(Label::Suchmethode)));
  panes_[2]->setToolTip(panes_[2]->text());
  for (const std::string& line : v.newLines) log_->appendPlainText(Q(line));

  // The steps list: the steps passed are ticked, the current one is bold.
  const std::vector<std::string> fresh = recorder_->StepsFrom(stepsShown_);
  if (!fresh.empty()) {
    const QIcon done = style()->standardIcon(QStyle::SP_DialogApplyButton);
    for (int i = 0; i < steps_->count(); ++i) {
      QListWidgetItem* it = steps_->item(i);
      QFont f = it->font();
      f.setBold(false);
      it->setFont(f);
      it->setIcon(done);
    }
    for (std::size_t i = 0; i < fresh.size(); ++i) {
      auto* it = new QListWidgetItem(Q(fresh[i]), steps_);
      if (i + 1 < fresh.size()) {
        it->setIcon(done);
      } else {
        QFont f = it->font();
        f.setBold(true);
        it->setFont(f);
        it->setIcon(style()->standardIcon(QStyle::SP_ArrowRight));
      }
    }
    stepsShown_ += fresh.size();
    steps_->scrollToBottom();
  }
}

void SearchWindow::TogglePause() {
  if (!running_) return;
  // The button shows at once that it was pressed; its caption is the run's
  // ("Fortsetzen" once the run stands still).
  const bool pause = !recorder_->pauseWanted.load();
  recorder_->pauseWanted.store(pause);
  pauseButton_->setChecked(pause);
  std::int32_t expected = pause ? kRunning : kPaused;
  run_.SearchState.compare_exchange_strong(expected, pause ? kPaused : kRunning);
  pauseButton_->setIcon(
      style()->standardIcon(pause ? QStyle::SP_MediaPlay : QStyle::SP_MediaPause));
}

void SearchWindow::PauseInStep(const QString& text) {
  holdAt_ = text.toStdString();
}

void SearchWindow::CancelSearch() {
  if (!running_) return;
  if (!Ask().AskYesNo(session_->Texts().Get(txt::T4125))) return;
  if (!running_) return;  // it ended while the question stood
  recorder_->stopWanted.store(true);
  run_.RequestStop(kStopUser);
  stopButton_->setEnabled(false);
}

std::int32_t SearchWindow::StopReason() const {
  return run_.StopReason.load();
}

void SearchWindow::OnRunFinished() {
  if (!running_) return;
  worker_.join();
  running_ = false;
  timer_.stop();
  PollProgress();
  // The last step is done too.
  const QIcon done = style()->standardIcon(QStyle::SP_DialogApplyButton);
  for (int i = 0; i < steps_->count(); ++i) {
    QListWidgetItem* it = steps_->item(i);
    QFont f = it->font();
    f.setBold(false);
    it->setFont(f);
    it->setIcon(done);
  }
  stopButton_->setEnabled(false);
  pauseButton_->setEnabled(false);
  setWindowTitle(QStringLiteral("Kelvor"));

  result_ = session_->TakeResult();
  if (result_) ShowResult();
  // The stop reason stands in the status bar beside the closing message.
  const TextCatalog& texts = session_->Texts();
  QString reason;
  switch (run_.StopReason.load()) {
    case kStopUser:
      reason = T(texts, txt::T5073);
      break;
    case kStopMaxDups:
      reason = Q(texts.Get(txt::T5227, {std::to_string(searchOptions_.MaxDupCount)}));
      break;
    case kStopMemory:
      reason = T(texts, txt::T5411);
      break;
    default:
      break;
  }
  const QString closing = Q(session_->ClosingMessage()).trimmed();
  panes_[1]->setText(reason.isEmpty() ? closing : reason + QStringLiteral("  ") + closing);
  panes_[1]->setToolTip(panes_[1]->text());
  if (positionsDirty_) WriteColumnPositions();
  actions_->SetHasResult(result_ != nullptr);
  actions_->SetLongOperation(false);
  emit searchFinished();
  if (closeAfterRun_) {
    saved_ = true;  // the user chose to leave during the run
    close();
    return;
  }
  if (result_ && result_->RowCount() < 2 && !session_->ClosingMessage().empty())
    Ask().Message(session_->ClosingMessage(), MessageIcon::Information);
}

// ----- the result

void SearchWindow::ShowResult() {
  model_->SetResult(result_.get());
  model_->SetHeadings(result_->Options().GroupTitleMode);
  const int format = result_->GetSizeFormat();
  for (int id = 34; id <= 37; ++id) actions_->Action(id)->setChecked(id - 34 == format);
  ApplyColumnVisibility();
  panel_->hide();
  panes_[2]->setText(
      Q(result_->Description().empty() ? searchOptions_.Description : result_->Description()));
  // The groups open as the result says; all of them at once when all are.
  const QModelIndex root = model_->index(0, 0);
  int expanded = 0;
  result_->ForEachGroup([&](RowRef g) {
    expanded += result_->Expanded(g) ? 1 : 0;
    return true;
  });
  if (expanded > 0 && expanded == result_->GroupCount()) {
    tree_->expandAll();
  } else {
    tree_->expand(root);
    if (expanded > 0)
      result_->ForEachGroup([&](RowRef g) {
        if (result_->Expanded(g)) tree_->expand(model_->IndexOf(g));
        return true;
      });
  }
  // Column widths from the rows on screen only, never from all rows.
  for (int id = 1; id <= 17; ++id)
    if (!tree_->isColumnHidden(id)) tree_->resizeColumnToContents(id);
  // Names and folders get room even when only group rows are on screen.
  for (int id : {1, 2})
    if (tree_->columnWidth(id) < 220) tree_->setColumnWidth(id, 220);
  tree_->setCurrentIndex(model_->index(0, 0, root).isValid() ? model_->index(0, 0, root) : root);
  tree_->setFocus();
  ShowDupCount();
}

void SearchWindow::ShowDupCount() {
  if (!result_) return;
  const DupCountFigures f = result_->ShowDupCount();
  panes_[3]->setText(Q(f.Pane3));
  panes_[4]->setText(Q(f.Pane4));
  panes_[5]->setText(Q(f.Pane5));
}

QString SearchWindow::PaneText(int pane) const {
  if (pane < 1 || pane > 5 || panes_[static_cast<std::size_t>(pane)] == nullptr) return {};
  return panes_[static_cast<std::size_t>(pane)]->text();
}

void SearchWindow::Report_SelectDeselectFile() {
  if (!result_ || running_) return;
  QModelIndex i = tree_->currentIndex();
  if (!i.isValid()) {
    const QModelIndexList sel = tree_->selectionModel()->selectedRows();
    if (sel.isEmpty()) return;
    i = sel.first();
  }
  const RowRef r = model_->RowOf(i);
  if (r.IsFile() || r.IsGroup()) model_->ToggleCheck(i.siblingAtColumn(0));
}

void SearchWindow::ResultChanged(bool rowsChanged) {
  if (!result_) return;
  saved_ = false;
  if (rowsChanged) {
    model_->Reset();
    tree_->expand(model_->index(0, 0));
    result_->ForEachGroup([&](RowRef g) {
      if (result_->Expanded(g)) tree_->expand(model_->IndexOf(g));
      return true;
    });
    ShowDupCount();
  } else {
    model_->MarksChangedOutside();
  }
}

void SearchWindow::ChangeSizeFormat(int format) {
  for (int id = 34; id <= 37; ++id) actions_->Action(id)->setChecked(id - 34 == format);
  if (!result_) return;
  model_->ChangeSizeFormat(format);
  WriteSetting("FormatSize", std::to_string(format));
}

// ----- columns

bool SearchWindow::HiddenByResult(int id) const {
  const bool datesExact = !searchOptions_.IgnoreTime && !searchOptions_.IgnoreSeconds;
  const int groupBy = result_ ? result_->Options().GroupTitleMode : searchOptions_.GroupTitleMode;
  switch (id) {
    case 3:
      return !searchOptions_.ScanArchives;
    case 6:
      return groupBy == 4 && datesExact;
    case 7:
      return groupBy == 5 && datesExact;
    case 9:
      return groupBy == 6;
    case 11:
      return !searchOptions_.CriterionSimilarPics && !searchOptions_.CriterionSimilarAudio;
    default:
      return false;
  }
}

void SearchWindow::ApplyColumnVisibility() {
  for (const ColumnSpec& c : ColumnSpecs()) {
    const bool on = columnSetting_[static_cast<std::size_t>(c.id)];
    if (c.command != 0) actions_->Action(c.command)->setChecked(on);
    tree_->setColumnHidden(c.id, !on || HiddenByResult(c.id));
  }
}

void SearchWindow::Report_Change_Column_Visible(int commandId, bool visible) {
  const int id = ColumnIdOfCommand(commandId);
  const ColumnSpec* c = ColumnById(id);
  if (c == nullptr || c->settingKey == nullptr) return;
  columnSetting_[static_cast<std::size_t>(id)] = visible;
  actions_->Action(commandId)->setChecked(visible);
  const bool shown = visible && !HiddenByResult(id);
  tree_->setColumnHidden(id, !shown);
  if (shown && result_) tree_->resizeColumnToContents(id);
  WriteSetting(c->settingKey, visible ? "1" : "0");
}

bool SearchWindow::IsColumnShown(int id) const {
  return tree_ != nullptr && id >= 1 && id <= 17 && !tree_->isColumnHidden(id);
}

int SearchWindow::List_Folder_GetColIndexByID(int id) const {
  if (id < 1 || id > 17) return 0;
  return positions_[static_cast<std::size_t>(id)];
}

void SearchWindow::LoadColumnPositions() {
  std::array<int, 18> read{};
  bool complete = true;
  std::array<bool, 18> seen{};
  for (int id = 1; id <= 17 && complete; ++id) {
    const std::string v =
        session_->Settings().Get(kOptionen, std::to_string(id) + "FolderColumnIndex", "-1");
    char* end = nullptr;
    const long p = std::strtol(v.c_str(), &end, 10);
    // A missing or zero position ends the reading; so does anything that is
    // not a position of its own (a broken file must not scramble the grid).
    if (end == v.c_str() || p < 1 || p > 17 || seen[static_cast<std::size_t>(p)]) {
      complete = false;
      break;
    }
    seen[static_cast<std::size_t>(p)] = true;
    read[static_cast<std::size_t>(id)] = static_cast<int>(p);
  }
  for (int id = 1; id <= 17; ++id)
    positions_[static_cast<std::size_t>(id)] = complete ? read[static_cast<std::size_t>(id)] : id;
}

void SearchWindow::ApplyColumnPositions() {
  QHeaderView* h = tree_->header();
  const QSignalBlocker block(h);
  for (int pos = 1; pos <= 17; ++pos)
    for (int id = 1; id <= 17; ++id)
      if (positions_[static_cast<std::size_t>(id)] == pos) h->moveSection(h->visualIndex(id), pos);
}

void SearchWindow::OnSectionMoved() {
  QHeaderView* h = tree_->header();
  // The tree column stays first: a drag before it is taken back.
  if (h->visualIndex(0) != 0) {
    const QSignalBlocker block(h);
    h->moveSection(h->visualIndex(0), 0);
  }
  for (int id = 1; id <= 17; ++id) positions_[static_cast<std::size_t>(id)] = h->visualIndex(id);
  positionsDirty_ = true;
  if (!running_) WriteColumnPositions();
}

void SearchWindow::WriteColumnPositions() {
  positionsDirty_ = false;
  for (int id = 1; id <= 17; ++id)
    WriteSetting(std::to_string(id) + "FolderColumnIndex",
                 std::to_string(positions_[static_cast<std::size_t>(id)]));
}

void SearchWindow::WriteSetting(const std::string& key, const std::string& value) {
  // The settings are the worker's while a search runs.
  if (!session_ || running_) return;
  session_->Settings().Set(kOptionen, key, value);
  std::string error;
  if (!ProfileWriteItemWide(kOptionen, key, value, session_->Paths().settingsFile, &error))
    panes_[1]->setText(Q(error));
}

// ----- closing

void SearchWindow::closeEvent(QCloseEvent* e) {
  if (running_) {
    e->ignore();
    if (Ask().AskYesNo(session_->Texts().Get(txt::T4125)) && running_) {
      closeAfterRun_ = true;
      recorder_->stopWanted.store(true);
      run_.RequestStop(kStopUser);
    }
    return;
  }
  if (result_ && !saved_ && result_->RowCount() > 1 &&
      !Ask().AskYesNo(session_->Texts().Get(txt::T9772))) {
    e->ignore();
    return;
  }
  if (session_) WriteSetting("DupSearchGeometry", saveGeometry().toBase64().toStdString());
  e->accept();
}

}  // namespace kelvor::gui
