#include "gui/main_window.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QStandardItemModel>
#include <QStyle>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "compare/content.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "gui/file_windows.h"
#include "gui/search_window.h"
#include "search/filters.h"
#include "search/options.h"
#include "search/source_folders.h"

namespace kelvor::gui {

namespace {

constexpr const char* kDup = "DupVerz";
constexpr const char* kWindowSection = "frmMain";

// Every bound control of the window with its key.
// clang-format off
const SettingBinding kBindings[] = {
    {"chkSuchKriterien(0)", kDup, "Suchkriterien0"},
    {"chkSuchKriterien(1)", kDup, "Suchkriterien1"},
    {"chkSuchKriterien(2)", kDup, "Suchkriterien2"},
    {"chkSuchKriterien(3)", kDup, "Suchkriterien3"},
    {"chkSuchKriterien(4)", kDup, "Suchkriterien4"},
    {"chkSuchKriterien(5)", kDup, "Suchkriterien5"},
    {"chkSuchKriterien(6)", kDup, "Suchkriterien6"},
    {"chkSuchKriterien(7)", kDup, "Suchkriterien7"},
    {"chkSuchKriterien(8)", kDup, "Suchkriterien8"},
    {"chkSuchKriterien(9)", kDup, "Suchkriterien9"},
    {"optSourceFolderCompareMethod", kDup, "SourceFolderCompareMode", Bind::Radio},
    // File names.
    {"cboFileNameCompareMethod", kDup, "FileNameCompareMethod"},
    {"txtFileNameCompareOnlyFirstChars", kDup, "FileNameCompareOnlyFirstCharsCount"},
    {"chkIgnoreChars", kDup, "IgnoreChars"},
    {"txtIgnoreChars", kDup, "IgnoreCharsText", Bind::Colons},
    {"chkIgnoreText", kDup, "IgnoreText"},
    {"txtIgnoreText", kDup, "IgnoreTextText", Bind::Colons},
    {"chkPartialFilenameCompare", kDup, "PartialFilenameCompare"},
    {"cboPartialFilenameCompareMethod", kDup, "PartialFilenameCompareMethod"},
    {"txtPartialFilenameCompare", kDup, "PartialFilenameComparePercent"},
    {"txtPartialFileNameCompareMethodDelimiterChars", kDup, "PartialFilenameCompareMethodDelimiterChars"},
    // Content.
    {"cboContentCompare", kDup, "ContentCompare"},
    {"txtContentComparePercent", kDup, "ContentComparePercent"},
    {"txtCompareBuffer(0)", kDup, "CompareBuffer0"},
    {"txtCompareBuffer(1)", kDup, "CompareBuffer1"},
    {"txtCompareBuffer(2)", kDup, "CompareBuffer2"},
    {"txtCompareBuffer(3)", kDup, "CompareBuffer3"},
    {"chkCompareFileEndFirst", kDup, "CompareFileEndFirst"},
    {"chkIgnoreMP3Tags", kDup, "IgnoreMP3Tags"},
    {"chkIgnoreFlacMetadata", kDup, "IgnoreFlacMetadata"},
    {"chkIgnoreExif", kDup, "IgnoreExif"},
    {"chkDontCompareHardlinks", kDup, "DontCompareHardlinks"},
    // Dates.
    {"chkZeitstempelIgnorieren", kDup, "IgnoreTime"},
    {"chkIgnoreSeconds", kDup, "IgnoreSeconds"},
    // Similar pictures.
    {"cboSimiliarImagesAlgo", kDup, "SimiliarImagesAlgo"},
    {"cboSimilarImagesCompareSize", kDup, "SimilarPicsThumbSizeIndex"},
    {"txtSimilarPicsMatchPercent", kDup, "SimilarPicsMatchPercent"},
    {"chkSimilarPicsCompareOnlySameFileType", kDup, "SimiliarImagesOnlySameFileType"},
    {"chkSimilarPicsCompareOnlySameDimension", kDup, "SimiliarImagesOnlySameDimension"},
    {"chkSimilarPicsCompareOnlySameFormat", kDup, "SimiliarImagesOnlySameFormat"},
    {"chkSimilarPicsCompareOnlySameRatio", kDup, "SimiliarImagesOnlySameRatio"},
    {"chkSearchForRotatedAndFlippedPics", kDup, "SimiliarImagesRotateFlip"},
    {"lbFlipRotate", kDup, "SimiliarImagesRotateFlip", Bind::ItemKeys},
    // Similar music.
    {"cboSimilarAudioAlgo", kDup, "SimilarAudioAlgo"},
    {"txtSimilarAudioMatch", kDup, "SimilarAudioMatchPercent"},
    {"txtSimilarAudioSeconds", kDup, "SimilarAudioSeconds"},
    {"chkSimAudioSameExt", kDup, "SimilarAudioOnlySameFileType"},
    // Archives.
    {"chkScanArchives", kDup, "ScanArchives"},
    {"lbArchive", kDup, "ScanArchive", Bind::ItemDigits},
    {"chkZipDeleteTempFilesAfterCreateChecksum", kDup, "DeleteTempFilesAfterCreateChecksum"},
    {"chkZipLogPasswordProtectedFiles", kDup, "LogPasswordProtectedFiles"},
    {"chkZipSizeFilter", kDup, "ZipSizeFilter"},
    {"txtFilterGröße(2)", kDup, "ZipSizeFilterSize"},
    {"cboFilterGrößeTyp(2)", kDup, "ZipSizeFilterTyp", Bind::ComboShift, 1},
    {"txtTempFolder", kDup, "TempFolder"},
    // Filters.
    {"chkDateifilterVerwenden", "Dateifilter", "Verwenden"},
    {"optDateiInkEx", "DupFilter", "Filtertyp", Bind::Radio, 1},
    {"chkOptFilterPlatzhalterVerwenden(0)", "DateiFilterPlatzhalter", "Aktiv", Bind::Inverted},
    {"chkOptFilterGrossKleinBeachten(0)", "DateiFilterGrossKlein", "Aktiv"},
    {"chkOrdnerfilter", "Ordnerfilter", "Verwenden"},
    {"optOrdnerInkEx", "DupFilterOrdner", "Filtertyp", Bind::Radio, 1},
    {"chkOptFilterPlatzhalterVerwenden(1)", "OrdnerFilterPlatzhalter", "Aktiv", Bind::Inverted},
    {"chkOptFilterGrossKleinBeachten(1)", "OrdnerFilterGrossKlein", "Aktiv"},
    {"chkOptFilterOrdnerUnterordnerNichtFiltern", "OrdnerFilterUnterordner", "Aktiv"},
    {"chkOptFilterGröße", "FilterGrösse", "Aktiv"},
    {"cboFilterGröße(0)", "FilterGrösse", "Art"},
    {"cboFilterGrößeTyp(0)", "FilterGrösse", "Typ"},
    {"txtFilterGröße(0)", "FilterGrösse", "Grösse"},
    {"chkOptFilterGröße2", "FilterGrösse", "Aktiv2"},
    {"cboFilterGröße(1)", "FilterGrösse", "Art2"},
    {"cboFilterGrößeTyp(1)", "FilterGrösse", "Typ2"},
    {"txtFilterGröße(1)", "FilterGrösse", "Grösse2"},
    // Options.
    {"chkIgnore0byteFiles", kDup, "NullByte"},
    {"chkNTFSAbzweigungspunkte", kDup, "NTFSordner"},
    {"chkPrio", kDup, "Prio"},
    {"chkCancelSearchMaxDupCount", kDup, "CancelSearchMaxDup"},
    {"txtMaxDupCount", kDup, "CancelSearchMaxDupCount"},
    {"chkLogStatistic", kDup, "LogStatistic"},
    {"txtLogStatisticMinutes", kDup, "LogStatisticMinutes"},
    {"chkLogFilesWithNoDups", kDup, "LogFilesWithNoDups"},
    {"chkShowOnlyFilesWithoutDups", kDup, "ShowOnlyFilesWithoutDups"},
    {"chkRemoveGroupsDupsNotInsideAllSources", kDup, "RemoveGroupsDupsNotInsideAllSources"},
    {"chkAlleGruppenAufklappen", kDup, "ExpandAllGroups"},
    {"chkShowOwner", kDup, "ShowOwner"},
    {"chkShowPicWidthHeight", kDup, "ShowPicWidthHeight"},
    {"chkShowAudioProperties", kDup, "ShowAudioProperties"},
    {"txtShowAudioProperties", kDup, "ShowAudioPropertiesExt"},
    {"chkShowHardlinks", kDup, "ShowHardlinks"},
    {"chkPlaySoundAfterSearch", kDup, "PlaySoundAfterSearch"},
    {"txtSoundFile", kDup, "SoundFileAfterSearch"},
    {"cboDate", kDup, "DateFormat3"},
};
// clang-format on

// The language list: code of "Allgemein/Lang", or the user's own lang.txt.
struct LanguageChoice {
  const char* name;  // each language in its own words
  int code;
  bool ownFile;
};
constexpr LanguageChoice kLanguages[] = {
    {"Deutsch", kLangGerman, false},
    {"English", kLangEnglish, false},
    {"lang.txt", kLangUser, true},
};

constexpr const char* kArchiveTypes[] = {"zip", "rar", "7z",  "iso", "cab", "tar", "gz",  "epub",
                                         "cbr", "nrg", "lzh", "lha", "arj", "cbz", "cb7", "cbt"};

QIcon ThemeIcon(const char* name, QStyle::StandardPixmap fallback) {
  return QIcon::fromTheme(QString::fromLatin1(name), QApplication::style()->standardIcon(fallback));
}

template <class W>
W* Named(W* w, const char* name) {
  w->setObjectName(QString::fromUtf8(name));
  return w;
}

// The folder list: folders dropped from a file manager become rows.
class SourceList final : public QTreeWidget {
 public:
  std::function<void(const QString&)> onFolderDropped;

