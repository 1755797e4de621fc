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
#include "frame/sinks.h"
#include "frame/startup.h"
#include "frame/texts.h"
#include "headless/action.h"
#include "results/result_model.h"
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
  --headless        run without a window (required in this build)
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
  std::optional<ActionRequest> action;
  ActionRequest actionExtra;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-?") {
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
    } else if (a.rfind("--data-dir=", 0) == 0) {
      dataDir = a.substr(11);
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
    err << "kelvor: this build has no window yet; run 'kelvor --headless ...' (see kelvor "
           "--help)\n";
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

  const Preparation& prep = session.Prepare();
  if (prep.verdict == SessionVerdict::BadCommandLine) {
    for (const auto& u : prep.unknownItems)
      err << "kelvor: unknown item '" << u << "' (see kelvor --help)\n";
    return kExitRejected;
  }
  for (const auto& m : prep.messages) err << m << '\n';
  if (prep.verdict != SessionVerdict::Ready) return kExitRejected;

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

  if (action) {
    // The file manager on the marks of the result; the output shows the
    // result as the action left it.
    action->extra = actionExtra.extra;
    action->dryRun = actionExtra.dryRun;
    if (outcome.stoppedByUser) return kExitStopped;
    std::unique_ptr<ResultModel> model = session.TakeResult();
    g_interruptTarget.store(&run);
    const int code = RunHeadlessAction(*action, *model, session.Settings(), session.Rows(),
                                       session.Paths(), FindSevenZip(session.Paths()),
                                       session.Texts(), progress, run, out, err);
    g_interruptTarget.store(nullptr);
    progress.Finish();
    if (json) {
      PrintJson(*model, session.Stats(), session.ElapsedSeconds(), out);
    } else if (nul) {
      PrintNullSeparated(*model, out);
    } else {
      PrintGroups(*model, out);
    }
    out.flush();
    return code;
  }
  if (json) {
    PrintJson(session.Result(), session.Stats(), session.ElapsedSeconds(), out);
  } else if (nul) {
    PrintNullSeparated(session.Result(), out);
  } else {
    PrintGroups(session.Result(), out);
  }
  if (!session.ClosingMessage().empty()) err << session.ClosingMessage() << '\n';
  out.flush();
  return outcome.stoppedByUser ? kExitStopped : kExitDone;
}

}  // namespace kelvor
