// kelvor --headless: the search without a window.

#include "headless/headless.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "frame/run_state.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/startup.h"
#include "frame/texts.h"
#include "headless/export_cli.h"
#include "headless/result_commands.h"
#include "results/undo.h"
#include "headless/action.h"
#include "search/session.h"

namespace kelvor {

namespace {

// The one thing a signal handler may touch: the run state of the search.
std::atomic<RunState*> g_interruptTarget{nullptr};

extern "C" void OnInterrupt(int) {
  if (RunState* r = g_interruptTarget.load()) r->RequestStop(kStopUser);
}

// Shows progress on standard error once a second, and only on a terminal.
class TerminalProgress final : public ProgressSink {
 public:
  TerminalProgress(std::ostream& err, const TextCatalog& texts)
      : err_(err), texts_(texts), tty_(::isatty(STDERR_FILENO) == 1) {}
  ~TerminalProgress() override { Finish(); }

  void SetLabel(Label l, std::string_view text) override {
    labels_[static_cast<int>(l)] = std::string(text);
    if (l == Label::Dauer) Draw();
  }
  void LogPanel(std::string_view) override {}
  void Finish() {
    if (drawn_) err_ << "\r\033[K" << std::flush;
    drawn_ = false;
  }

 private:
  void Draw() {
    if (!tty_) return;
    auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(900)) return;
    last_ = now;
    drawn_ = true;
    auto& L = labels_;
    err_ << "\r\033[K"
         << ProgressLine(texts_, L[static_cast<int>(Label::Dauer)],
                         L[static_cast<int>(Label::Gesamt)], L[static_cast<int>(Label::Dups)],
                         L[static_cast<int>(Label::Gruppen)])
         << std::flush;
  }
  std::ostream& err_;
  const TextCatalog& texts_;
  bool tty_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point last_{};
  std::string labels_[kLabelCount];
};

// Questions in a run without a window: messages go to standard error, a
// yes/no question is answered no, an input box is cancelled.
class TerminalPrompt final : public Prompt {
 public:
  explicit TerminalPrompt(std::ostream& err) : err_(err) {}
  void Message(std::string_view text, MessageIcon) override { err_ << text << '\n'; }
  bool AskYesNo(std::string_view) override { return false; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }

 private:
  std::ostream& err_;
};

void PrintResult(const SearchSession& session, bool json, bool nul, std::ostream& out,
                 const UndoHistory* undo) {
  if (json) {
    PrintJson(session.Result(), session.Stats(), session.ElapsedSeconds(), out, undo);
  } else if (nul) {
    PrintNullSeparated(session.Result(), out);
  } else {
    PrintGroups(session.Result(), out);
  }
}

// --save NAME: the user named the result, so a saved result of that name is
// replaced without a question. A result with nothing to save is no failure.
bool SaveNamed(SearchSession& session, const std::string& name, Prompt& prompt, std::ostream& err) {
  NullProgressSink quiet;
  RunState run;
  const SaveOutcome saved = session.SaveResult(name, false, false, quiet, prompt, run);
  if (saved.verdict == SaveVerdict::Failed) {
    err << saved.message << '\n';
    return false;
  }
  return true;
}

// What follows a search or a load, in this order: the result commands
// (marks, removals, undo), the save under a name, then the export in place
// of printing, or the print.
struct AfterResult {
  std::vector<HeadlessCommand> commands;
  std::optional<std::string> saveName;
  ExportRequest exportReq;
  bool json = false, nul = false;
  std::optional<ActionRequest> action;  // the file manager on the marks
};

int FinishResult(SearchSession& session, const AfterResult& after, Prompt& prompt,
                 ProgressSink& progress, RunState& run, std::ostream& out, std::ostream& err) {
  UndoHistory undo(&session.Texts());
  ResultModel* result = session.EditResult();
  if (!after.commands.empty() && result != nullptr) {
    const int mode = static_cast<int>(session.Settings().GetInt("Optionen", "SelectionMode"));
    if (!RunHeadlessCommands(*result, undo, after.commands, mode, err)) return kExitRejected;
  }
  // The file manager's code (0 all treated, 1 refused, 2 some skipped or
  // failed, 3 stopped) is the run's, once the result is saved and shown.
  int code = kExitDone;
  if (after.action && result != nullptr) {
    code = RunHeadlessAction(*after.action, *result, session.Settings(), session.Rows(),
                             session.Paths(), FindSevenZip(session.Paths()), session.Texts(),
                             progress, run, out, err, [&undo] { undo.UNDO_reset(); });
    if (code == kActionRefused) return kExitRejected;
  }
  if (after.saveName && !SaveNamed(session, *after.saveName, prompt, err)) return kExitRejected;
  if (!after.exportReq.file.empty()) {
    if (!session.ClosingMessage().empty()) err << session.ClosingMessage() << '\n';
    const int exported = RunExport(after.exportReq, session, session.Result(), run, err);
    return exported != kExitDone ? exported : code;
  }
  PrintResult(session, after.json, after.nul, out, after.commands.empty() ? nullptr : &undo);
  if (!session.ClosingMessage().empty()) err << session.ClosingMessage() << '\n';
  out.flush();
  return code;
}

}  // namespace