  SourceList() {
    setAcceptDrops(true);
    setDragDropMode(QAbstractItemView::DropOnly);
  }

 protected:
  static bool HasFolders(const QMimeData* m) {
    if (m == nullptr || !m->hasUrls()) return false;
    for (const QUrl& u : m->urls())
      if (u.isLocalFile() && QFileInfo(u.toLocalFile()).isDir()) return true;
    return false;
  }
  void dragEnterEvent(QDragEnterEvent* e) override {
    if (HasFolders(e->mimeData())) e->acceptProposedAction();
  }
  void dragMoveEvent(QDragMoveEvent* e) override {
    if (HasFolders(e->mimeData())) e->acceptProposedAction();
  }
  void dropEvent(QDropEvent* e) override {
    if (!HasFolders(e->mimeData())) return;
    for (const QUrl& u : e->mimeData()->urls())
      if (u.isLocalFile() && QFileInfo(u.toLocalFile()).isDir() && onFolderDropped)
        onFolderDropped(u.toLocalFile());
    e->acceptProposedAction();
  }
};

enum SourceColumn { kColPath = 0, kColSubfolders = 1, kColProtect = 2 };

}  // namespace

MainWindow::MainWindow(SessionOptions options, QWidget* parent)
    : QMainWindow(parent), options_(std::move(options)), prompt_(this), binder_(this, kBindings) {
  setObjectName(QStringLiteral("frmMain"));
  qRegisterMetaType<SearchWindow*>();
  session_ = std::make_unique<SearchSession>(options_, &prompt_);
  // The command line is read once, by the first session; later sessions of
  // this window start from the settings alone.
  commandLine_ = std::move(options_.items);
  options_.items.clear();
  BuildUi();
  LoadControls();
  LoadSourceRows(LoadSourceFolders(Settings()));
  Connect();
  UpdateEnabled();
  const QByteArray geometry = QByteArray::fromBase64(
      QByteArray::fromStdString(Settings().Get(kWindowSection, "Geometry", "")));
  if (geometry.isEmpty() || !restoreGeometry(geometry)) resize(1200, 820);
  const int tab = QString::fromStdString(Settings().Get(kWindowSection, "Tab", "0")).toInt();
  tabs_->setCurrentIndex(tab >= 0 && tab < tabs_->count() ? tab : 0);
}

MainWindow::~MainWindow() {
  for (const QPointer<SearchWindow>& w : results_) {
    if (w.isNull()) continue;
    disconnect(w.data(), nullptr, this, nullptr);
    delete w.data();
  }
}

QString MainWindow::T(const TextDef& t) const {
  return QString::fromStdString(session_->Texts().Get(t));
}

void MainWindow::BuildUi() {
  setWindowTitle(QStringLiteral("Kelvor"));
  setWindowIcon(ThemeIcon("edit-find", QStyle::SP_FileDialogContentsView));
  auto* central = new QWidget;
  auto* layout = new QVBoxLayout(central);
  tabs_ = Named(new QTabWidget, "tabMain");
  tabs_->setDocumentMode(true);
  const auto scrolled = [](QWidget* page) {
    auto* area = new QScrollArea;
    area->setWidget(page);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    return area;
  };
  tabs_->addTab(BuildFolderPage(), ThemeIcon("folder", QStyle::SP_DirIcon), T(txt::T9700));
  tabs_->addTab(scrolled(BuildCriteriaPage()),
                ThemeIcon("edit-find", QStyle::SP_FileDialogContentsView), T(txt::T9701));
  tabs_->addTab(scrolled(BuildFilterPage()),
                ThemeIcon("view-filter", QStyle::SP_FileDialogListView), T(txt::T9702));
  tabs_->addTab(scrolled(BuildArchivePage()),
                ThemeIcon("package-x-generic", QStyle::SP_DriveFDIcon), T(txt::T9323));
  tabs_->addTab(scrolled(BuildOptionsPage()),
                ThemeIcon("preferences-system", QStyle::SP_FileDialogDetailedView), T(txt::T9703));
  layout->addWidget(tabs_, 1);

  auto* bottom = new QHBoxLayout;
  bottom->addStretch(1);
  auto* start =
      Named(new QPushButton(ThemeIcon("system-search", QStyle::SP_MediaPlay), T(txt::T9706)),
            "cmdSuchen");
  start->setDefault(true);
  start->setToolTip(T(txt::T9706) + QStringLiteral(" (F5)"));
  bottom->addWidget(start);
  layout->addLayout(bottom);
  setCentralWidget(central);
  BuildActions();
}

QWidget* MainWindow::BuildFolderPage() {
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);

