// Saved search results: Report_Save, Report_Laden and the list of saved
// results. See result_file.h for the files and the order of the steps.

#include "results/result_file.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <unordered_map>

#include "data/file_system.h"
#include "data/file_write.h"
#include "frame/formats.h"
#include "frame/ini_file.h"
#include "frame/long_operation.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/text_file.h"
#include "frame/texts.h"
#include "results/result_branch.h"

namespace kelvor {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kSection = "General";
// Saving refreshes its progress every 1.5 seconds, loading every second.
constexpr std::chrono::milliseconds kSaveRefresh{1500};
constexpr std::chrono::milliseconds kLoadRefresh{1000};
constexpr std::string_view kTempPrefix = "KVS";

std::string FileOf(const fs::path& folder, std::string_view base, std::string_view ext) {
  std::string p = folder.string();
  if (p.empty() || p.back() != '/') p += '/';
  p += base;
  p += ext;
  return p;
}

// "<name>.ksr4a" -> "<name>".
std::string BaseName(std::string_view fileName) {
  if (fileName.size() > kResultRowsExt.size() &&
      fileName.substr(fileName.size() - kResultRowsExt.size()) == kResultRowsExt)
    fileName.remove_suffix(kResultRowsExt.size());
  return std::string(fileName);
}

std::string Trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return std::string(s);
}

// One line of a settings file holds no line break.
std::string OneLine(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c == '\r' || c == '\n') c = ' ';
  return out;
}

// "<elapsed> | <percent>% | <done>/<total> | <remaining>".
std::string ProgressText(double elapsed, std::int64_t done, std::int64_t total) {
  const std::int64_t pct = total > 0 ? done * 100 / total : 0;
  std::string remaining = "?";
  if (elapsed >= 1) {
    const double rest =
        elapsed / static_cast<double>(done + 1) * static_cast<double>(total) - elapsed;
    remaining = FormatElapsed(static_cast<long long>(std::max(0.0, rest)));
  }
  return FormatElapsed(static_cast<long long>(elapsed)) + " | " + std::to_string(pct) + "% | " +
         std::to_string(done) + "/" + std::to_string(total) + " | " + remaining;
}

// A copy of `from` at `to`, complete or not at all.
bool CopyFileReplace(const std::string& from, const std::string& to, std::string* error) {
  std::string folder = xGetPath(to);
  const std::string tmp = xGetTempFileNameWIDE(folder.empty() ? "." : folder, ".KVC", error);
  if (tmp.empty()) return false;
  if (!xCopyFileInto(from, tmp, error) || !xMoveFileReplace(tmp, to, error)) {
    xDeleteFile_W(tmp);
    return false;
  }
  return true;
}

// Writes `bytes` into a new temporary file in `folder`; its path, or "".
std::string WriteTemp(const std::string& folder, std::string_view bytes, std::string* error) {
  const std::string tmp = xGetTempFileNameWIDE(folder, kTempPrefix, error);
  if (tmp.empty()) return {};
  OutFile out;
  if (!out.Open(tmp, error)) {
    xDeleteFile_W(tmp);
    return {};
  }
  out.Write(bytes);
  if (!out.Close()) {
    *error = out.Error();
    xDeleteFile_W(tmp);
    return {};
  }
  return tmp;
}

