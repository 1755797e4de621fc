// kelvor --headless --action: the file manager on the marked files of a run.

#include "headless/action.h"

#include <ostream>

#include "archive/archive_edit.h"
#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "frame/startup.h"
#include "frame/texts.h"
#include "results/file_manager.h"
#include "search/source_folders.h"

namespace kelvor {

namespace {

// Without a window nobody answers: the questions of the walk get No (the
// run goes on, a group whose files are all marked is left whole), and each
// message goes to standard error.
class ActionPrompt final : public Prompt {
 public:
  explicit ActionPrompt(std::ostream& err) : err_(err) {}
  void Message(std::string_view text, MessageIcon) override { err_ << text << '\n'; }
  bool AskYesNo(std::string_view) override { return false; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }

 private:
  std::ostream& err_;
};

}  // namespace

std::optional<std::filesystem::path> FindSevenZip(const AppPaths& paths) {
  const Environment env = Environment::FromProcess();
  if (auto p = FindHelperProgram("7z", paths, env)) return p;
  return FindHelperProgram("7zz", paths, env);
}

bool ParseActionRequest(std::string_view value, ActionRequest* req, std::string* error) {
  auto withArg = [&](std::string_view name, std::string* arg) {
    if (value.rfind(name, 0) != 0 || value.size() <= name.size() + 1 || value[name.size()] != ':')
      return false;
    *arg = std::string(value.substr(name.size() + 1));
    return true;
  };
  std::string arg;
  req->settings.clear();
  auto set = [&](std::string key, std::string v) { req->settings.emplace_back(key, v); };
  if (value == "delete") {
    set("Aktion", "0");
    set("OptionShortcut", "0");
    set("OptionHardlink", "0");
    set("OptionReflink", "0");
  } else if (value == "trash") {
    set("Aktion", "3");
    set("OptionShortcut", "0");
    set("OptionHardlink", "0");
    set("OptionReflink", "0");
  } else if (withArg("move", &arg)) {
    set("Aktion", "2");
    set("Ordner", arg);
    set("OptionShortcut", "0");
    set("OptionHardlink", "0");
    set("OptionReflink", "0");
  } else if (withArg("copy", &arg)) {
    set("Aktion", "1");
    set("Ordner", arg);
  } else if (withArg("rename", &arg)) {
    set("Aktion", "4");
    set("Rename", arg);
  } else if (value == "rename") {
    set("Aktion", "4");
  } else if (value == "hardlink") {
    set("Aktion", "0");
    set("OptionShortcut", "0");
    set("OptionHardlink", "1");
    set("OptionReflink", "0");
  } else if (value == "symlink") {
    set("Aktion", "0");
    set("OptionShortcut", "1");
    set("OptionHardlink", "0");
    set("OptionReflink", "0");
  } else if (value == "reflink") {
    set("Aktion", "0");
    set("OptionShortcut", "0");
    set("OptionHardlink", "0");
    set("OptionReflink", "1");
  } else {
    if (error)
      *error =
          "--action takes delete, trash, move:DIR, copy:DIR, rename[:MASK], hardlink or "
          "symlink";
    return false;
  }
  return true;
}

bool ParseSetting(std::string_view value, std::pair<std::string, std::string>* kv,
                  std::string* error) {
  constexpr std::string_view kPrefix = "Aktionen.";
  const auto eq = value.find('=');
  if (value.size() < kPrefix.size() || value.substr(0, kPrefix.size()) != kPrefix ||
      eq == std::string_view::npos || eq < kPrefix.size()) {
    if (error) *error = "--set takes Aktionen.KEY=VALUE";
    return false;
  }
  const std::string key(value.substr(kPrefix.size(), eq - kPrefix.size()));
  if (!IsFileManagerKey(key)) {
    if (error) *error = "--set: '" + key + "' is no key of section Aktionen";
    return false;
  }
  *kv = {key, std::string(value.substr(eq + 1))};
  return true;
}

int RunHeadlessAction(const ActionRequest& req, ResultModel& result, SettingsStore& settings,
                      const std::vector<SourceFolderRow>& sources, const AppPaths& paths,
                      const std::optional<std::filesystem::path>& sevenZip,
                      const TextCatalog& texts, ProgressSink& progress, RunState& run,
                      std::ostream& out, std::ostream& err,
                      const std::function<void()>& undoReset) {
  for (const auto& [k, v] : req.settings) settings.Set("Aktionen", k, v);
  for (const auto& [k, v] : req.extra) settings.Set("Aktionen", k, v);
  FileManagerOptions o = LoadFileManagerOptions(settings);
  // The command line is the user's explicit answer to the safety question,
  // and nobody is there to answer the one after an error.
  o.SecureHint = false;
  o.IfErrorDontAskToAbort = true;
  if (req.dryRun) o.DryRun = true;

  ActionPrompt prompt(err);
  FileManagerContext ctx;
  ctx.texts = &texts;
  ctx.prompt = &prompt;
  ctx.progress = &progress;
  ctx.run = &run;
  ctx.undoReset = undoReset;
  ctx.actionLog = paths.logFolder / "actions.txt";
  ctx.trash = TrashOptionsFromEnvironment();
  if (sevenZip) {
    ctx.deleteArchiveMember = [&](std::string_view archive, std::string_view member, bool dry) {
      const ArchiveMemberDeletion d = DeleteArchiveMember(*sevenZip, archive, member, dry, &run);
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
  // Protected source folders, by the source numbers of the result.
  const auto& folders = result.Options().SourceFolders;
  ctx.sourceProtected.assign(folders.size(), false);
  for (std::size_t i = 0; i < folders.size(); ++i) {
    const std::string want = NormalizeSourcePath(folders[i]);
    for (const auto& row : sources) {
      if (row.protect && NormalizeSourcePath(row.path) == want) ctx.sourceProtected[i] = true;
    }
  }
  ctx.logLine = [&err](std::string_view line, bool isError) {
    if (isError) err << line << '\n';
  };
  const FileManagerReport rep = Process_Selected_Files(result, o, ctx);
  if (rep.refused) return kActionRefused;
  out.flush();
  err << "kelvor: action log " << ctx.actionLog.string() << '\n';
  if (rep.stopped) return kActionStopped;
  return rep.AllTreated() ? kActionDone : kActionIncomplete;
}

}  // namespace kelvor