  auto* row = new QHBoxLayout;
  auto* list = new SourceList;
  list->onFolderDropped = [this](const QString& p) { AddSourceFolder(p); };
  sources_ = Named(static_cast<QTreeWidget*>(list), "lvwSource");
  sources_->setColumnCount(3);
  sources_->setHeaderLabels({T(txt::T9700), T(txt::T9707), T(txt::T9708)});
  sources_->setRootIsDecorated(false);
  sources_->setUniformRowHeights(true);
  sources_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  sources_->header()->setStretchLastSection(false);
  sources_->header()->setSectionResizeMode(kColPath, QHeaderView::Stretch);
  sources_->header()->setSectionResizeMode(kColSubfolders, QHeaderView::ResizeToContents);
  sources_->header()->setSectionResizeMode(kColProtect, QHeaderView::ResizeToContents);
  row->addWidget(sources_, 1);

  auto* buttons = new QVBoxLayout;
  auto* add =
      Named(new QPushButton(ThemeIcon("folder-new", QStyle::SP_FileDialogNewFolder), T(txt::T9704)),
            "cmdFolderAdd");
  add->setToolTip(T(txt::T9704) + QStringLiteral(" (Ctrl+O)"));
  auto* remove = Named(
      new QPushButton(ThemeIcon("list-remove", QStyle::SP_DialogDiscardButton), T(txt::T9705)),
      "cmdFolderRemove");
  remove->setToolTip(T(txt::T9705) + QStringLiteral(" (Del)"));
  buttons->addWidget(add);
  buttons->addWidget(remove);
  buttons->addStretch(1);
  row->addLayout(buttons);
  layout->addLayout(row, 1);

  auto* method = new QGroupBox;
  auto* methodLayout = new QVBoxLayout(method);
  for (int i = 0; i < 4; ++i) {
    auto* r = new QRadioButton(QString::fromStdString(SourceCompareCaption(session_->Texts(), i)));
    r->setObjectName(QStringLiteral("optSourceFolderCompareMethod(%1)").arg(i));
    methodLayout->addWidget(r);
  }
  layout->addWidget(method);
  return page;
}

QWidget* MainWindow::BuildCriteriaPage() {
  const TextCatalog& texts = session_->Texts();
  const auto caption = [&](int i) { return QString::fromStdString(CriterionCaption(texts, i)); };
  const auto check = [](const QString& text, const char* name) {
    return Named(new QCheckBox(text), name);
  };
  const auto group = [&](int criterion) {
    auto* g = new QGroupBox(caption(criterion));
    g->setCheckable(true);
    g->setObjectName(QStringLiteral("chkSuchKriterien(%1)").arg(criterion));
    return g;
  };
  const auto criterion = [&](int i) {
    auto* c = new QCheckBox(caption(i));
    c->setObjectName(QStringLiteral("chkSuchKriterien(%1)").arg(i));
    return c;
  };
  const auto edit = [](const char* name, int chars) {
    auto* e = Named(new QLineEdit, name);
    if (chars > 0)
      e->setMaximumWidth(e->fontMetrics().horizontalAdvance(QLatin1Char('0')) * chars + 24);
    return e;
  };
  const auto spin = [](const char* name, int lo, int hi, const QString& suffix = {}) {
    auto* s = Named(new QSpinBox, name);
    s->setRange(lo, hi);
    s->setSuffix(suffix);
    return s;
  };
  const auto pair = [](QWidget* a, QWidget* b, QWidget* c = nullptr) {
    auto* l = new QHBoxLayout;
    l->addWidget(a);
    l->addWidget(b);
    if (c) l->addWidget(c);
    l->addStretch(1);
    return l;
  };

  auto* page = new QWidget;
  auto* columns = new QHBoxLayout(page);
  auto* left = new QVBoxLayout;
  auto* right = new QVBoxLayout;
  columns->addLayout(left, 1);
  columns->addLayout(right, 1);

  const auto label = [this](const TextDef& t) { return new QLabel(T(t)); };
  const auto row = [](std::initializer_list<QWidget*> widgets, int indent = 0) {
    auto* l = new QHBoxLayout;
    l->setContentsMargins(indent, 0, 0, 0);
    for (QWidget* w : widgets) l->addWidget(w);
    l->addStretch(1);
    return l;
  };
  // 0: the name, with its methods.
  {
    auto* g = group(kCritName);
    auto* v = new QVBoxLayout(g);
    auto* method = Named(new QComboBox, "cboFileNameCompareMethod");
    for (const TextDef* t : {&txt::T9224, &txt::T9225, &txt::T9226, &txt::T9227})
      method->addItem(T(*t));
    v->addLayout(row(
        {label(txt::T9709), method,
         spin("txtFileNameCompareOnlyFirstChars", 0, 9999, QStringLiteral(" ") + T(txt::T9221))}));
    auto* ignore = new QFormLayout;
    ignore->addRow(check(T(txt::T9222), "chkIgnoreChars"), edit("txtIgnoreChars", 0));
    ignore->addRow(check(T(txt::T9223), "chkIgnoreText"), edit("txtIgnoreText", 0));
    v->addLayout(ignore);
    v->addWidget(check(T(txt::T9713), "chkPartialFilenameCompare"));
    auto* fuzzy = Named(new QComboBox, "cboPartialFilenameCompareMethod");
    for (const char* m : {"SmartMatch", "FuzzyMatch", "Levenshtein", "Ratcliff", "MatchDiff",
                          "WordMatch", "FuzzyPercent", "Simil"})
      fuzzy->addItem(QString::fromLatin1(m));
    v->addLayout(row(
        {label(txt::T9709), fuzzy, spin("txtPartialFilenameCompare", 1, 100, QStringLiteral(" %"))},
        24));
    v->addLayout(
        row({label(txt::T9714), edit("txtPartialFileNameCompareMethodDelimiterChars", 10)}, 24));
    left->addWidget(g);
  }
  left->addWidget(criterion(kCritExtension));
  left->addWidget(criterion(kCritSize));
  // 3: the content, with its method and buffers.
  {
    auto* g = group(kCritContent);
    auto* v = new QVBoxLayout(g);
    auto* method = Named(new QComboBox, "cboContentCompare");
    method->addItem(T(txt::T9214));
    for (int m = 1; m <= 5; ++m) method->addItem(QString::fromStdString(ChecksumName(m)));
    auto* percentLabel = label(txt::T9710);
    percentLabel->setObjectName(QStringLiteral("lblContentComparePercent"));
    v->addLayout(
        row({label(txt::T9709), method, percentLabel, edit("txtContentComparePercent", 4)}));
    v->addWidget(label(txt::T9711));
    v->addLayout(row({edit("txtCompareBuffer(0)", 9), edit("txtCompareBuffer(1)", 9),
                      edit("txtCompareBuffer(2)", 9)},
                     24));
    v->addLayout(
        row({check(T(txt::T9712), "chkCompareFileEndFirst"), edit("txtCompareBuffer(3)", 9)}));
    v->addWidget(check(T(txt::T9217), "chkIgnoreMP3Tags"));
    v->addWidget(check(T(txt::T9218), "chkIgnoreFlacMetadata"));
    v->addWidget(check(T(txt::T9219), "chkIgnoreExif"));
    left->addWidget(g);
  }
  left->addWidget(criterion(kCritDateA));
  left->addWidget(criterion(kCritDateB));
  {
    auto* dates = new QHBoxLayout;
    dates->setContentsMargins(24, 0, 0, 0);
    dates->addWidget(check(T(txt::T9215), "chkZeitstempelIgnorieren"));
    dates->addWidget(check(T(txt::T9216), "chkIgnoreSeconds"));
    dates->addStretch(1);
    left->addLayout(dates);
  }
  left->addWidget(criterion(kCritAttributes));
  left->addWidget(criterion(kCritHardlink));
  left->addStretch(1);

  // 8: similar pictures.
  {
    auto* g = group(kCritSimilarPics);
    auto* v = new QVBoxLayout(g);
    auto* f = new QFormLayout;
    f->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    auto* algo = Named(new QComboBox, "cboSimiliarImagesAlgo");
    algo->addItems({QStringLiteral("aHash"), QStringLiteral("dHash"), QStringLiteral("pHash")});
    auto* size = Named(new QComboBox, "cboSimilarImagesCompareSize");
    size->addItems({QStringLiteral("8x8"), QStringLiteral("16x16"), QStringLiteral("24x24")});
    f->addRow(T(txt::T9709), pair(algo, size));
    f->addRow(T(txt::T9710), edit("txtSimilarPicsMatchPercent", 4));
    v->addLayout(f);
    auto* grid = new QGridLayout;
    grid->addWidget(check(T(txt::T9715), "chkSimilarPicsCompareOnlySameFileType"), 0, 0);
    grid->addWidget(check(T(txt::T9716), "chkSimilarPicsCompareOnlySameDimension"), 0, 1);
    grid->addWidget(check(T(txt::T9717), "chkSimilarPicsCompareOnlySameFormat"), 1, 0);
    grid->addWidget(check(T(txt::T9718), "chkSimilarPicsCompareOnlySameRatio"), 1, 1);
    grid->setColumnStretch(2, 1);
    v->addLayout(grid);
    v->addWidget(check(T(txt::T9719), "chkSearchForRotatedAndFlippedPics"));
    auto* forms = Named(new QListWidget, "lbFlipRotate");
    for (const TextDef* t : {&txt::T9720, &txt::T9721, &txt::T9722, &txt::T9723, &txt::T9724,
                             &txt::T9725, &txt::T9726}) {
      auto* item = new QListWidgetItem(T(*t), forms);
      item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
      item->setCheckState(Qt::Unchecked);
    }
    forms->setMinimumHeight(forms->sizeHintForRow(0) * 7 + 2 * forms->frameWidth() + 4);
    forms->setMaximumHeight(forms->minimumHeight());
    v->addWidget(forms);
    right->addWidget(g);
  }
  // 9: similar music.
  {
    auto* g = group(kCritSimilarAudio);
    auto* f = new QFormLayout(g);
    f->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    auto* algo = Named(new QComboBox, "cboSimilarAudioAlgo");
    algo->addItems({QStringLiteral("2"), QStringLiteral("4"), QStringLiteral("5")});
    f->addRow(T(txt::T9709), algo);
    f->addRow(T(txt::T9710), edit("txtSimilarAudioMatch", 4));
    f->addRow(T(txt::T9727), spin("txtSimilarAudioSeconds", 1, 86400));
    f->addRow(check(T(txt::T9715), "chkSimAudioSameExt"));
    right->addWidget(g);
  }
  right->addWidget(check(T(txt::T9220), "chkDontCompareHardlinks"));
  right->addStretch(1);
  return page;
}

