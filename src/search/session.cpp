#include "search/session.h"

#include <utility>

#include "compare/checksum_cache.h"
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
  return outcome;
}

bool SearchSession::HasResult() const {
  return hasResult_;
}

const ResultModel& SearchSession::Result() const {
  return HasResult() ? engine_->Result() : emptyResult_;
}

std::unique_ptr<ResultModel> SearchSession::TakeResult() {
  if (!hasResult_) return nullptr;
  hasResult_ = false;
  return engine_->TakeResult();
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
