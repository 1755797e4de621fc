// Process_Selected_Files: the file manager's walk over the result.

#include "results/file_manager.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <utility>

#include "data/file_identity.h"
#include "data/file_ops.h"
#include "data/file_record.h"
#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/formats.h"
#include "frame/ini_file.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "results/file_actions.h"

namespace kelvor {

namespace {

constexpr std::string_view kSection = "Aktionen";

// Upper-case ASCII comparison of a token at `pos`.
bool TokenAt(std::string_view s, std::size_t pos, std::string_view token) {
  if (pos + token.size() > s.size()) return false;
  for (std::size_t i = 0; i < token.size(); ++i) {
    char c = s[pos + i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c != token[i]) return false;
  }
  return true;
}

struct DateParts {
  std::string yyyy, yy, mm, dd, hh, nn, ss;
};

DateParts PartsOf(double now) {
  DateParts p;
  p.yyyy = FormatDate(now, "yyyy");
  p.yy = p.yyyy.size() >= 2 ? p.yyyy.substr(p.yyyy.size() - 2) : p.yyyy;
  p.mm = FormatDate(now, "MM");
  p.dd = FormatDate(now, "dd");
  p.hh = FormatDate(now, "hh");
  p.nn = FormatDate(now, "nn");
  p.ss = FormatDate(now, "ss");
  return p;
}

}  // namespace

// ----- options ----------------------------------------------------------------------------

FileManagerOptions LoadFileManagerOptions(const SettingsStore& s) {
  FileManagerOptions o;
  const long long a = s.GetInt(kSection, "Aktion");
  o.Aktion = (a >= 0 && a <= 4) ? static_cast<FileAction>(a) : FileAction::Delete;
  o.GroupAction = s.GetInt(kSection, "GroupAction") == 1 ? 1 : 0;
  o.LogNoActions = s.GetBool(kSection, "LogNoActions");
  // The two link options exclude each other; a settings file that has both
  // gets the hard link, which keeps no second copy of the data either.
  if (s.GetBool(kSection, "OptionHardlink")) {
    o.Link = LinkOption::Hardlink;
  } else if (s.GetBool(kSection, "OptionReflink")) {
    o.Link = LinkOption::Reflink;
  } else if (s.GetBool(kSection, "OptionShortcut")) {
    o.Link = LinkOption::Shortcut;
  }
  o.Ordner = s.Get(kSection, "Ordner");
  o.Ordnerstruktur = s.GetBool(kSection, "Ordnerstruktur");
  o.CreateSubfolder = s.GetBool(kSection, "CreateSubfolder");
  o.CreateSubfolderText = s.Get(kSection, "CreateSubfolderText");
  o.DateienEntfernen = s.GetBool(kSection, "DateienEntfernen");
  o.GruppenEntfernen = s.GetBool(kSection, "GruppenEntfernen");
  o.SetFileSizeToZero = s.GetBool(kSection, "SetFileSizeToZero");
  o.Rename = s.Get(kSection, "Rename");
  o.DelEmptyFolders = s.GetBool(kSection, "DelEmptyFolders");
  o.SecureHint = s.GetBool(kSection, "SecureHint");
  o.IfErrorDontAskToAbort = s.GetBool(kSection, "IfErrorDontAskToAbort");
  o.IgnoreGroupsAllFilesSelected = s.GetBool(kSection, "IgnoreGroupsAllFilesSelected");
  o.CheckUnchanged = s.GetBool(kSection, "CheckUnchanged");
  o.DryRun = s.GetBool(kSection, "DryRun");
  return o;
}

bool IsFileManagerKey(std::string_view key) {
  static constexpr std::string_view kKeys[] = {"Aktion",
                                               "GroupAction",
                                               "LogNoActions",
                                               "OptionShortcut",
                                               "OptionHardlink",
                                               "Ordner",
                                               "Ordnerstruktur",
                                               "CreateSubfolder",
                                               "CreateSubfolderText",
                                               "DateienEntfernen",
                                               "GruppenEntfernen",
                                               "SetFileSizeToZero",
                                               "Rename",
                                               "DelEmptyFolders",
                                               "SecureHint",
                                               "IfErrorDontAskToAbort",
                                               "CloseFileManager",
                                               "IgnoreGroupsAllFilesSelected",
                                               "CheckUnchanged",
                                               "DryRun"};
  const std::string folded = FoldName(key);
  for (std::string_view k : kKeys) {
    if (FoldName(k) == folded) return true;
  }
  return false;
}

std::string FileActionCaption(FileAction a, const TextCatalog& t) {
  switch (a) {
    case FileAction::Delete:
      return t.Get(txt::T3858);
    case FileAction::Copy:
      return t.Get(txt::T3859);
    case FileAction::Move:
      return t.Get(txt::T3860);
    case FileAction::Trash:
      return t.Get(txt::T3956);
    case FileAction::Rename:
      return t.Get(txt::T3955);
  }
  return {};
}

std::string FormatSubfolderMask(std::string_view mask, double now) {
  const DateParts p = PartsOf(now);
  std::string out;
  bool quoted = false;
  for (std::size_t i = 0; i < mask.size();) {
    const char c = mask[i];
    if (c == '"') {
      quoted = !quoted;
      ++i;
      continue;
    }
    if (!quoted) {
      static const std::pair<std::string_view, std::string DateParts::*> kTokens[] = {
          {"YYYY", &DateParts::yyyy}, {"YY", &DateParts::yy}, {"MM", &DateParts::mm},
          {"DD", &DateParts::dd},     {"HH", &DateParts::hh}, {"NN", &DateParts::nn},
          {"SS", &DateParts::ss}};
      bool matched = false;
      for (const auto& [tok, field] : kTokens) {
        if (TokenAt(mask, i, tok)) {
          out += p.*field;
          i += tok.size();
          matched = true;
          break;
        }
      }
      if (matched) continue;
    }
    out.push_back(c);
    ++i;
  }
  return out;
}

std::string FileManagerTargetPath(const FileManagerOptions& o, double now) {
  if (!o.CreateSubfolder) return o.Ordner;
  std::string sub = FormatSubfolderMask(
      ReplaceSystemvariablen(o.CreateSubfolderText, EnvironmentVariables()), now);
  std::string out = xAddBackslash(o.Ordner) + sub;
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

std::string RenameByMask(std::string_view fileName, std::string_view mask, double now) {
  const std::string ext = xGetExtension(fileName);
  const std::string base = xGetFileNameWithoutExtension(fileName);
  const std::string dotExt = ext.empty() ? std::string() : "." + ext;
  const DateParts p = PartsOf(now);
  // One pass over the mask, so that a '%' in the file name is never read as
  // a token.
  static const std::pair<std::string_view, std::string DateParts::*> kTokens[] = {
      {"%YYYY", &DateParts::yyyy}, {"%YY", &DateParts::yy}, {"%MM", &DateParts::mm},
      {"%DD", &DateParts::dd},     {"%HH", &DateParts::hh}, {"%NN", &DateParts::nn},
      {"%SS", &DateParts::ss}};
  std::string out;
  for (std::size_t i = 0; i < mask.size();) {
    if (mask[i] == '%') {
      if (mask.substr(i, 2) == "%1") {
        out += base;
        i += 2;
        continue;
      }
      if (mask.substr(i, 2) == "%2") {
        out += dotExt;
        i += 2;
        continue;
      }
      bool matched = false;
      for (const auto& [tok, field] : kTokens) {
        if (mask.substr(i, tok.size()) == tok) {
          out += p.*field;
          i += tok.size();
          matched = true;
          break;
        }
      }
      if (matched) continue;
    }
    out.push_back(mask[i]);
    ++i;
  }
  return out;
}

// ----- the walk ---------------------------------------------------------------------------

namespace {

class FileManagerRun {
 public:
  FileManagerRun(ResultModel& model, const FileManagerOptions& o, const FileManagerContext& ctx)
      : model_(model), o_(o), ctx_(ctx), t_(ctx.texts ? *ctx.texts : model.Texts()) {}

  FileManagerReport Run();

 private:
  struct Group {
    RowRef row;
    bool treated = false;
    bool hasSource = false;
    RowRef source;
    std::string sourcePath;
    DiskFileState sourceState;
    std::string sourceLinkId;  // hardlinkID cell of the source
    std::int32_t linkCountStart = 0;
    std::int32_t linkCount = 0;
    std::vector<RowRef> linked;  // rows whose file became a link
    // The files of the group that stay (unmarked), by identity: a marked
    // row that names one of them (a folder given twice, a second hard link)
    // is the same data, and removing it would remove what is kept.
    std::vector<std::pair<DiskFileState, std::string>> kept;
    std::int32_t stateAtOpen = kCheckNone;
  };

  bool LinkWanted() const {
    if (o_.Link == LinkOption::Reflink) return o_.Aktion == FileAction::Delete;
    return o_.Link != LinkOption::None &&
           (o_.Aktion == FileAction::Delete || o_.Aktion == FileAction::Move ||
            o_.Aktion == FileAction::Trash);
  }
  LinkKind Kind() const {
    switch (o_.Link) {
      case LinkOption::Hardlink:
        return LinkKind::HardLink;
      case LinkOption::Reflink:
        return LinkKind::Reflink;
      default:
        return LinkKind::Symlink;
    }
  }
  RecordedFileState Recorded(RowRef r) const {
    RecordedFileState s;
    s.size = model_.File_GetSize(r);
    s.modified = model_.FileDate(r);
    return s;
  }
  bool Dry() const { return o_.DryRun; }

  void Log(std::string_view line, bool isError = false);
  // A success line: not written with LogNoActions, except in a dry run where
  // these lines are the point.
  void LogDone(std::string_view line) {
    if (!o_.LogNoActions || Dry()) Log(line);
  }
  bool Ask(std::string_view q) { return ctx_.prompt && ctx_.prompt->AskYesNo(q); }
  // A failure of one file: logged, counted, and the question whether to
  // stop, unless it has been turned off.
  void Failure(std::string_view line);
  void Refresh();

  void OpenGroup(RowRef g);
  void CloseGroup(RowRef g);
  void HandleFile(RowRef r);
  void HandleMember(RowRef r);
  bool RunAction(RowRef r, const std::string& path);
  // The action's failure line for a file.
  std::string FailureLine(RowRef r, const std::string& path, const std::string& err) const;
  void MakeLink(RowRef r, const std::string& path);
  void CleanEmptyFolders();
  void Summary();

  ResultModel& model_;
  const FileManagerOptions& o_;
  const FileManagerContext& ctx_;
  const TextCatalog& t_;
  FileManagerReport rep_;
  std::string caption_;
  std::filesystem::path log_;
  double now_ = 0;
  bool stop_ = false;
  bool stopAsking_ = false;
  std::int32_t passed_ = 0;  // marked files dealt with, one way or another
  Group cur_;
  bool haveCur_ = false;
  std::vector<std::string> folders_;  // of files done, for the clean-up
  std::set<std::string> folderSet_;
  std::chrono::steady_clock::time_point started_;
  std::string currentPath_;
};

void FileManagerRun::Log(std::string_view line, bool isError) {
  std::string text(line);
  if (Dry()) text = t_.Get(txt::T9679, {line});
  if (!log_.empty()) AppendLogLine(log_, text, isError);
  if (ctx_.logLine) ctx_.logLine(text, isError);
}

void FileManagerRun::Failure(std::string_view line) {
  Log(line, true);
  ++rep_.errors;
  if (o_.IfErrorDontAskToAbort || stopAsking_ || !ctx_.prompt) return;
  bool stopAsking = false;
  const std::string q = t_.Get(txt::T9675, {line});
  if (ctx_.prompt->AskYesNoStopAsking(q, &stopAsking)) stop_ = true;
  if (stopAsking) stopAsking_ = true;
}

void FileManagerRun::Refresh() {
  if (!ctx_.progress) return;
  const int percent =
      rep_.marked > 0 ? static_cast<int>(100LL * passed_ / std::max(1, rep_.marked)) : 0;
  ctx_.progress->ProgressBar(std::min(percent, 100));
  const auto secs =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started_)
          .count();
  ctx_.progress->SetLabel(Label::Dauer, FormatElapsed(secs));
  ctx_.progress->SetLabel(Label::Gesamt, fmt::format("{} / {}", rep_.treated, rep_.marked));
  ctx_.progress->SetLabel(Label::AktuellerOrdner, currentPath_);
}

void FileManagerRun::OpenGroup(RowRef g) {
  cur_ = Group{};
  cur_.row = g;
  haveCur_ = true;
  const std::int32_t sel = model_.GroupSel(g);
  bool treated = true;
  if (o_.GroupAction == 1 && ctx_.groupVisible && !ctx_.groupVisible(g)) treated = false;
  // The state from the marks themselves, whether or not the caller has set
  // the group's check box since.
  const int children = model_.ChildCount(g);
  const std::int32_t state = sel <= 0 ? kCheckNone : sel >= children ? kCheckMarked : kCheckPartly;
  cur_.stateAtOpen = state;
  if (treated && state == kCheckMarked) {
    ++rep_.groupsAllMarked;
    if (o_.IgnoreGroupsAllFilesSelected && o_.Aktion != FileAction::Copy) {
      rep_.skipped += children;
      treated = false;
    }
  }
  if (treated && (state == kCheckNone || sel <= 0)) treated = false;
  if (treated && o_.Aktion != FileAction::Copy && o_.Aktion != FileAction::Rename) {
    bool unreadable = false;
    model_.ForEachFile(g, [&](RowRef f) {
      if (model_.IsMarked(f) || CellAsInt(model_.Cell(f, CellKey::archiv)) != 0) return true;
      DiskFileState ks;
      std::string err;
      const std::string p = model_.File_GetPathFromNode(f);
      if (!ReadDiskFileState(p, &ks, &err)) {
        // Without the kept file's identity no marked file can be shown to
        // be another file: the group is left whole.
        Failure(fmt::format("{}: {}", p, err));
        unreadable = true;
        return false;
      }
      if (ks.exists) cur_.kept.emplace_back(ks, p);
      return true;
    });
    if (unreadable) treated = false;
  }
  if (treated && LinkWanted()) {
    const std::string title = model_.Caption(g);
    model_.ForEachFile(g, [&](RowRef f) {
      // A member's path is its archive: never a link's target.
      if (model_.IsMarked(f) || CellAsInt(model_.Cell(f, CellKey::archiv)) != 0) return true;
      cur_.hasSource = true;
      cur_.source = f;
      return false;
    });
    if (!cur_.hasSource) {
      if (Ask(t_.Get(txt::T3722, {title}))) stop_ = true;
      treated = false;
    } else {
      cur_.sourcePath = model_.File_GetPathFromNode(cur_.source);
      std::string err;
      if (!ReadDiskFileState(cur_.sourcePath, &cur_.sourceState, &err) ||
          !cur_.sourceState.exists) {
        const std::string m = t_.Get(txt::T5214, {title, cur_.sourcePath});
        Log(m, true);
        if (ctx_.prompt) ctx_.prompt->Message(m, MessageIcon::Exclamation);
        stop_ = true;
        treated = false;
      } else {
        UnchangedCheck c;
        c.unchanged = true;
        if (o_.CheckUnchanged) c = CheckFileUnchanged(cur_.sourcePath, Recorded(cur_.source), t_);
        if (!c.unchanged) {
          // The kept file is no longer the one the group was found with: a
          // link to it could point to other data. The group is left whole.
          Log(t_.Get(txt::T9649, {cur_.sourcePath, c.why}));
          rep_.skipped += sel;
          treated = false;
        } else {
          cur_.sourceLinkId = CellAsText(model_.Cell(cur_.source, CellKey::hardlinkID));
          cur_.linkCountStart =
              static_cast<std::int32_t>(CellAsInt(model_.Cell(cur_.source, CellKey::hardlinks)));
          cur_.linkCount = cur_.linkCountStart;
          Log(t_.Get(txt::T5450, {title, cur_.sourcePath}));
        }
      }
    }
  }
  cur_.treated = treated;
  if (!treated) passed_ += sel;
}

std::string FileManagerRun::FailureLine(RowRef r, const std::string& path,
                                        const std::string& err) const {
  switch (o_.Aktion) {
    case FileAction::Delete:
      return t_.Get(txt::T3704, {path, err});
    case FileAction::Copy:
      return t_.Get(txt::T3724, {path, rep_.targetPath, err});
    case FileAction::Move:
      return t_.Get(txt::T3726, {path, rep_.targetPath, err});
    case FileAction::Trash:
      return t_.Get(txt::T3706, {path, err});
    case FileAction::Rename:
      return t_.Get(txt::T9670, {path, RenameByMask(model_.FileName(r), o_.Rename, now_), err});
  }
  return {};
}

bool FileManagerRun::RunAction(RowRef r, const std::string& path) {
  std::string err;
  switch (o_.Aktion) {
    case FileAction::Delete: {
      if (!Dry() && !xDeleteFile_W(path, &err)) {
        Failure(t_.Get(txt::T3704, {path, err}));
        return false;
      }
      LogDone(t_.Get(txt::T3705, {path}));
      return true;
    }
    case FileAction::Copy:
    case FileAction::Move: {
      const bool move = o_.Aktion == FileAction::Move;
      std::string target = rep_.targetPath;
      if (!Dry()) {
        const BackupResult b = BackupDaten(path, rep_.targetPath, move, o_.Ordnerstruktur, t_);
        if (!b.ok) {
          Failure(t_.Get(move ? txt::T3726 : txt::T3724, {path, rep_.targetPath, b.errorText}));
          return false;
        }
        target = b.target;
      }
      LogDone(t_.Get(move ? txt::T3727 : txt::T3725, {path, target}));
      return true;
    }
    case FileAction::Trash: {
      if (!Dry()) {
        const TrashResult tr = MoveToTrash(path, ctx_.trash, now_);
        if (tr.outcome == TrashOutcome::NoTrashOnDrive) {
          Log(t_.Get(txt::T5461, {path, tr.drive}), true);
          ++rep_.skipped;
          return false;
        }
        if (!tr.ok()) {
          Failure(t_.Get(txt::T3706, {path, tr.errorText}));
          return false;
        }
      }
      LogDone(t_.Get(txt::T3707, {path}));
      return true;
    }
    case FileAction::Rename: {
      const std::string name(model_.FileName(r));
      const std::string newName = RenameByMask(name, o_.Rename, now_);
      const std::string newPath = xAddBackslash(model_.File_GetPathOnlyFromNode(r)) + newName;
      if (newName.empty() || newName.find('/') != std::string::npos) {
        Failure(t_.Get(txt::T9670, {path, newPath, ErrorText(EINVAL)}));
        return false;
      }
      if (!Dry() && !xMoveFile_W(path, newPath, &err, Overwrite::No)) {
        Failure(t_.Get(txt::T9670, {path, newPath, err}));
        return false;
      }
      LogDone(t_.Get(txt::T9671, {path, newPath}));
      if (o_.SetFileSizeToZero) {
        if (!Dry() && !SetFileToZeroLength(newPath, &err)) {
          // The rename stands; only the emptying failed.
          Log(fmt::format("{}: {}", newPath, err), true);
          ++rep_.errors;
        } else {
          LogDone(t_.Get(txt::T5187, {newPath}));
        }
      }
      return true;
    }
  }
  return false;
}

// Called for a done move or trash (the path is free), and for delete, where
// the link takes the place of the file in one step.
void FileManagerRun::MakeLink(RowRef r, const std::string& path) {
  const bool replacing = o_.Aktion == FileAction::Delete;
  ReplaceResult res;
  res.outcome = ReplaceOutcome::Replaced;
  if (!Dry()) {
    if (replacing) {
      // The link takes the file's place in one step; the file is checked
      // once more right before (it may have changed since the walk looked).
      ReplaceRequest req;
      req.path = path;
      req.source = cur_.sourcePath;
      req.kind = Kind();
      if (o_.CheckUnchanged) {
        req.pathState = Recorded(r);
        req.sourceState = Recorded(cur_.source);
      }
      res = ReplaceWithLink(req, t_);
    } else {
      res = LinkAtFreePath(path, cur_.sourcePath, Kind(), t_);
    }
  }
  if (!res.ok()) {
    switch (res.outcome) {
      case ReplaceOutcome::PathChanged:
      case ReplaceOutcome::SourceChanged:
        // Changed between the check and the link: left alone.
        Log(res.errorText);
        ++rep_.skipped;
        break;
      case ReplaceOutcome::NotSupported:
      case ReplaceOutcome::ContentDiffers:
      case ReplaceOutcome::AlreadyLinked:
      case ReplaceOutcome::OtherDevice:
        // Nothing went wrong, the link is just not possible here.
        Log(t_.Get(txt::T9673, {path, cur_.sourcePath}) + " " + res.errorText);
        ++rep_.skipped;
        break;
      default:
        if (o_.Link == LinkOption::Hardlink) {
          Failure(t_.Get(txt::T9674, {path, cur_.sourcePath, res.errorText}));
        } else {
          Failure(t_.Get(txt::T9673, {path, cur_.sourcePath}) + " " + res.errorText);
        }
        break;
    }
    if (replacing) return;  // the file stays as it was, its row marked
  } else {
    if (replacing && o_.Link != LinkOption::Reflink) LogDone(t_.Get(txt::T3705, {path}));
    if (o_.Link == LinkOption::Hardlink) {
      cur_.linkCount = cur_.linkCount == 0 ? 2 : cur_.linkCount + 1;
      ++rep_.hardlinks;
      if (!Dry()) model_.SetCell(r, CellKey::hardlinks, std::int64_t{cur_.linkCount});
      LogDone(t_.Get(txt::T3730, {path}));
    } else if (o_.Link == LinkOption::Reflink) {
      LogDone(t_.Get(txt::T9678, {path}));
    } else {
      LogDone(t_.Get(txt::T9672, {path, cur_.sourcePath}));
    }
    cur_.linked.push_back(r);
  }
  if (replacing) {
    ++rep_.done;
    if (o_.DateienEntfernen && !Dry()) {
      model_.File_RemoveFromReport(r);
      ++rep_.filesRemoved;
    }
  }
}

// A member of an archive: only deleting is possible, for the archive types
// the archive program can change; every other action leaves it.
void FileManagerRun::HandleMember(RowRef r) {
  if (o_.Aktion != FileAction::Delete || !ctx_.deleteArchiveMember) {
    ++rep_.skipped;
    return;
  }
  // A member's folder is the archive itself.
  const std::string archive = model_.File_GetPathOnlyFromNode(r);
  const std::string inner = CellAsText(model_.Cell(r, CellKey::pathA));
  const std::string member =
      (inner.empty() ? std::string() : xAddBackslash(inner)) + std::string(model_.FileName(r));
  const std::string shown = archive + "/" + member;
  currentPath_ = shown;
  const MemberDeletion d = ctx_.deleteArchiveMember(archive, member, Dry());
  if (d.outcome == MemberDeletion::Outcome::NotSupported) {
    ++rep_.skipped;
    return;
  }
  ++rep_.treated;
  if (d.outcome == MemberDeletion::Outcome::Failed) {
    Failure(t_.Get(txt::T3704, {shown, d.errorText}));
    return;
  }
  ++rep_.done;
  LogDone(t_.Get(txt::T3705, {shown}));
  if (o_.DateienEntfernen && !Dry()) {
    const std::string tmp = CellAsText(model_.Cell(r, CellKey::tmppath));
    if (!tmp.empty()) xDeleteFile_W(tmp);
    model_.File_RemoveFromReport(r);
    ++rep_.filesRemoved;
  }
}

void FileManagerRun::HandleFile(RowRef r) {
  ++passed_;
  const std::string path = model_.File_GetPathFromNode(r);
  currentPath_ = path;
  const std::int32_t qnr = model_.FileSourceNr(r);
  if (o_.Aktion != FileAction::Copy && qnr >= 1 &&
      static_cast<std::size_t>(qnr) <= ctx_.sourceProtected.size() &&
      ctx_.sourceProtected[static_cast<std::size_t>(qnr - 1)]) {
    ++rep_.skipped;
    ++rep_.protectedFiles;
    return;
  }
  const bool member = CellAsInt(model_.Cell(r, CellKey::archiv)) != 0;
  DiskFileState st;
  std::string err;
  if (!member && !ReadDiskFileState(path, &st, &err)) {
    // Whether the file is there cannot be told: it is left, its row marked.
    Failure(FailureLine(r, path, err));
    return;
  }
  if (LinkWanted() && !member && cur_.hasSource && st.exists) {
    if (o_.Link == LinkOption::Hardlink) {
      if (st.device != cur_.sourceState.device) {
        Log(t_.Get(txt::T5455, {path}));
        ++rep_.skipped;
        return;
      }
      const std::string id = CellAsText(model_.Cell(r, CellKey::hardlinkID));
      const bool sameId = !id.empty() && id != "-" && id == cur_.sourceLinkId;
      if (sameId || st.inode == cur_.sourceState.inode) {
        Log(t_.Get(txt::T5456, {path, cur_.sourcePath}));
        ++rep_.skipped;
        return;
      }
      if (cur_.linkCount == 1024) {
        Log(t_.Get(txt::T5451, {cur_.sourcePath}));
        ++rep_.skipped;
        return;
      }
    } else if (st.device == cur_.sourceState.device && st.inode == cur_.sourceState.inode) {
      // A second name of the kept file: replacing it by a link to itself
      // would lose nothing but gain nothing either.
      Log(t_.Get(txt::T5456, {path, cur_.sourcePath}));
      ++rep_.skipped;
      return;
    }
  }
  if (st.exists) {
    for (const auto& [ks, keptPath] : cur_.kept) {
      if (ks.device == st.device && ks.inode == st.inode) {
        Log(t_.Get(txt::T5456, {path, keptPath}));
        ++rep_.skipped;
        return;
      }
    }
  }
  if (member) {
    HandleMember(r);
    return;
  }
  if (!st.exists) {
    // Gone since the search: nothing to do, the row just leaves.
    if (!Dry()) {
      model_.File_RemoveFromReport(r);
      ++rep_.filesRemoved;
    }
    return;
  }
  ++rep_.treated;
  if (ctx_.releasePreview) ctx_.releasePreview(path);
  if (o_.CheckUnchanged && o_.Aktion != FileAction::Copy) {
    const UnchangedCheck c = CheckFileUnchanged(path, Recorded(r), t_);
    if (!c.unchanged) {
      Log(t_.Get(txt::T9640, {path, c.why}));
      ++rep_.skipped;
      return;
    }
  }
  if (o_.Aktion == FileAction::Delete && LinkWanted()) {
    // The link takes the file's place in one step; deleting the file first
    // would leave nothing when the link cannot be made.
    MakeLink(r, path);
    return;
  }
  if (!RunAction(r, path)) return;
  ++rep_.done;
  const bool linking = LinkWanted() && cur_.hasSource;
  if (linking) MakeLink(r, path);
  if (o_.DelEmptyFolders && !linking &&
      (o_.Aktion == FileAction::Delete || o_.Aktion == FileAction::Move ||
       o_.Aktion == FileAction::Trash)) {
    std::string folder = model_.File_GetPathOnlyFromNode(r);
    if (folderSet_.insert(folder).second) folders_.push_back(std::move(folder));
  }
  if (o_.DateienEntfernen && !Dry()) {
    model_.File_RemoveFromReport(r);
    ++rep_.filesRemoved;
  }
}

void FileManagerRun::CloseGroup(RowRef g) {
  if (Dry()) return;
  if (haveCur_ && cur_.row == g && cur_.hasSource && cur_.linkCount > cur_.linkCountStart &&
      o_.Link == LinkOption::Hardlink) {
    FileRecord rec;
    std::string err;
    std::string id;
    std::int32_t links = cur_.linkCount;
    if (xGetHardlinkCount2(cur_.sourcePath, rec, &err, &t_)) {
      id = cHardlinkID(rec).GetHardlinkIDkeyFormatted(false);
      links = rec.NumberOfLinks;
    }
    auto mark = [&](RowRef row) {
      if (!model_.IsValid(row)) return;
      model_.SetCell(row, CellKey::hardlinks, std::int64_t{links});
      if (!id.empty()) model_.SetCell(row, CellKey::hardlinkID, id);
      model_.SetTextColor(row, model_.Options().Colors.HardlinkTextColor);
    };
    mark(cur_.source);
    for (RowRef row : cur_.linked) mark(row);
  }
  const std::int32_t state = haveCur_ && cur_.row == g ? cur_.stateAtOpen : model_.GetCheckState(g);
  if (state != kCheckNone) {
    const int n = model_.ChildCount(g);
    if (n == 0 || (o_.GruppenEntfernen && n == 1)) {
      model_.Report_RemoveGroup(g);
      ++rep_.groupsRemoved;
    } else {
      model_.SetCell(g, CellKey::anz, std::int64_t{n});
      model_.Report_Set_Group_Checkbox_Image(g);
    }
  }
}

void FileManagerRun::CleanEmptyFolders() {
  if (ctx_.progress) ctx_.progress->SetLabel(Label::Step, t_.Get(txt::T4062));
  int removed = 0;
  for (auto it = folders_.rbegin(); it != folders_.rend(); ++it) {
    if (!xDirEmpty_W(*it)) continue;
    std::string err;
    if (!RemoveDirectoryForce_W(*it, &err)) {
      Log(t_.Get(txt::T9676, {*it, err}), true);
      ++rep_.errors;
    } else {
      ++removed;
      LogDone(t_.Get(txt::T3705, {*it}));
    }
  }
  rep_.emptyFoldersRemoved = removed;
  Log(t_.Get(txt::T9677, {std::to_string(removed)}));
}

void FileManagerRun::Summary() {
  Log(t_.Get(rep_.stopped ? txt::T9657 : txt::T9656, {caption_}));
  static constexpr TextDef kLines[] = {txt::T9658, txt::T9659, txt::T9660, txt::T9661, txt::T9662};
  Log(t_.Get(kLines[static_cast<int>(o_.Aktion)],
             {std::to_string(rep_.done), std::to_string(rep_.marked)}));
  auto line = [&](const TextDef& d, std::int32_t n) {
    if (n != 0) Log(t_.Get(d, {std::to_string(n)}));
  };
  line(txt::T9663, rep_.hardlinks);
  line(txt::T9664, rep_.errors);
  line(txt::T9665, rep_.skipped);
  line(txt::T9666, rep_.protectedFiles);
  line(txt::T9667, rep_.groupsAllMarked);
  line(txt::T9668, rep_.groupsRemoved);
  line(txt::T9669, rep_.filesRemoved);
}

FileManagerReport FileManagerRun::Run() {
  started_ = std::chrono::steady_clock::now();
  now_ = ctx_.now != 0 ? ctx_.now : DateNow();
  caption_ = FileActionCaption(o_.Aktion, t_);
  rep_.marked = model_.DupCountSelected();
  if (model_.RowCount() < 2 || rep_.marked <= 0) {
    if (ctx_.prompt) ctx_.prompt->Message(t_.Get(txt::T9655), MessageIcon::Exclamation);
    rep_.refused = true;
    return rep_;
  }
  const bool toFolder = o_.Aktion == FileAction::Copy || o_.Aktion == FileAction::Move;
  if (toFolder) {
    if (o_.Ordner.empty() || !xExistFolder_W(o_.Ordner)) {
      if (ctx_.prompt)
        ctx_.prompt->Message(t_.Get(txt::T3862, {o_.Ordner}), MessageIcon::Exclamation);
      rep_.refused = true;
      return rep_;
    }
    rep_.targetPath = FileManagerTargetPath(o_, now_);
  }
  if (o_.Aktion != FileAction::Copy && o_.SecureHint && !Dry()) {
    const std::string q =
        t_.Get(txt::T3714) + "\r\n\r\n" + t_.Get(txt::T3715) + t_.Get(txt::T3716, {caption_});
    if (!Ask(q)) {
      rep_.refused = true;
      return rep_;
    }
  }
  log_ = ctx_.actionLog;
  if (!log_.empty()) {
    std::error_code ec;
    if (log_.has_parent_path()) std::filesystem::create_directories(log_.parent_path(), ec);
    if (!AppendLogLine(log_, std::string(50, '-'))) {
      const int e = errno;
      if (ctx_.prompt)
        ctx_.prompt->Message(t_.Get(txt::T5193, {log_.string(), ErrorText(e ? e : EIO)}),
                             MessageIcon::Exclamation);
      log_.clear();
    }
  } else if (ctx_.logLine) {
    ctx_.logLine(std::string(50, '-'), false);
  }
  Log(t_.Get(txt::T3721, {caption_}));
  if (ctx_.progress) {
    ctx_.progress->SetLabel(Label::Dauer, "0:00:00");
    ctx_.progress->ProgressBar(0);
    ctx_.progress->SetLabel(Label::Gesamt, "0");
    ctx_.progress->SetLabel(Label::AktuellerOrdner, "-");
  }

  RunState localRun;
  RunState& run = ctx_.run ? *ctx_.run : localRun;
  LongOperation pace(run, std::chrono::milliseconds(ctx_.refreshMilliseconds));
  const auto refresh = [this] { Refresh(); };
  for (int i = model_.RowCount() - 1; i >= 1; --i) {
    if (!pace.Step(refresh) || stop_) {
      rep_.stopped = true;
      break;
    }
    const RowRef r = model_.RowByIndex(i);
    if (r.IsFile()) {
      const RowRef g = model_.Parent(r);
      if (!haveCur_ || !(cur_.row == g)) OpenGroup(g);
      if (stop_) {
        rep_.stopped = true;
        break;
      }
      if (!cur_.treated || !model_.IsMarked(r)) continue;
      HandleFile(r);
    } else if (r.IsGroup()) {
      CloseGroup(r);
      haveCur_ = false;
      if (stop_) {
        rep_.stopped = true;
        break;
      }
      if (passed_ >= rep_.marked) break;
    }
  }
  if (stop_) rep_.stopped = true;

  if (o_.DelEmptyFolders && !rep_.stopped && !Dry()) CleanEmptyFolders();
  if (ctx_.progress && !rep_.stopped) ctx_.progress->ProgressBar(100);
  if (rep_.done > 0 && !Dry() && ctx_.undoReset) ctx_.undoReset();
  Summary();
  if (!Dry()) {
    model_.Compact();
    model_.ShowDupCount();
  }
  return rep_;
}

}  // namespace

FileManagerReport Process_Selected_Files(ResultModel& model, const FileManagerOptions& o,
                                         const FileManagerContext& ctx) {
  FileManagerRun run(model, o, ctx);
  return run.Run();
}

}  // namespace kelvor