QWidget* MainWindow::BuildFilterPage() {
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  auto* lists = new QHBoxLayout;
  layout->addLayout(lists, 1);

  const auto filterGroup = [&](const QString& title, const char* groupName, const char* listName,
                               const char* radioName, const char* wildcards, const char* caseName) {
    auto* g = Named(new QGroupBox(title), groupName);
    g->setCheckable(true);
    auto* v = new QVBoxLayout(g);
    auto* row = new QHBoxLayout;
    auto* list = Named(new QListWidget, listName);
    list->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    list->setContextMenuPolicy(Qt::CustomContextMenu);
    row->addWidget(list, 1);
    auto* buttons = new QVBoxLayout;
    auto* add =
        new QPushButton(ThemeIcon("list-add", QStyle::SP_FileDialogNewFolder), T(txt::T9704));
    add->setObjectName(QString::fromUtf8(listName) + QStringLiteral("Add"));
    auto* remove =
        new QPushButton(ThemeIcon("list-remove", QStyle::SP_DialogDiscardButton), T(txt::T9705));
    remove->setObjectName(QString::fromUtf8(listName) + QStringLiteral("Remove"));
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch(1);
    row->addLayout(buttons);
    v->addLayout(row, 1);
    auto* modes = new QHBoxLayout;
    for (int i = 0; i < 2; ++i) {
      auto* r = new QRadioButton(T(i == 0 ? txt::T5344 : txt::T5345));
      r->setObjectName(QStringLiteral("%1(%2)").arg(QString::fromUtf8(radioName)).arg(i));
      modes->addWidget(r);
    }
    modes->addStretch(1);
    v->addLayout(modes);
    v->addWidget(Named(new QCheckBox(T(txt::T9733)), wildcards));
    v->addWidget(Named(new QCheckBox(T(txt::T9734)), caseName));
    connect(add, &QPushButton::clicked, this, [this, list] { AddFilterRow(list); });
    connect(remove, &QPushButton::clicked, this, [list] { qDeleteAll(list->selectedItems()); });
    connect(list, &QWidget::customContextMenuRequested, this, [this, list](const QPoint& at) {
      QMenu menu(this);
      menu.addAction(T(txt::T9736), this, [this] { RewriteFilters(&Filter_Escape_Wildcards); });
      menu.addAction(T(txt::T9737), this, [this] { RewriteFilters(&Filter_Unescape_Wildcards); });
      menu.exec(list->viewport()->mapToGlobal(at));
    });
    lists->addWidget(g, 1);
    return v;
  };
  QVBoxLayout* files =
      filterGroup(T(txt::T9731), "chkDateifilterVerwenden", "lvwFiF", "optDateiInkEx",
                  "chkOptFilterPlatzhalterVerwenden(0)", "chkOptFilterGrossKleinBeachten(0)");
  QVBoxLayout* folders =
      filterGroup(T(txt::T9732), "chkOrdnerfilter", "lvwFoF", "optOrdnerInkEx",
                  "chkOptFilterPlatzhalterVerwenden(1)", "chkOptFilterGrossKleinBeachten(1)");
  auto* subfolders =
      Named(new QCheckBox(T(txt::T9735)), "chkOptFilterOrdnerUnterordnerNichtFiltern");
  folders->addWidget(subfolders);
  // The two lists end on one line.
  files->addSpacing(subfolders->sizeHint().height() + files->spacing());

  auto* size = new QGroupBox;
  auto* grid = new QGridLayout(size);
  const QStringList units = {T(txt::T3887), T(txt::T3888), T(txt::T3889), T(txt::T3890),
                             T(txt::T4168)};
  for (int i = 0; i < 2; ++i) {
    auto* on = new QCheckBox(i == 0 ? T(txt::T5176) : QStringLiteral("+"));
    on->setObjectName(QString::fromUtf8(i == 0 ? "chkOptFilterGröße" : "chkOptFilterGröße2"));
    auto* compare = new QComboBox;
    compare->setObjectName(QStringLiteral("cboFilterGröße(%1)").arg(i));
    compare->addItems({T(txt::T9400), T(txt::T9401)});
    auto* value = new QSpinBox;
    value->setObjectName(QStringLiteral("txtFilterGröße(%1)").arg(i));
    value->setRange(0, 2147483647);
    value->setGroupSeparatorShown(true);
    auto* unit = new QComboBox;
    unit->setObjectName(QStringLiteral("cboFilterGrößeTyp(%1)").arg(i));
    unit->addItems(units);
    grid->addWidget(on, i, 0);
    grid->addWidget(compare, i, 1);
    grid->addWidget(value, i, 2);
    grid->addWidget(unit, i, 3);
  }
  grid->setColumnStretch(4, 1);
  layout->addWidget(size);
  return page;
}

