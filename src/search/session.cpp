#include "search/session.h"

#include <utility>

#include "compare/checksum_cache.h"
#include "data/file_system.h"
#include "frame/log.h"
#include "search/command_line.h"
#include "search/options.h"

namespace kelvor {

namespace {

StartupOptions StartupOptionsOf(const SessionOptions& o) {
  StartupOptions so;
  so.executable = o.executable;
  so.dataDirOption = o.dataDir;
  so.takeInstanceLock = o.takeInstanceLock;
  so.restartWait = o.restartWait;
  for (const auto& item : o.items)
    if (item == "-RESTART") so.restart = true;
  return so;
}

}  // namespace

SearchSession::SearchSession(SessionOptions options, Prompt* startupPrompt)
    : options_(std::move(options)),
      start_(RunStartup(StartupOptionsOf(options_), options_.env, startupPrompt)),
      logger_(std::make_unique<Logger>(start_.paths.generalLog, start_.paths.runLog,
                                       start_.paths.lastSearchLog)),
      emptyResult_(&start_.texts) {
  // Old entries leave the general log as the retention setting says.
  LogfileDEL(start_.settings, *logger_, start_.texts);
}

SearchSession::~SearchSession() = default;

const Preparation& SearchSession::Prepare() {
  if (preparation_) return *preparation_;
  Preparation& p = preparation_.emplace();
  SettingsStore& settings = start_.settings;
  const TextCatalog& texts = start_.texts;
  const std::filesystem::path& profiles = start_.paths.profileFolder;

  CommandLine cl = Init_Kommandozeile(options_.items, settings, profiles);
  if (!cl.unknown.empty()) {
    p.verdict = SessionVerdict::BadCommandLine;
    p.unknownItems = cl.unknown;
    return p;
  }
  std::string profileError;
  rows_ = ApplyCommandLine(cl, settings, profiles, texts, &profileError);
  if (!profileError.empty()) p.messages.push_back(std::move(profileError));
  return StartCheck(p);
}

const Preparation& SearchSession::Prepare(std::vector<SourceFolderRow> rows) {
  rows_ = std::move(rows);
  return StartCheck(preparation_.emplace());
}

const Preparation& SearchSession::StartCheck(Preparation& p) {
  std::string rejected = StartSearchForDups(start_.settings, rows_, start_.texts);
  // Similar music measures files through fpcalc: without it there is nothing
  // to measure by.
  if (rejected.empty() && !start_.fpcalc &&
      start_.settings.GetBool("DupVerz", "Suchkriterien" + std::to_string(kCritSimilarAudio)))
    rejected = start_.texts.Get(txt::T9540);
  if (!rejected.empty()) {
    p.verdict = SessionVerdict::Rejected;
    p.messages.push_back(std::move(rejected));
  } else {
    p.verdict = SessionVerdict::Ready;
  }
  runPending_ = p.verdict == SessionVerdict::Ready;
  return p;
}

RunOutcome SearchSession::Run(ProgressSink& progress, Prompt& prompt, RunState& run) {
  RunOutcome outcome;
  if (!runPending_) return outcome;
  runPending_ = false;
  hasResult_ = false;
  engine_.reset();
  loaded_.reset();
  loadedInfo_.reset();
  // A new search has never been saved.
  fileState_.ResultFileName.clear();
  SearchOptions options = Init_Variablen(start_.settings, start_.texts);
  if (start_.fpcalc) options.FingerprintTool = start_.fpcalc->string();
  if (options_.noChecksumCache) options.Content.checksumCache = false;
  if (options_.clearChecksumCache) {
    // Once per session: a later search of the same window builds on the
    // cache this one filled.
    options_.clearChecksumCache = false;
    const std::filesystem::path cache = ChecksumCachePath(start_.paths);
    std::string why;
    if (ChecksumCache::Clear(cache, &why))
      logger_->LogProtokoll(start_.texts.Get(txt::T9106, {cache.string()}));
    else
      logger_->LogProtokoll(start_.texts.Get(txt::T9105, {cache.string(), why}), true);
  }
  engine_ = std::make_unique<SearchEngine>(SearchContext{std::move(options), start_.texts, *logger_,
                                                         progress, prompt, run, &start_.paths});
  outcome.ran = engine_->Search_Start(rows_);
  hasResult_ = outcome.ran;
  // The run's log joins the general log and becomes lastsearch.txt, also
  // after a search that could not start.
  std::string logError;
  if (!logger_->SaveTmpLog(&logError)) outcome.logError = std::move(logError);
  outcome.stoppedByUser = run.StopReason.load() == kStopUser;
  // The automatic save, after the log is complete so that its copy is too.
  if (hasResult_ && !outcome.stoppedByUser && start_.settings.GetBool("DupVerz", "SaveReport"))
    outcome.autoSave = SaveResult({}, false, true, progress, prompt, run);
  return outcome;
}

bool SearchSession::HasResult() const {
  return hasResult_;
}

const ResultModel& SearchSession::Result() const {
  if (!HasResult()) return emptyResult_;
  return loaded_ ? *loaded_ : engine_->Result();
}

ResultModel* SearchSession::EditResult() {
  if (!HasResult()) return nullptr;
  return loaded_ ? loaded_.get() : &engine_->Result();
}

std::unique_ptr<ResultModel> SearchSession::TakeResult() {
  if (!hasResult_) return nullptr;
  hasResult_ = false;
  if (loaded_) return std::move(loaded_);
  return engine_->TakeResult();
}

ResultFileEnv SearchSession::FileEnv(ProgressSink& progress, Prompt& prompt, RunState& run) const {
  return ResultFileEnv{start_.paths.dataSubFolder,
                       start_.paths.tempFolder,
                       start_.paths.lastSearchLog,
                       start_.texts,
                       prompt,
                       progress,
                       run};
}

SavedResultInfo SearchSession::InfoForSave(const ResultModel& result) const {
  const SettingsStore& s = start_.settings;
  SavedResultInfo info;
  if (loaded_ && loadedInfo_) {
    // A loaded result keeps the folders and criteria of its own search.
    info = *loadedInfo_;
  } else {
    for (const std::string& folder : result.Options().SourceFolders) {
      SavedSource src;
      src.path = folder;
      for (const SourceFolderRow& row : rows_)
        if (NormalizeSourcePath(row.path) == folder) src.protectedFlag = row.protect ? 1 : 0;
      FileIdentity id;
      if (xFolderIdentity(folder.empty() ? std::string("/") : folder, &id))
        src.serial = static_cast<std::int32_t>(static_cast<std::uint32_t>(id.device));
      info.Context.push_back(std::move(src));
    }
    for (int i = 0; i < kCriterionCount; ++i)
      info.SearchCriteria += s.GetBool("DupVerz", "Suchkriterien" + std::to_string(i)) ? '1' : '0';
    info.Unicode = s.GetBool("DupVerz", "UnicodeSupport");
  }
  info.GroupID = result.Options().GroupTitleMode;
  info.Tag = result.Description();
  info.SearchCriteriaDesc = GetSearchDescription(s, start_.texts);
  return info;
}

SaveOutcome SearchSession::SaveResult(std::string_view name, bool askName, bool autoSave,
                                      ProgressSink& progress, Prompt& prompt, RunState& run) {
  if (!HasResult()) return SaveOutcome{};
  if (!name.empty()) fileState_.ResultFileName = std::string(name) + std::string(kResultRowsExt);
  const ResultModel& result = Result();
  SaveOutcome out = Report_Save(result, InfoForSave(result), askName, autoSave, fileState_,
                                FileEnv(progress, prompt, run));
  if (out.verdict == SaveVerdict::Saved)
    logger_->LogProtokoll(start_.texts.Get(txt::T9614, {out.name}));
  else if (out.verdict == SaveVerdict::Failed)
    logger_->LogProtokoll(out.message, true);
  return out;
}

std::string SearchSession::LoadResult(std::string_view name, ProgressSink& progress, Prompt& prompt,
                                      RunState& run) {
  const ResultFileEnv env = FileEnv(progress, prompt, run);
  if (std::string bad = Searchresult_Check(env.dataFolder, name, start_.texts); !bad.empty())
    return bad;
  // The window's model options as the settings give them now; the grouping
  // and the source folders come from the saved result.
  const SettingsStore& s = start_.settings;
  ResultOptions ro;
  ro.DateFormat = s.Get("DupVerz", "DateFormat3");
  ro.IgnoreTime = s.GetBool("DupVerz", "IgnoreTime");
  ro.IgnoreSeconds = s.GetBool("DupVerz", "IgnoreSeconds");
  ro.Colors = LoadResultColors(s);
  const auto sizeFormat = static_cast<std::int32_t>(s.GetInt("Optionen", "FormatSize"));
  ResultFileState state = fileState_;
  state.ResultFileName = std::string(name) + std::string(kResultRowsExt);
  LoadOutcome out = Report_Laden(state, std::move(ro), sizeFormat, env);
  if (!out.model) {
    if (!out.error.empty()) logger_->LogProtokoll(out.error, true);
    return out.error;
  }
  // Load_SearchResult: a result saved with Unicode support only ever switches
  // it on.
  if (out.info.Unicode && !start_.settings.GetBool("DupVerz", "UnicodeSupport"))
    start_.settings.SetBool("DupVerz", "UnicodeSupport", true);
  // What the criteria made equal for whole groups, as the search had it.
  const std::string& c = out.info.SearchCriteria;
  auto crit = [&](int i) { return static_cast<std::size_t>(i) < c.size() && c[i] != '0'; };
  ResultOptions o = out.model->Options();
  o.GroupSize = crit(kCritSize) || crit(kCritContent);
  o.GroupDateA = crit(kCritDateA);
  o.GroupDateB = crit(kCritDateB);
  o.GroupAttributes = crit(kCritAttributes);
  o.CriterionHardlink = crit(kCritHardlink);
  out.model->SetOptions(std::move(o));
  fileState_ = state;
  engine_.reset();
  loaded_ = std::move(out.model);
  loadedInfo_ = std::move(out.info);
  hasResult_ = true;
  runPending_ = false;
  return {};
}

const SearchStatistics& SearchSession::Stats() const {
  return engine_ ? engine_->Stats() : emptyStats_;
}

double SearchSession::ElapsedSeconds() const {
  return engine_ ? engine_->ElapsedSeconds() : 0.0;
}

const std::string& SearchSession::ClosingMessage() const {
  return engine_ ? engine_->ClosingMessage() : noMessage_;
}

}  // namespace kelvor