std::string IniText(const ResultModel& model, const SavedResultInfo& info) {
  IniDocument doc;
  IniSection& s = doc.sections.emplace_back();
  s.name = std::string(kSection);
  auto put = [&](std::string key, std::string value) {
    s.entries.emplace_back(std::move(key), OneLine(value));
  };
  put("DupCount", std::to_string(model.DupCount()));
  put("DupCountSelected", std::to_string(model.DupCountSelected()));
  put("GroupID", std::to_string(info.GroupID));
  if (info.writeContext) {
    put("ContextCount", std::to_string(info.Context.size()));
    for (std::size_t i = 0; i < info.Context.size(); ++i) {
      const std::string n = std::to_string(i + 1);
      put("Context" + n, info.Context[i].path);
      put("ContextA" + n, std::to_string(info.Context[i].protectedFlag));
      put("ContextS" + n, std::to_string(info.Context[i].serial));
    }
  }
  put("ContextQserials", info.ContextQserials ? "1" : "0");
  put("Tag", info.Tag);
  put("SearchCriteria", info.SearchCriteria);
  put("FilesizeAll", std::to_string(model.FilesizeAll()));
  put("FilesizeSelected", std::to_string(model.FilesizeSelected()));
  put("ListCount", std::to_string(model.GroupCount()));
  put("SearchCriteriaDesc", info.SearchCriteriaDesc);
  put("Unicode", info.Unicode ? "1" : "0");
  put("v", std::string(kResultVersion));
  return SerializeIni(doc);
}

// The keys of the section "General", by their folded names.
using IniKeys = std::unordered_map<std::string, std::string>;

bool ReadKeys(const fs::path& file, IniKeys* keys, const TextCatalog& texts, std::string* error) {
  IniDocument doc;
  if (!ReadIniFile(file, &doc, error, texts)) return false;
  for (const IniSection& s : doc.sections) {
    if (!SameName(s.name, kSection)) continue;
    for (const auto& [k, v] : s.entries) keys->emplace(FoldName(k), v);
  }
  return true;
}

const std::string* Find(const IniKeys& keys, std::string_view key) {
  auto it = keys.find(FoldName(key));
  return it == keys.end() ? nullptr : &it->second;
}

// A whole number: optional sign and digits only, within [lo, hi].
bool StrictInt(std::string_view s, std::int64_t lo, std::int64_t hi, std::int64_t* out) {
  const std::string t = Trimmed(s);
  if (t.empty()) return false;
  std::size_t i = 0;
  bool neg = false;
  if (t[0] == '-' || t[0] == '+') {
    neg = t[0] == '-';
    i = 1;
  }
  if (i >= t.size()) return false;
  std::int64_t v = 0;
  for (; i < t.size(); ++i) {
    if (t[i] < '0' || t[i] > '9') return false;
    if (v > (INT64_MAX - (t[i] - '0')) / 10) return false;
    v = v * 10 + (t[i] - '0');
  }
  if (neg) v = -v;
  if (v < lo || v > hi) return false;
  *out = v;
  return true;
}

// The currency counters: digits up to the first other character (a decimal
// part is cut off); false only when the digits do not fit.
bool CurrencyBytes(std::string_view s, std::int64_t* out) {
  std::string t = Trimmed(s);
  std::size_t i = 0;
  bool neg = false;
  if (!t.empty() && (t[0] == '-' || t[0] == '+')) {
    neg = t[0] == '-';
    i = 1;
  }
  std::int64_t v = 0;
  // Fixed point with four decimals holds at most this many whole units.
  constexpr std::int64_t kMax = INT64_MAX / 10000;
  for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i) {
    if (v > (kMax - (t[i] - '0')) / 10) return false;
    v = v * 10 + (t[i] - '0');
  }
  *out = neg ? -v : v;
  return true;
}

// Val: the leading number, 0 when there is none.
std::int64_t Val(std::string_view s) {
  std::int64_t v = 0;
  CurrencyBytes(s, &v);
  return v;
}

std::int32_t CurrentSerial(const std::string& folder) {
  FileIdentity id;
  if (!xFolderIdentity(folder, &id)) return 0;
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(id.device));
}

}  // namespace

// ----- names ------------------------------------------------------------------------