QWidget* MainWindow::BuildArchivePage() {
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  auto* g = Named(new QGroupBox(T(txt::T9584)), "chkScanArchives");
  g->setCheckable(true);
  auto* v = new QVBoxLayout(g);
  auto* types = Named(new QListWidget, "lbArchive");
  types->setViewMode(QListView::IconMode);
  types->setFlow(QListView::LeftToRight);
  types->setWrapping(true);
  types->setResizeMode(QListView::Adjust);
  types->setMovement(QListView::Static);
  types->setGridSize(QSize(types->fontMetrics().horizontalAdvance(QStringLiteral("0000000000")),
                           types->fontMetrics().height() + 12));
  for (const char* t : kArchiveTypes) {
    auto* item = new QListWidgetItem(QString::fromLatin1(t), types);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
    item->setCheckState(Qt::Unchecked);
  }
  types->setMinimumHeight((types->fontMetrics().height() + 12) * 2 + 12);
  types->setMaximumHeight(types->minimumHeight() + 30);
  v->addWidget(types);
  v->addWidget(Named(new QCheckBox(T(txt::T9728)), "chkZipDeleteTempFilesAfterCreateChecksum"));
  v->addWidget(Named(new QCheckBox(T(txt::T9729)), "chkZipLogPasswordProtectedFiles"));
  auto* sizeRow = new QHBoxLayout;
  sizeRow->addWidget(Named(new QCheckBox(T(txt::T9585)), "chkZipSizeFilter"));
  auto* limit = Named(new QSpinBox, "txtFilterGröße(2)");
  limit->setRange(0, 2147483647);
  sizeRow->addWidget(limit);
  auto* unit = Named(new QComboBox, "cboFilterGrößeTyp(2)");
  unit->addItems({T(txt::T3888), T(txt::T3889)});
  sizeRow->addWidget(unit);
  sizeRow->addStretch(1);
  v->addLayout(sizeRow);
  auto* tempRow = new QHBoxLayout;
  tempRow->addWidget(new QLabel(T(txt::T9730)));
  auto* temp = Named(new QLineEdit, "txtTempFolder");
  tempRow->addWidget(temp, 1);
  auto* browse =
      Named(new QPushButton(ThemeIcon("document-open", QStyle::SP_DirOpenIcon), QString()),
            "cmdTempFolder");
  browse->setToolTip(T(txt::T9730));
  connect(browse, &QPushButton::clicked, this, [this, temp] {
    const QString dir = QFileDialog::getExistingDirectory(this, T(txt::T9730), temp->text());
    if (!dir.isEmpty()) temp->setText(dir);
  });
  tempRow->addWidget(browse);
  v->addLayout(tempRow);
  layout->addWidget(g);
  layout->addStretch(1);
  return page;
}

QWidget* MainWindow::BuildOptionsPage() {
  auto* page = new QWidget;
  auto* columns = new QHBoxLayout(page);
  const auto check = [this](const TextDef& t, const char* name) {
    return Named(new QCheckBox(T(t)), name);
  };
  const auto spin = [](const char* name, int lo, int hi) {
    auto* s = Named(new QSpinBox, name);
    s->setRange(lo, hi);
    s->setMaximumWidth(s->fontMetrics().horizontalAdvance(QStringLiteral("0000000")) + 40);
    return s;
  };
  const auto edit = [](const char* name) { return Named(new QLineEdit, name); };

  auto* search = new QFormLayout;
  search->addRow(check(txt::T9739, "chkIgnore0byteFiles"));
  search->addRow(check(txt::T9743, "chkNTFSAbzweigungspunkte"));
  search->addRow(check(txt::T9748, "chkPrio"));
  search->addRow(check(txt::T9742, "chkCancelSearchMaxDupCount"),
                 spin("txtMaxDupCount", 1, 2000000));
  search->addRow(check(txt::T9741, "chkLogStatistic"), spin("txtLogStatisticMinutes", 1, 1440));
  search->addRow(check(txt::T5184, "chkLogFilesWithNoDups"));
  search->addRow(check(txt::T9229, "chkShowOnlyFilesWithoutDups"));
  search->addRow(check(txt::T5354, "chkRemoveGroupsDupsNotInsideAllSources"));
  search->addRow(check(txt::T5355, "chkAlleGruppenAufklappen"));
  auto* sound = new QHBoxLayout;
  auto* soundFile = edit("txtSoundFile");
  sound->addWidget(soundFile, 1);
  auto* browse =
      Named(new QPushButton(ThemeIcon("document-open", QStyle::SP_DirOpenIcon), QString()),
            "cmdSoundFile");
  browse->setToolTip(T(txt::T9749));
  connect(browse, &QPushButton::clicked, this, [this, soundFile] {
    const QString f = QFileDialog::getOpenFileName(this, T(txt::T9749), soundFile->text());
    if (!f.isEmpty()) soundFile->setText(f);
  });
  sound->addWidget(browse);
  search->addRow(check(txt::T9749, "chkPlaySoundAfterSearch"), sound);

  auto* show = new QFormLayout;
  show->addRow(check(txt::T9744, "chkShowOwner"));
  show->addRow(check(txt::T9745, "chkShowPicWidthHeight"));
  show->addRow(check(txt::T9746, "chkShowAudioProperties"), edit("txtShowAudioProperties"));
  show->addRow(check(txt::T9747, "chkShowHardlinks"));
  auto* date = Named(new QComboBox, "cboDate");
  date->setEditable(true);
  date->addItems({QStringLiteral("dd/MM/yyyy hh:nn:ss"), QStringLiteral("dd.MM.yyyy hh:nn:ss"),
                  QStringLiteral("yyyy-MM-dd hh:nn:ss"), QStringLiteral("MM/dd/yyyy hh:nn:ss")});
  show->addRow(T(txt::T9740), date);
  auto* language = Named(new QComboBox, "cboLanguage");
  for (const LanguageChoice& l : kLanguages) language->addItem(QString::fromUtf8(l.name));
  show->addRow(T(txt::T9738), language);

  columns->addLayout(search, 1);
  columns->addSpacing(24);
  columns->addLayout(show, 1);
  auto* outer = new QWidget;
  auto* v = new QVBoxLayout(outer);
  v->addWidget(page);
  v->addStretch(1);
  return outer;
}