std::string ProgressLine(const TextCatalog& texts, std::string_view elapsed, std::string_view files,
                         std::string_view dups, std::string_view groups) {
  return texts.Get(txt::T9420, {elapsed, files, dups, groups});
}

std::string HelpText() {
  return R"(Usage: kelvor --headless [OPTIONS] [ITEMS] FOLDER...

Finds duplicate files in the given folders without opening a window, writes
the run's log (log/lastsearch.txt in the data folder) and prints the groups of
duplicates: each group's title line, then one full path a line, and a blank
line between groups. A path holding a line break or another control
character, or bytes that are no UTF-8, is printed in the shell's $'...' form
(as printf %q does), which the shell reads back to the exact name; all other
paths are printed as they are.

Options:
  --headless        run in the terminal, without a window (without it,
                    kelvor opens its setup window)
  --version         print the version
  --data-dir DIR    keep settings, logs and results in DIR (default: the
                    KELVOR_DATA_DIR variable, else ~/.local/share/Kelvor)
  --json            print the result as one JSON document; "path" is the
                    name as UTF-8 text, and where the name is no valid UTF-8
                    "path_b64" holds its exact bytes in base64; a file of a
                    similarity search has "similar" (percent), and where they
                    were read "picW", "picH", "AudioDurationVal" (seconds),
                    "AudioDuration" (m:ss), "AudioBitrate" and
                    "AudioSamplingrate"
  --null            print only the paths, with their raw bytes, each ended by
                    a NUL byte (as find -print0); one more NUL between two
                    groups, no titles
  --no-checksum-cache
                    keep no checksums across runs this time (the setting
                    ChecksumCache of section DupVerz does it for good)
  --clear-checksum-cache
                    empty the checksum cache before the search
  --select ID[:ARG] run the selection command ID on the result (repeatable,
                    run in order with --remove and --undo); ARG answers its
                    prompt, without it the prompt's default is taken. Ids:
                      11 mark all, 12 unmark all, 26 invert, 32 only the
                      first, 33 only the last, 13 all but the first, 14 all
                      but the last, 27/42 all but the newest/oldest (change
                      date), 41/43 the same by creation date, 225/226 all
                      but the shortest/longest name, 227/228 path, 53/54 all
                      but the smallest/biggest, 238 all but the most pixels,
                      236/237 similarity at least/at most ARG percent,
                      244/245/246 size smaller/equal/greater than ARG bytes,
                      229/231 mark/unmark names fitting the pattern ARG,
                      234/235 the same for folders, 900 mark the files of
                      folder ARG, 1000/1100 mark/unmark the files in and
                      below folder ARG, 700/800 in groups with a file in
                      folder ARG mark/unmark the files elsewhere, 81-88
                      which groups the rules change (0-7: all, expanded,
                      collapsed, without marks, all marked, partly marked,
                      highlighted, not highlighted)
  --remove ID[:ARG] take rows out of the result (no file is touched):
                      220 the marked files, 8 groups of ARG files, 233
                      groups with all files marked, 224 groups of hard
                      links only, 414 groups of one hard-link family, 232
                      groups not in every source folder, 217 files gone
                      from the disk, 600/1500 the files in/below folder ARG
                    A removal ends the undo history.
  --undo            take back the latest selection command
  --export FILE     write the result to FILE instead of printing it: a
                    report (.txt), delimited values (.csv; both UTF-16 with
                    a byte-order mark, every CSV value in double quotes) or
                    a spreadsheet (.xlsx), by the extension; one line per
                    file; the columns, SaveOnlyFiles and the delimiter as
                    set (section ExportList); an existing FILE is replaced
                    only once the new one is complete
  --export-marked   export only the marked files
  --export-unmarked export only the files not marked
  --delimiter X     the CSV delimiter: a character or text (tab, space)
  --save NAME       save the result after the search as NAME in the data
                    folder's "data" (NAME.ksr4a, NAME.ini4a, NAME.txt); a
                    saved result of that name is replaced
  --load NAME       load the saved result NAME instead of searching, then
                    print it as after a search (items are not allowed); a
                    result that is missing or damaged exits with 1
  --help            show this text

Items (as on Kelvor's own command line):
  -sDIGITS          search criteria, one digit each, all others off:
                      0 name, 1 extension, 2 size, 3 content, 4 change date,
                      5 creation date, 6 attributes, 7 hard links,
                      8 similar pictures, 9 similar music (8 is not
                      available yet: such a search is refused; 9 needs
                      the program fpcalc, package libchromaprint-tools)
  -sa               similar music only
  -c[N]             content; N = 0 byte by byte, 1 MD5, 2 SHA-1 (default),
                    3 SHA-256, 4 SHA-384, 5 SHA-512
  -h[N] -d[N]       similar pictures (algorithm, thumbnail size index)
  -m[N]             match percent of similar pictures or music
  -l[N] -a[N]       similar music (seconds, algorithm)
  -p:"NAME"         load the search profile NAME after the items; a profile
                    with source folders of its own searches those
  -n                (kept for compatibility)
  FOLDER            a source folder; "FOLDER" in quotes also works; a folder
                    that does not exist is skipped

File manager (on the files marked in the result):
  --action WHAT     delete, trash, move:DIR, copy:DIR, rename[:MASK] (%1 name,
                    %2 extension with its dot), hardlink, symlink or reflink
                    (the marked files are replaced by links to the group's
                    first unmarked file, or share its blocks where the file
                    system can); the action log's path is printed at the end
  --dry-run         the whole action with every check and log line, no file
                    touched
  --set Aktionen.KEY=VALUE
                    a setting of the file manager (section Aktionen), e.g.
                    Aktionen.Ordnerstruktur=0, Aktionen.CheckUnchanged=1

Exit codes: 0 done (with --action: every marked file was treated), 1 bad
command line or rejected setup (with --action: nothing marked or no target
folder), 2 with --action: some marked files were skipped or failed,
3 stopped.
)";
}