bool IsValidResultName(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return false;
  return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string AutoSaveName(const fs::path& dataFolder) {
  for (int i = 0;; ++i) {
    std::string n = std::to_string(i);
    if (n.size() < 3) n.insert(0, 3 - n.size(), '0');
    const std::string name = "AutoSave" + n;
    if (!xExistFile_W(FileOf(dataFolder, name, kResultRowsExt))) return name;
  }
}

// ----- Report_Save ------------------------------------------------------------------

SaveOutcome Report_Save(const ResultModel& model, const SavedResultInfo& info, bool askName,
                        bool autoSave, ResultFileState& state, const ResultFileEnv& env) {
  SaveOutcome outcome;
  // A result of one group of one file cannot be stored.
  if (model.RowCount() < 3 || model.DupCount() == 0) return outcome;

  std::string suggested;
  if (autoSave && state.ResultFileName.empty()) {
    suggested = AutoSaveName(env.dataFolder);
    state.ResultFileName = suggested + std::string(kResultRowsExt);
  }
  if (state.ResultFileName.empty() || askName) {
    if (suggested.empty() && !state.ResultFileName.empty())
      suggested = BaseName(state.ResultFileName);
    for (;;) {
      std::optional<std::string> reply = env.prompt.Input(env.texts.Get(txt::T5204), suggested);
      if (!reply || Trimmed(*reply).empty()) {
        outcome.verdict = SaveVerdict::Cancelled;
        return outcome;
      }
      std::string name = BaseName(Trimmed(*reply));
      if (!IsValidResultName(name)) {
        suggested.clear();
        continue;
      }
      if (xExistFile_W(FileOf(env.dataFolder, name, kResultRowsExt)) &&
          !env.prompt.AskYesNo(env.texts.Get(txt::T5205, {name}))) {
        suggested = name;
        continue;
      }
      state.ResultFileName = name + std::string(kResultRowsExt);
      break;
    }
  }
  const std::string base = BaseName(state.ResultFileName);
  outcome.name = base;

  env.progress.SetLabel(Label::StatusBar, env.texts.Get(txt::T3736));
  auto fail = [&](const std::string& why) {
    outcome.verdict = SaveVerdict::Failed;
    outcome.message = env.texts.Get(txt::T9612, {why});
    env.progress.SetLabel(Label::StatusBar, "");
    env.progress.ProgressBar(0);
    return outcome;
  };

  // The rows, streamed branch by branch into a temporary file.
  std::string error;
  const std::string tmpRows = xGetTempFileNameWIDE(env.tempFolder.string(), kTempPrefix, &error);
  if (tmpRows.empty()) return fail(env.tempFolder.string() + " " + error);
  OutFile out;
  if (!out.Open(tmpRows, &error)) {
    xDeleteFile_W(tmpRows);
    return fail(tmpRows + " " + error);
  }
  const std::uint32_t stamp =
      ResultStamp(model.DupCount(), model.DupCountSelected(), model.FilesizeAll(),
                  model.FilesizeSelected(), model.GroupCount(), info.GroupID);
  const std::int64_t total = model.GroupCount();
  std::int64_t done = 0;
  const auto start = Clock::now();
  LongOperation pacing(env.run, kSaveRefresh);
  bool stopped = false;
  std::string record;
  BranchTexts branchTexts;
  model.ForEachGroup([&](RowRef g) {
    if (!pacing.Step([&] {
          const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
          env.progress.SetLabel(Label::StatusBar, ProgressText(elapsed, done, total));
          env.progress.ProgressBar(total > 0 ? static_cast<int>(done * 100 / total) : 0);
        })) {
      stopped = true;
      return false;
    }
    record.clear();
    model.SaveBranch(record, g, stamp, branchTexts);
    ++done;
    return out.Write(record);
  });
  if (stopped) {
    // The stop is taken: the next long operation starts afresh.
    env.run.SearchState.store(kRunning);
    out.Discard();
    outcome.verdict = SaveVerdict::Stopped;
    env.progress.SetLabel(Label::StatusBar, "");
    return outcome;
  }
  if (!out.Close()) {
    const std::string why = out.Error();
    out.Discard();
    return fail(why);
  }

  // The .ini4a and the log copy, complete before anything old goes.
  const std::string tmpIni = WriteTemp(env.tempFolder.string(), IniText(model, info), &error);
  if (tmpIni.empty()) {
    xDeleteFile_W(tmpRows);
    return fail(error);
  }
  std::string tmpLog;
  if (xExistFile_W(env.searchLog.string())) {
    tmpLog = xGetTempFileNameWIDE(env.tempFolder.string(), kTempPrefix, &error);
    if (tmpLog.empty() || !xCopyFileInto(env.searchLog.string(), tmpLog, &error)) {
      xDeleteFile_W(tmpRows);
      xDeleteFile_W(tmpIni);
      if (!tmpLog.empty()) xDeleteFile_W(tmpLog);
      return fail(error);
    }
  }

  const std::string rowsFile = FileOf(env.dataFolder, base, kResultRowsExt);
  const std::string iniFile = FileOf(env.dataFolder, base, kResultIniExt);
  const std::string logFile = FileOf(env.dataFolder, base, kResultLogExt);
  if (!xMoveFileReplace(tmpRows, rowsFile, &error)) {
    xDeleteFile_W(tmpRows);
    xDeleteFile_W(tmpIni);
    if (!tmpLog.empty()) xDeleteFile_W(tmpLog);
    return fail(rowsFile + " " + error);
  }
  if (!xMoveFileReplace(tmpIni, iniFile, &error)) {
    // New rows with old counters: the stamp keeps them from being loaded
    // together; say so.
    xDeleteFile_W(tmpIni);
    if (!tmpLog.empty()) xDeleteFile_W(tmpLog);
    return fail(iniFile + " " + error);
  }
  if (!tmpLog.empty()) {
    if (!xMoveFileReplace(tmpLog, logFile, &error)) xDeleteFile_W(tmpLog);
  } else {
    xDeleteFile_W(logFile);
  }
  state.ResultListChanged = true;
  env.progress.SetLabel(Label::StatusBar, "");
  env.progress.ProgressBar(0);
  outcome.verdict = SaveVerdict::Saved;
  return outcome;
}

// ----- the .ini4a -------------------------------------------------------------------

bool ReadResultIni(const fs::path& iniFile, SavedResultInfo* info, const TextCatalog& texts,
                   std::string* error) {
  IniKeys keys;
  if (!ReadKeys(iniFile, &keys, texts, error)) return false;
  const std::string ini = iniFile.string();
  const std::string* v = Find(keys, "v");
  if (!v || *v != kResultVersion) {
    *error = texts.Get(txt::T9601);
    return false;
  }
  auto missing = [&](std::string_view key) {
    *error = texts.Get(txt::T9608, {ini, key});
    return false;
  };
  auto invalid = [&](std::string_view key, std::string_view value) {
    *error = texts.Get(txt::T9609, {ini, key, value});
    return false;
  };
  // The counters and the group count tie the rows to this file: they must
  // be there and be numbers.
  std::int64_t n = 0;
  struct Counter {
    std::string_view key;
    std::int64_t lo, hi;
  };
  for (const Counter& c :
       {Counter{"DupCount", 0, INT32_MAX}, Counter{"DupCountSelected", 0, INT32_MAX},
        Counter{"ListCount", 0, INT32_MAX}}) {
    const std::string* s = Find(keys, c.key);
    if (!s) return missing(c.key);
    if (!StrictInt(*s, c.lo, c.hi, &n)) return invalid(c.key, *s);
    if (c.key == "DupCount") info->DupCount = static_cast<std::int32_t>(n);
    if (c.key == "DupCountSelected") info->DupCountSelected = static_cast<std::int32_t>(n);
    if (c.key == "ListCount") info->ListCount = n;
  }
  if (info->DupCountSelected > info->DupCount)
    return invalid("DupCountSelected", *Find(keys, "DupCountSelected"));
  for (std::string_view key : {"FilesizeAll", "FilesizeSelected"}) {
    const std::string* s = Find(keys, key);
    if (!s) return missing(key);
    std::int64_t bytes = 0;
    if (!CurrencyBytes(*s, &bytes) || bytes < 0) return invalid(key, *s);
    (key == "FilesizeAll" ? info->FilesizeAll : info->FilesizeSelected) = bytes;
  }
  if (const std::string* s = Find(keys, "GroupID")) {
    if (!StrictInt(*s, INT32_MIN, INT32_MAX, &n)) return invalid("GroupID", *s);
    info->GroupID = static_cast<std::int32_t>(n);
  }
  // The source folders: never more than the file has keys for.
  info->Context.clear();
  if (const std::string* s = Find(keys, "ContextCount")) {
    if (!StrictInt(*s, 0, static_cast<std::int64_t>(keys.size()), &n))
      return invalid("ContextCount", *s);
    info->Context.resize(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < info->Context.size(); ++i) {
      const std::string nr = std::to_string(i + 1);
      SavedSource& src = info->Context[i];
      if (const std::string* p = Find(keys, "Context" + nr)) src.path = *p;
      if (const std::string* a = Find(keys, "ContextA" + nr))
        src.protectedFlag = static_cast<std::int32_t>(std::clamp<std::int64_t>(Val(*a), 0, 255));
      if (const std::string* ser = Find(keys, "ContextS" + nr))
        src.serial = static_cast<std::int32_t>(static_cast<std::uint32_t>(Val(*ser)));
    }
  }
  if (const std::string* s = Find(keys, "ContextQserials")) info->ContextQserials = Val(*s) != 0;
  if (const std::string* s = Find(keys, "Tag")) info->Tag = *s;
  if (const std::string* s = Find(keys, "SearchCriteria")) {
    // One digit per criterion: anything else would shift every later one.
    for (char c : *s)
      if (c < '0' || c > '9') return invalid("SearchCriteria", *s);
    info->SearchCriteria = *s;
  }
  if (const std::string* s = Find(keys, "SearchCriteriaDesc")) info->SearchCriteriaDesc = *s;
  info->Unicode = false;
  if (const std::string* s = Find(keys, "Unicode")) info->Unicode = Trimmed(*s) == "1";
  return true;
}

std::string Searchresult_Check(const fs::path& dataFolder, std::string_view name,
                               const TextCatalog& texts) {
  const std::string rows = FileOf(dataFolder, BaseName(name), kResultRowsExt);
  const std::string ini = FileOf(dataFolder, BaseName(name), kResultIniExt);
  std::string why;
  if (!IsValidResultName(BaseName(name)) || !xExistFile_W(rows)) {
    why = texts.Get(txt::T9600, {rows});
  } else if (!xExistFile_W(ini)) {
    why = texts.Get(txt::T9600, {ini});
  } else {
    IniKeys keys;
    std::string err;
    const std::string* v = nullptr;
    if (!ReadKeys(ini, &keys, texts, &err)) {
      why = err;
    } else if (!(v = Find(keys, "v")) || *v != kResultVersion) {
      why = texts.Get(txt::T9601);
    }
  }
  return why.empty() ? std::string() : texts.Get(txt::T3938, {why});
}

// ----- Report_Laden -----------------------------------------------------------------

LoadOutcome Report_Laden(ResultFileState& state, ResultOptions options, std::int32_t sizeFormat,
                         const ResultFileEnv& env) {
  LoadOutcome outcome;
  const TextCatalog& texts = env.texts;
  const std::string base = BaseName(state.ResultFileName);
  state.ResultListChanged = true;
  auto refuse = [&](const std::string& why) {
    outcome.model.reset();
    outcome.error = texts.Get(txt::T3938, {why});
    env.progress.SetLabel(Label::StatusBar, "");
    env.progress.ProgressBar(0);
    return std::move(outcome);
  };
  if (std::string bad = Searchresult_Check(env.dataFolder, base, texts); !bad.empty()) {
    outcome.error = std::move(bad);
    return outcome;
  }
  const std::string rowsFile = FileOf(env.dataFolder, base, kResultRowsExt);
  const std::string iniFile = FileOf(env.dataFolder, base, kResultIniExt);
  const std::string logFile = FileOf(env.dataFolder, base, kResultLogExt);

  env.progress.SetLabel(Label::StatusBar, texts.Get(txt::T3737));
  SavedResultInfo& info = outcome.info;
  std::string error;
  if (!ReadResultIni(iniFile, &info, texts, &error)) return refuse(error);

  // Source serials are trusted only for protected folders; the others are
  // taken from the folder as it is now.
  options.SourceFolders.clear();
  for (SavedSource& s : info.Context) {
    if (s.protectedFlag == 0) s.serial = CurrentSerial(s.path);
    options.SourceFolders.push_back(s.path);
  }
  options.GroupTitleMode = info.GroupID;

  // The rows are read from a copy: the saved file is never held open.
  const std::string copy = xGetTempFileNameWIDE(env.tempFolder.string(), kTempPrefix, &error);
  if (copy.empty()) return refuse(env.tempFolder.string() + " " + error);
  struct RemoveCopy {
    std::string path;
    ~RemoveCopy() { xDeleteFile_W(path); }
  } removeCopy{copy};
  if (!xCopyFileInto(rowsFile, copy, &error, false)) return refuse(rowsFile + " " + error);
  ReadFile in;
  if (!in.Open(copy, true, &error)) return refuse(rowsFile + " " + error);
  const std::int64_t fileSize = in.Size(&error);
  const BranchFiles names{rowsFile, iniFile};
  // Every record takes at least its header: a count beyond that cannot be.
  if (info.ListCount > fileSize / static_cast<std::int64_t>(kBranchHeaderSize)) {
    return refuse(texts.Get(txt::T9607, {iniFile, std::to_string(info.ListCount), rowsFile,
                                         "< " + std::to_string(info.ListCount)}));
  }

  auto model = std::make_unique<ResultModel>(&texts);
  model->SetOptions(options);
  model->Report_Create_Root_Node();
  model->SetDescription(info.SearchCriteriaDesc);
  model->SetExpanded(RowRef{}, true);

  const std::uint32_t stamp = ResultStamp(info.DupCount, info.DupCountSelected, info.FilesizeAll,
                                          info.FilesizeSelected, info.ListCount, info.GroupID);
  const auto start = Clock::now();
  LongOperation pacing(env.run, kLoadRefresh);
  std::int64_t offset = 0;
  std::string header(kBranchHeaderSize, '\0');
  std::string payload;
  BranchTexts branchTexts;
  for (std::int64_t n = 1; n <= info.ListCount; ++n) {
    if (!pacing.Step([&] {
          const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
          env.progress.SetLabel(Label::StatusBar, ProgressText(elapsed, n - 1, info.ListCount));
          env.progress.ProgressBar(static_cast<int>((n - 1) * 100 / info.ListCount));
        })) {
      env.run.SearchState.store(kRunning);
      outcome.stopped = true;
      outcome.model.reset();
      env.progress.SetLabel(Label::StatusBar, "");
      env.progress.ProgressBar(0);
      return outcome;
    }
    std::int64_t got = in.ReadAt(header.data(), header.size(), offset, &error);
    if (got < 0) return refuse(rowsFile + " " + error);
    if (got == 0) {
      return refuse(texts.Get(
          txt::T9607, {iniFile, std::to_string(info.ListCount), rowsFile, std::to_string(n - 1)}));
    }
    if (got < static_cast<std::int64_t>(kBranchHeaderSize))
      return refuse(texts.Get(txt::T9602, {rowsFile, std::to_string(n)}));
    BranchHeader h;
    if (!ReadBranchHeader(header, stamp, n, names, texts, &h, &error)) return refuse(error);
    // The stamp vouches for ListCount: room for all groups at once.
    if (n == 1) model->ReserveGroups(static_cast<int>(info.ListCount));
    payload.resize(h.length);
    got = in.ReadAt(payload.data(), payload.size(),
                    offset + static_cast<std::int64_t>(kBranchHeaderSize), &error);
    if (got < 0) return refuse(rowsFile + " " + error);
    payload.resize(static_cast<std::size_t>(got));
    if (!CheckBranchPayload(h, payload, n, names, texts, &error)) return refuse(error);
    if (!model->LoadBranch(payload, branchTexts))
      return refuse(texts.Get(txt::T9610, {rowsFile, std::to_string(n)}));
    offset += static_cast<std::int64_t>(kBranchHeaderSize) + h.length;
  }
  if (offset != fileSize) {
    // More in the file than the .ini4a counts.
    std::int64_t more = 0;
    for (std::int64_t at = offset; at + static_cast<std::int64_t>(kBranchHeaderSize) <= fileSize;
         ++more) {
      if (in.ReadAt(header.data(), header.size(), at, &error) !=
          static_cast<std::int64_t>(kBranchHeaderSize))
        break;
      std::uint32_t len = 0;
      std::memcpy(&len, header.data() + 8, 4);
      at += static_cast<std::int64_t>(kBranchHeaderSize) + len;
    }
    return refuse(
        texts.Get(txt::T9607, {iniFile, std::to_string(info.ListCount), rowsFile,
                               std::to_string(info.ListCount + std::max<std::int64_t>(more, 1))}));
  }
  in.Close();

  // The rows and the counters must agree: the counters are taken as stored.
  std::int64_t files = 0, marked = 0;
  model->ForEachGroup([&](RowRef g) {
    model->ForEachFile(g, [&](RowRef f) {
      ++files;
      if (model->IsMarked(f)) ++marked;
      if (model->HasCell(f, CellKey::thumbnailpath))
        model->SetCell(f, CellKey::thumbnailpath, std::string());
      return true;
    });
    return true;
  });
  if (files != info.DupCount || marked != info.DupCountSelected)
    return refuse(texts.Get(txt::T9611, {iniFile, rowsFile}));
  model->SetCounters(info.DupCount, info.DupCountSelected, info.FilesizeAll, info.FilesizeSelected);
  model->Report_ChangeFileSize(sizeFormat, true);
  model->ShowDupCount();

  // The log command shows the search of this result.
  if (xExistFile_W(logFile)) CopyFileReplace(logFile, env.searchLog.string(), &error);

  env.progress.SetLabel(Label::StatusBar, "");
  env.progress.ProgressBar(0);
  outcome.model = std::move(model);
  return outcome;
}

// ----- the list of saved results ----------------------------------------------------

std::vector<SavedResultLine> Init_SearchResults(const fs::path& dataFolder,
                                                const TextCatalog& texts) {
  std::vector<SavedResultLine> lines;
  const int fd = xOpenFolder(dataFolder.string());
  if (fd < 0) return lines;
  std::vector<std::string> names;
  xReadFolder(fd, nullptr, [&](const char* name, std::size_t len, unsigned char type) {
    std::string_view n(name, len);
    if (type == DT_DIR) return;
    if (n.size() > kResultRowsExt.size() &&
        n.substr(n.size() - kResultRowsExt.size()) == kResultRowsExt)
      names.emplace_back(n.substr(0, n.size() - kResultRowsExt.size()));
  });
  xCloseFd(fd);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string rows = FileOf(dataFolder, name, kResultRowsExt);
    const std::string ini = FileOf(dataFolder, name, kResultIniExt);
    if (!xExistFile_W(rows) || !xExistFile_W(ini)) continue;
    SavedResultLine line;
    line.name = name;
    IniKeys keys;
    std::string err;
    if (ReadKeys(ini, &keys, texts, &err)) {
      if (const std::string* s = Find(keys, "DupCount"))
        line.DupCount = static_cast<std::int32_t>(std::clamp<std::int64_t>(Val(*s), 0, INT32_MAX));
      if (const std::string* s = Find(keys, "SearchCriteriaDesc")) line.comment = *s;
    }
    line.DupCountText = FormatNumber(line.DupCount);
    struct stat st {};
    if (::stat(rows.c_str(), &st) == 0) {
      line.fileSize = st.st_size;
      line.fileDate = DateFromTimespec(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

bool Searchresult_Delete(const fs::path& dataFolder, std::string_view name, Prompt& prompt,
                         const TextCatalog& texts) {
  if (!IsValidResultName(name)) return false;
  if (!prompt.AskYesNo(texts.Get(txt::T3971, {name}))) return false;
  const bool rows = xDeleteFile_W(FileOf(dataFolder, name, kResultRowsExt));
  const bool ini = xDeleteFile_W(FileOf(dataFolder, name, kResultIniExt));
  return rows && ini;
}

std::optional<std::string> Searchresult_Rename(const fs::path& dataFolder, std::string_view name,
                                               Prompt& prompt, const TextCatalog& texts,
                                               std::string* error) {
  std::optional<std::string> reply = prompt.Input(texts.Get(txt::T3978), name);
  if (!reply) return std::nullopt;
  const std::string to = BaseName(Trimmed(*reply));
  if (to.empty() || to == name) return std::nullopt;
  if (!IsValidResultName(to)) {
    if (error) *error = texts.Get(txt::T9613, {name, to, "/"});
    return std::nullopt;
  }
  // A result of the new name stays as it is: nothing moves.
  for (std::string_view ext : {kResultRowsExt, kResultIniExt, kResultLogExt}) {
    const std::string target = FileOf(dataFolder, to, ext);
    struct stat st {};
    if (::lstat(target.c_str(), &st) == 0) {
      if (error) *error = texts.Get(txt::T9613, {name, to, target});
      return std::nullopt;
    }
  }
  std::string why;
  for (std::string_view ext : {kResultRowsExt, kResultIniExt, kResultLogExt}) {
    const std::string from = FileOf(dataFolder, name, ext);
    if (!xExistFile_W(from)) continue;
    if (!xMoveFileNoReplace(from, FileOf(dataFolder, to, ext), &why) && error)
      *error = texts.Get(txt::T9613, {name, to, why});
  }
  return to;
}

bool Searchresult_SetComment(const fs::path& dataFolder, std::string_view name,
                             std::string_view comment, std::string* error) {
  const std::string ini = FileOf(dataFolder, name, kResultIniExt);
  IniDocument doc;
  if (!ReadIniFile(ini, &doc, error)) return false;
  bool done = false;
  for (IniSection& s : doc.sections) {
    if (!SameName(s.name, kSection)) continue;
    for (auto& [k, v] : s.entries) {
      if (SameName(k, "SearchCriteriaDesc")) {
        v = OneLine(Trimmed(comment));
        done = true;
      }
    }
    if (!done) {
      s.entries.emplace_back("SearchCriteriaDesc", OneLine(Trimmed(comment)));
      done = true;
    }
  }
  if (!done) return false;
  std::string err;
  const std::string folder = xGetPath(ini);
  const std::string tmp = WriteTemp(folder.empty() ? "." : folder, SerializeIni(doc), &err);
  if (tmp.empty() || !xMoveFileReplace(tmp, ini, &err)) {
    if (!tmp.empty()) xDeleteFile_W(tmp);
    if (error) *error = err;
    return false;
  }
  return true;
}

std::optional<fs::path> Searchresult_LogPath(const fs::path& dataFolder, std::string_view name) {
  const std::string log = FileOf(dataFolder, name, kResultLogExt);
  if (!IsValidResultName(name) || !xExistFile_W(log)) return std::nullopt;
  return fs::path(log);
}

}  // namespace kelvor