void MainWindow::BuildActions() {
  const auto action = [this](const QKeySequence& keys, auto slot) {
    auto* a = new QAction(this);
    a->setShortcut(keys);
    a->setShortcutContext(Qt::WindowShortcut);
    connect(a, &QAction::triggered, this, slot);
    addAction(a);
    return a;
  };
  action(QKeySequence(Qt::Key_F5), [this] { StartSearchForDups(); });
  action(QKeySequence(Qt::CTRL | Qt::Key_Return), [this] { StartSearchForDups(); });
  action(QKeySequence::Open, [this] { AddFolderByDialog(); });
  action(QKeySequence::Quit, [this] { close(); });
  for (int i = 0; i < 5; ++i)
    action(QKeySequence(Qt::ALT | static_cast<Qt::Key>(Qt::Key_1 + i)),
           [this, i] { tabs_->setCurrentIndex(i); });
  auto* remove = new QAction(sources_);
  remove->setShortcut(QKeySequence::Delete);
  remove->setShortcutContext(Qt::WidgetShortcut);
  connect(remove, &QAction::triggered, this, [this] { RemoveSelectedFolders(); });
  sources_->addAction(remove);
}

void MainWindow::Connect() {
  connect(findChild<QPushButton*>(QStringLiteral("cmdSuchen")), &QPushButton::clicked, this,
          [this] { StartSearchForDups(); });
  connect(findChild<QPushButton*>(QStringLiteral("cmdFolderAdd")), &QPushButton::clicked, this,
          [this] { AddFolderByDialog(); });
  connect(findChild<QPushButton*>(QStringLiteral("cmdFolderRemove")), &QPushButton::clicked, this,
          [this] { RemoveSelectedFolders(); });

  for (int i = 0; i < kCriterionCount; ++i) {
    QWidget* w = findChild<QWidget*>(QStringLiteral("chkSuchKriterien(%1)").arg(i));
    if (auto* g = qobject_cast<QGroupBox*>(w))
      connect(g, &QGroupBox::clicked, this, [this, i](bool on) { CriterionClicked(i, on); });
    else if (auto* c = qobject_cast<QCheckBox*>(w))
      connect(c, &QCheckBox::clicked, this, [this, i](bool on) { CriterionClicked(i, on); });
  }
  // Any change of a check box, group or list may change what is enabled.
  for (QAbstractButton* b : findChildren<QAbstractButton*>())
    connect(b, &QAbstractButton::toggled, this, [this] { UpdateEnabled(); });
  for (QGroupBox* g : findChildren<QGroupBox*>())
    connect(g, &QGroupBox::toggled, this, [this] { UpdateEnabled(); });
  for (QComboBox* c : findChildren<QComboBox*>())
    connect(c, &QComboBox::currentIndexChanged, this, [this] { UpdateEnabled(); });

  // Archives switched on with no type chosen would search none: all types
  // are offered checked then.
  auto* archives = findChild<QGroupBox*>(QStringLiteral("chkScanArchives"));
  connect(archives, &QGroupBox::clicked, this, [this](bool on) {
    auto* types = findChild<QListWidget*>(QStringLiteral("lbArchive"));
    bool any = false;
    for (int i = 0; i < types->count(); ++i)
      any = any || types->item(i)->checkState() == Qt::Checked;
    if (on && !any)
      for (int i = 0; i < types->count(); ++i) types->item(i)->setCheckState(Qt::Checked);
  });
  connect(findChild<QComboBox*>(QStringLiteral("cboContentCompare")), &QComboBox::activated, this,
          [this](int index) { ContentMethodChosen(index); });
  const auto mendOnLeave = [this](const char* control, std::string (*mend)(std::string_view)) {
    connect(findChild<QLineEdit*>(QString::fromUtf8(control)), &QLineEdit::editingFinished, this,
            [this, control, mend] { MendField(control, mend); });
  };
  mendOnLeave("txtSimilarPicsMatchPercent", &MendPicturePercent);
  mendOnLeave("txtSimilarAudioMatch", &MendAudioMatchPercent);
  mendOnLeave("txtContentComparePercent", &MendContentPercent);
  for (int i = 0; i < 4; ++i)
    connect(findChild<QLineEdit*>(QStringLiteral("txtCompareBuffer(%1)").arg(i)),
            &QLineEdit::editingFinished, this, [this] { MendCompareBuffers(); });
}

void MainWindow::LoadControls() {
  const SettingsStore& s = Settings();
  binder_.Load(s);
  LoadFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFiF")), "DupFilter");
  LoadFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFoF")), "DupFilterOrdner");
  // Values stored outside what the fields allow are shown as they are mended.
  MendField("txtSimilarPicsMatchPercent", &MendPicturePercent);
  MendField("txtContentComparePercent", &MendContentPercent);
  // The language: a code of its own, the user's lang.txt, or (0) the
  // desktop's language, shown as the language it resolves to.
  auto* language = findChild<QComboBox*>(QStringLiteral("cboLanguage"));
  int index = 0;
  const int code = static_cast<int>(s.GetInt("Allgemein", "Lang"));
  const int shown = code != 0 ? code : session_->Texts().Language();
  for (int i = 0; i < static_cast<int>(std::size(kLanguages)); ++i) {
    if (s.GetBool("Allgemein", "UseLangTxt")
            ? kLanguages[i].ownFile
            : (!kLanguages[i].ownFile && kLanguages[i].code == shown))
      index = i;
  }
  language->setCurrentIndex(index);
  languageIndexAtLoad_ = index;
}

void MainWindow::StoreControls() {
  SettingsStore& s = Settings();
  binder_.Store(s);
  StoreFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFiF")), "DupFilter");
  StoreFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFoF")), "DupFilterOrdner");
  StoreSourceFolders(s, SourceRows());
  // The language is written only when the user chose one, so that "as the
  // desktop" stays so.
  const int index = findChild<QComboBox*>(QStringLiteral("cboLanguage"))->currentIndex();
  if (index != languageIndexAtLoad_ && index >= 0) {
    const LanguageChoice& l = kLanguages[index];
    s.SetBool("Allgemein", "UseLangTxt", l.ownFile);
    if (!l.ownFile) s.SetInt("Allgemein", "Lang", l.code);
    languageIndexAtLoad_ = index;
  }
}