int RunHeadless(const char* argv0, const std::vector<std::string>& args, std::ostream& out,
                std::ostream& err) {
  std::optional<std::filesystem::path> dataDir;
  bool headless = false, json = false, nul = false, noCache = false, clearCache = false;
  std::vector<std::string> items;
  std::vector<HeadlessCommand> commands;
  const TextCatalog germanTexts;  // the session's texts exist only later
  ExportRequest exportReq;
  std::optional<std::string> saveName, loadName;
  std::optional<ActionRequest> action;
  ActionRequest actionExtra;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    std::string exportError;
    if (ParseExportOption(args, &i, &exportReq, &exportError)) {
      if (!exportError.empty()) {
        err << exportError << '\n';
        return kExitRejected;
      }
    } else if (a == "--help" || a == "-?") {
      out << HelpText();
      return kExitDone;
    } else if (a == "--headless") {
      headless = true;
    } else if (a == "--json") {
      json = true;
    } else if (a == "--null") {
      nul = true;
    } else if (a == "--no-checksum-cache") {
      noCache = true;
    } else if (a == "--clear-checksum-cache") {
      clearCache = true;
    } else if (a == "--data-dir") {
      if (i + 1 >= args.size()) {
        err << "kelvor: --data-dir needs a folder\n";
        return kExitRejected;
      }
      dataDir = args[++i];
    } else if (a == "--save" || a == "--load") {
      if (i + 1 >= args.size() || !IsValidResultName(args[i + 1])) {
        err << "kelvor: " << a << " needs the name of a saved result (no '/')\n";
        return kExitRejected;
      }
      (a == "--save" ? saveName : loadName) = args[++i];
    } else if (a.rfind("--data-dir=", 0) == 0) {
      dataDir = a.substr(11);
    } else if (a == "--select" || a == "--remove") {
      const auto kind =
          a == "--select" ? HeadlessCommand::Kind::Select : HeadlessCommand::Kind::Remove;
      HeadlessCommand c;
      std::string error;
      if (i + 1 >= args.size() ||
          !ParseHeadlessCommand(kind, args[i + 1], germanTexts, &c, &error)) {
        err << "kelvor: " << a << ": " << error << '\n';
        return kExitRejected;
      }
      ++i;
      commands.push_back(std::move(c));
    } else if (a == "--undo") {
      commands.push_back(HeadlessCommand{HeadlessCommand::Kind::Undo, 0, false, {}});
    } else if (a == "--action" || a.rfind("--action=", 0) == 0 || a == "--set" ||
               a.rfind("--set=", 0) == 0) {
      const bool isSet = a.rfind("--set", 0) == 0;
      const std::size_t eq = a.find('=');
      std::string v;
      if (eq != std::string::npos) {
        v = a.substr(eq + 1);
      } else if (i + 1 < args.size()) {
        v = args[++i];
      }
      std::string e;
      std::pair<std::string, std::string> kv;
      ActionRequest req;
      if (isSet ? !ParseSetting(v, &kv, &e) : !ParseActionRequest(v, &req, &e)) {
        err << "kelvor: " << e << '\n';
        return kExitRejected;
      }
      if (isSet) {
        actionExtra.extra.push_back(kv);
      } else {
        action = req;
      }
    } else if (a == "--dry-run") {
      actionExtra.dryRun = true;
    } else if (a.rfind("--", 0) == 0) {
      err << "kelvor: unknown option '" << a << "' (see kelvor --help)\n";
      return kExitRejected;
    } else {
      items.push_back(a);
    }
  }
  if (!headless) {
    err << "kelvor: the terminal front end runs with --headless (see kelvor --help)\n";
    return kExitRejected;
  }

  TerminalPrompt prompt(err);
  SessionOptions so;
  so.executable = ExecutablePath(argv0);
  so.dataDir = dataDir;
  so.items = items;
  so.env = Environment::FromProcess();
  so.noChecksumCache = noCache;
  so.clearChecksumCache = clearCache;
  SearchSession session(std::move(so), &prompt);

  if (action) {
    action->extra = actionExtra.extra;
    action->dryRun = actionExtra.dryRun;
  }
  const AfterResult after{std::move(commands), saveName, exportReq, json, nul, action};
  if (loadName) {
    if (!items.empty()) {
      err << "kelvor: --load takes no search items or folders\n";
      return kExitRejected;
    }
    if (const std::string e = CheckExportRequest(exportReq, session); !e.empty()) {
      err << e << '\n';
      return kExitRejected;
    }
    NullProgressSink quiet;
    RunState run;
    const std::string refused = session.LoadResult(*loadName, quiet, prompt, run);
    if (!refused.empty()) {
      err << refused << '\n';
      return kExitRejected;
    }
    // A loaded result starts without undo history: the history below is new.
    return FinishResult(session, after, prompt, quiet, run, out, err);
  }

  const Preparation& prep = session.Prepare();
  if (prep.verdict == SessionVerdict::BadCommandLine) {
    for (const auto& u : prep.unknownItems)
      err << "kelvor: unknown item '" << u << "' (see kelvor --help)\n";
    return kExitRejected;
  }
  for (const auto& m : prep.messages) err << m << '\n';
  if (prep.verdict != SessionVerdict::Ready) return kExitRejected;
  if (const std::string e = CheckExportRequest(exportReq, session); !e.empty()) {
    err << e << '\n';
    return kExitRejected;
  }

  TerminalProgress progress(err, session.Texts());
  RunState run;
  g_interruptTarget.store(&run);
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  ::sigaction(SIGINT, &sa, nullptr);
  ::sigaction(SIGTERM, &sa, nullptr);
  const RunOutcome outcome = session.Run(progress, prompt, run);
  g_interruptTarget.store(nullptr);
  progress.Finish();
  if (!outcome.logError.empty()) err << outcome.logError << '\n';
  if (!outcome.ran) return kExitRejected;

  if (outcome.autoSave && outcome.autoSave->verdict == SaveVerdict::Failed)
    err << outcome.autoSave->message << '\n';
  if (outcome.stoppedByUser) {
    // A stopped search prints what it found, but takes no commands and
    // writes no saved result or export.
    PrintResult(session, after.json, after.nul, out, nullptr);
    if (!session.ClosingMessage().empty()) err << session.ClosingMessage() << '\n';
    out.flush();
    return kExitStopped;
  }
  g_interruptTarget.store(&run);
  const int code = FinishResult(session, after, prompt, progress, run, out, err);
  g_interruptTarget.store(nullptr);
  return code;
}

}  // namespace kelvor