void MainWindow::LoadSourceRows(const std::vector<SourceFolderRow>& rows) {
  sources_->clear();
  const auto checkState = [](bool on) { return on ? Qt::Checked : Qt::Unchecked; };
  for (const SourceFolderRow& r : rows) {
    auto* item = new QTreeWidgetItem(sources_);
    item->setText(kColPath, QString::fromStdString(r.path));
    item->setIcon(kColPath, ThemeIcon("folder", QStyle::SP_DirIcon));
    item->setToolTip(kColPath, QString::fromStdString(r.path));
    item->setData(kColPath, Qt::UserRole, QString::fromStdString(r.text));
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
    item->setCheckState(kColPath, checkState(r.checked));
    item->setCheckState(kColSubfolders, checkState(r.subfolders));
    item->setCheckState(kColProtect, checkState(r.protect));
  }
}

std::vector<SourceFolderRow> MainWindow::SourceRows() const {
  std::vector<SourceFolderRow> rows;
  for (int i = 0; i < sources_->topLevelItemCount(); ++i) {
    const QTreeWidgetItem* item = sources_->topLevelItem(i);
    SourceFolderRow r;
    r.path = item->text(kColPath).toStdString();
    r.checked = item->checkState(kColPath) == Qt::Checked;
    r.subfolders = item->checkState(kColSubfolders) == Qt::Checked;
    r.protect = item->checkState(kColProtect) == Qt::Checked;
    r.text = item->data(kColPath, Qt::UserRole).toString().toStdString();
    rows.push_back(std::move(r));
  }
  return rows;
}

void MainWindow::LoadFilterRows(QListWidget* list, const char* section) {
  list->clear();
  std::vector<FilterRow> rows = ReadFilterRows(Settings(), section);
  // A folder list that was never filled starts with the trash folders.
  if (rows.empty() && std::string_view(section) == "DupFilterOrdner")
    rows.push_back({std::string(kTrashFolderFilter), true});
  for (const FilterRow& r : rows) {
    auto* item = new QListWidgetItem(QString::fromStdString(r.text), list);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable |
                   Qt::ItemIsEditable);
    item->setCheckState(r.checked ? Qt::Checked : Qt::Unchecked);
  }
}

void MainWindow::StoreFilterRows(const QListWidget* list, const char* section) {
  SettingsStore& s = Settings();
  for (int n = 1; s.Has(section, "F" + std::to_string(n)); ++n) {
    s.Remove(section, "F" + std::to_string(n));
    s.Remove(section, "C" + std::to_string(n));
  }
  int n = 0;
  for (int i = 0; i < list->count(); ++i) {
    const QListWidgetItem* item = list->item(i);
    const std::string text = item->text().trimmed().toStdString();
    if (text.empty()) continue;
    const std::string num = std::to_string(++n);
    s.Set(section, "F" + num, text);
    s.SetBool(section, "C" + num, item->checkState() == Qt::Checked);
  }
}

void MainWindow::CriterionClicked(int index, bool on) {
  // The rules between criteria are the search's own: the settings take the
  // window's state, the rule runs on them, and the window shows the outcome.
  StoreControls();
  chkSuchKriterien_Click(Settings(), index, on);
  binder_.Load(Settings());
  UpdateEnabled();
}

void MainWindow::UpdateEnabled() {
  const auto on = [this](const QString& name) {
    QWidget* w = findChild<QWidget*>(name);
    if (auto* g = qobject_cast<QGroupBox*>(w)) return g->isChecked();
    if (auto* b = qobject_cast<QAbstractButton*>(w)) return b->isChecked();
    return false;
  };
  const auto crit = [&](int i) { return on(QStringLiteral("chkSuchKriterien(%1)").arg(i)); };
  // A control inside an unchecked group stays off with its group.
  const auto enable = [this](const char* name, bool e) {
    QWidget* w = findChild<QWidget*>(QString::fromUtf8(name));
    if (w == nullptr) return;
    for (QWidget* p = w->parentWidget(); p != nullptr && e; p = p->parentWidget())
      if (auto* g = qobject_cast<QGroupBox*>(p); g && g->isCheckable() && !g->isChecked())
        e = false;
    w->setEnabled(e);
  };
  const auto index = [this](const char* name) {
    auto* c = findChild<QComboBox*>(QString::fromUtf8(name));
    return c ? c->currentIndex() : -1;
  };

  // Hard links, similar pictures and similar music each stand alone.
  int alone = -1;
  for (int i : {kCritHardlink, kCritSimilarPics, kCritSimilarAudio})
    if (crit(i)) alone = i;
  for (int i = 0; i < kCriterionCount; ++i)
    findChild<QWidget*>(QStringLiteral("chkSuchKriterien(%1)").arg(i))
        ->setEnabled(alone < 0 || alone == i);

  enable("chkDontCompareHardlinks",
         crit(kCritContent) || crit(kCritSimilarPics) || crit(kCritSimilarAudio));
  enable("chkZeitstempelIgnorieren", crit(kCritDateA) || crit(kCritDateB));
  enable("chkIgnoreSeconds", crit(kCritDateA) || crit(kCritDateB));

  // Content: the percentage and the side-by-side buffers only without a checksum.
  const bool sideBySide = index("cboContentCompare") == kCompareSideBySide;
  for (const char* n :
       {"txtContentComparePercent", "lblContentComparePercent", "txtCompareBuffer(0)",
        "txtCompareBuffer(2)", "txtCompareBuffer(3)", "chkCompareFileEndFirst"})
    enable(n, sideBySide);
  if (sideBySide) enable("txtCompareBuffer(3)", on(QStringLiteral("chkCompareFileEndFirst")));

  // Names.
  enable("txtFileNameCompareOnlyFirstChars", index("cboFileNameCompareMethod") > 0);
  enable("txtIgnoreChars", on(QStringLiteral("chkIgnoreChars")));
  enable("txtIgnoreText", on(QStringLiteral("chkIgnoreText")));
  const bool fuzzyAllowed = !crit(kCritContent);
  enable("chkPartialFilenameCompare", fuzzyAllowed);
  const bool fuzzy = fuzzyAllowed && on(QStringLiteral("chkPartialFilenameCompare"));
  enable("cboPartialFilenameCompareMethod", fuzzy);
  enable("txtPartialFilenameCompare", fuzzy);
  enable("txtPartialFileNameCompareMethodDelimiterChars",
         fuzzy && index("cboPartialFilenameCompareMethod") == 5);

  // Pictures: "24x24" only with pHash.
  if (auto* size = findChild<QComboBox*>(QStringLiteral("cboSimilarImagesCompareSize"))) {
    const int algo = index("cboSimiliarImagesAlgo");
    if (auto* model = qobject_cast<QStandardItemModel*>(size->model()))
      model->item(2)->setEnabled(OfferedThumbSizeIndex(algo, 2) == 2);
    const int offered = OfferedThumbSizeIndex(algo, size->currentIndex());
    if (offered != size->currentIndex()) size->setCurrentIndex(offered);
  }
  enable("lbFlipRotate", on(QStringLiteral("chkSearchForRotatedAndFlippedPics")));

  // Archives follow the hard-link criterion; the temporary files are deleted
  // only after a checksum or a picture hash.
  if (QWidget* archives = tabs_->widget(3)) archives->setEnabled(!crit(kCritHardlink));
  enable("chkZipDeleteTempFilesAfterCreateChecksum",
         (crit(kCritContent) && !sideBySide) || crit(kCritSimilarPics));
  enable("txtFilterGröße(2)", on(QStringLiteral("chkZipSizeFilter")));
  enable("cboFilterGrößeTyp(2)", on(QStringLiteral("chkZipSizeFilter")));

  // Filters.
  const bool size1 = on(QString::fromUtf8("chkOptFilterGröße"));
  const bool size2 = size1 && on(QString::fromUtf8("chkOptFilterGröße2"));
  enable("chkOptFilterGröße2", size1);
  for (const char* n : {"cboFilterGröße(0)", "txtFilterGröße(0)", "cboFilterGrößeTyp(0)"})
    enable(n, size1);
  for (const char* n : {"cboFilterGröße(1)", "txtFilterGröße(1)", "cboFilterGrößeTyp(1)"})
    enable(n, size2);

  // Options.
  enable("txtMaxDupCount", on(QStringLiteral("chkCancelSearchMaxDupCount")));
  enable("txtLogStatisticMinutes", on(QStringLiteral("chkLogStatistic")));
  enable("txtShowAudioProperties", on(QStringLiteral("chkShowAudioProperties")));
  enable("txtSoundFile", on(QStringLiteral("chkPlaySoundAfterSearch")));
  enable("cmdSoundFile", on(QStringLiteral("chkPlaySoundAfterSearch")));
}

void MainWindow::ContentMethodChosen(int index) {
  // A checksum compares whole files: no end block, no percentage.
  if (index == kCompareSideBySide) return;
  findChild<QCheckBox*>(QStringLiteral("chkCompareFileEndFirst"))->setChecked(false);
  findChild<QLineEdit*>(QStringLiteral("txtContentComparePercent"))->setText(QStringLiteral("100"));
  UpdateEnabled();
}

void MainWindow::MendField(const char* control, std::string (*mend)(std::string_view)) {
  auto* e = findChild<QLineEdit*>(QString::fromUtf8(control));
  const QString mended = QString::fromStdString(mend(e->text().toStdString()));
  if (mended != e->text()) e->setText(mended);
}

void MainWindow::MendCompareBuffers() {
  std::array<QLineEdit*, 4> edits{};
  std::array<std::string, 4> fields;
  for (int i = 0; i < 4; ++i) {
    edits[i] = findChild<QLineEdit*>(QStringLiteral("txtCompareBuffer(%1)").arg(i));
    fields[i] = edits[i]->text().toStdString();
  }
  const std::array<std::string, 4> mended = MendCompareBufferFields(fields);
  for (int i = 0; i < 4; ++i)
    if (mended[i] != fields[i]) edits[i]->setText(QString::fromStdString(mended[i]));
}

void MainWindow::RewriteFilters(void (*rewrite)(SettingsStore&)) {
  StoreControls();
  rewrite(Settings());
  LoadFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFiF")), "DupFilter");
  LoadFilterRows(findChild<QListWidget*>(QStringLiteral("lvwFoF")), "DupFilterOrdner");
}

void MainWindow::AddSourceFolder(const QString& path) {
  std::vector<SourceFolderRow> rows = SourceRows();
  Folder_Add_to_List(rows, path.toStdString());
  LoadSourceRows(rows);
}

void MainWindow::AddFolderByDialog() {
  const QString dir = QFileDialog::getExistingDirectory(this, T(txt::T9700));
  if (!dir.isEmpty()) AddSourceFolder(dir);
}

void MainWindow::RemoveSelectedFolders() {
  qDeleteAll(sources_->selectedItems());
}

void MainWindow::AddFilterRow(QListWidget* list) {
  bool ok = false;
  const QString text = QInputDialog::getText(this, QStringLiteral("Kelvor"), T(txt::T9702),
                                             QLineEdit::Normal, QString(), &ok);
  if (!ok || text.trimmed().isEmpty()) return;
  auto* item = new QListWidgetItem(text.trimmed(), list);
  item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable |
                 Qt::ItemIsEditable);
  item->setCheckState(Qt::Checked);
}

bool MainWindow::SaveSettings() {
  StoreControls();
  SettingsStore& s = Settings();
  s.Set(kWindowSection, "Geometry", saveGeometry().toBase64().toStdString());
  s.SetInt(kWindowSection, "Tab", tabs_->currentIndex());
  std::string error;
  if (EinstellungenSpeichern(s, Paths().settingsFile, &error, session_->Texts())) return true;
  prompt_.Message(error, MessageIcon::Exclamation);
  return false;
}

void MainWindow::StartSearchForDups() {
  // The search reads the settings as the window shows them now, and so does
  // the next start of the program.
  SaveSettings();
  const Preparation& p = session_->Prepare(SourceRows());
  if (p.verdict != SessionVerdict::Ready) {
    ShowRejection(p.messages);
    return;
  }
  OpenResults();
}

void MainWindow::ShowRejection(const std::vector<std::string>& messages) {
  const TextCatalog& texts = session_->Texts();
  for (const std::string& m : messages) {
    // The page at fault comes to the front before the message.
    const bool criteria = m == texts.Get(txt::T3626) ||
                          m.rfind(texts.Get(txt::T5140, {""}), 0) == 0 ||
                          m == texts.Get(txt::T9540);
    tabs_->setCurrentIndex(criteria ? 1 : 0);
    prompt_.Message(m, MessageIcon::Exclamation);
  }
}

void MainWindow::OpenResults() {
  auto* results = new SearchWindow;
  results->setAttribute(Qt::WA_DeleteOnClose);
  results_.erase(std::remove_if(results_.begin(), results_.end(),
                                [](const QPointer<SearchWindow>& w) { return w.isNull(); }),
                 results_.end());
  results_.push_back(results);
  connect(results, &QObject::destroyed, this, [this] {
    show();
    raise();
    activateWindow();
  });
  startedRows_ = session_->Rows();
  hide();
  results->show();
  results->StartSearch(std::move(session_));
  InstallFileWindows(*results);
  // The window's next search gets a session of its own, read from the
  // settings saved just now.
  session_ = std::make_unique<SearchSession>(options_, &prompt_);
  emit searchStarted(results);
}

bool MainWindow::OpenWithCommandLine(std::vector<std::string>* unknown) {
  std::string whole;
  for (const std::string& item : commandLine_) whole += (whole.empty() ? "" : " ") + item;
  if (whole.empty() || whole == "-TL" || whole == "-RESTART") {
    show();
    return true;
  }
  const Preparation& p = session_->Prepare();
  if (p.verdict == SessionVerdict::BadCommandLine) {
    if (unknown) *unknown = p.unknownItems;
    return false;
  }
  // The items changed the settings and the rows: the window shows them.
  LoadControls();
  LoadSourceRows(session_->Rows());
  UpdateEnabled();
  if (p.verdict == SessionVerdict::Ready) {
    SaveSettings();
    OpenResults();
    return true;
  }
  show();
  const std::vector<std::string> messages = p.messages;
  QTimer::singleShot(0, this, [this, messages] { ShowRejection(messages); });
  return true;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  SaveSettings();
  event->accept();
  emit closed();
}

}  // namespace kelvor::gui
