// Removal from the result: the shared walk from the last row to the first,
// and the rules of the removal commands.

#include "results/removal.h"

#include <optional>
#include <unordered_map>

#include "data/file_system.h"
#include "frame/long_operation.h"
#include "frame/texts.h"
#include "results/command_support.h"
#include "results/undo.h"

namespace kelvor {

using result_detail::FolderKey;
using result_detail::IntSet;
using result_detail::SinkOf;

void File_RemoveFromReport(ResultModel& model, UndoHistory* undo, RowRef file, bool keepUndo) {
  if (model.Level(file) != kLevelFile) return;
  model.File_RemoveFromReport(file);
  if (!keepUndo && undo) undo->UNDO_reset();
}

void Report_RemoveGroup(ResultModel& model, UndoHistory* undo, RowRef group) {
  if (model.Level(group) != kLevelGroup) return;
  model.Report_RemoveGroup(group);
  if (undo) undo->UNDO_reset();
}

namespace {

// What a bulk removal takes out. `file` is asked for each file row of a
// shown group, `group` for each shown group row after its files; both get
// the row's index as it stood before the walk.
struct RemovalRule {
  std::function<bool(RowRef file, int index)> file;
  std::function<bool(RowRef group, int index)> group;
};

// The walk shared by all bulk removals. Returns the number of rows that went.
int RemovalWalk(CommandEnv& env, const std::string& status, const RemovalRule& rule) {
  ResultModel& m = env.model;
  ProgressSink& sink = SinkOf(env);
  sink.SetLabel(Label::StatusBar, status);
  // Hidden groups by their slot, which a removal does not move.
  std::vector<int> hiddenSlots;
  for (const int index : env.view.hiddenGroups) {
    const RowRef g = m.RowByIndex(index);
    if (m.Level(g) == kLevelGroup) hiddenSlots.push_back(g.group);
  }
  const IntSet hidden(hiddenSlots);

  LongOperation pace(env.run, result_detail::kWalkRefresh);
  const int total = m.RowCount();
  int visited = 0, removed = 0;
  const auto refresh = [&] {
    sink.ProgressBar(total > 0 ? static_cast<int>(visited * 100LL / total) : 100);
  };
  for (int i = total - 1; i >= 1; --i) {
    if (!pace.Step(refresh)) break;
    ++visited;
    const RowRef r = m.RowByIndex(i);
    if (r.IsFile()) {
      if (rule.file && !hidden.Has(r.group) && rule.file(r, i)) {
        m.File_RemoveFromReport(r);
        ++removed;
      }
    } else if (r.IsGroup()) {
      const int children = m.ChildCount(r);
      if (children == 0 || (rule.group && !hidden.Has(r.group) && rule.group(r, i))) {
        m.Report_RemoveGroup(r);
        ++removed;
      } else {
        m.SetCell(r, CellKey::anz, std::int64_t{children});
        m.Report_Set_Group_Checkbox_Image(r);
      }
    }
  }
  result_detail::ClearStop(env.run);

  if (removed > 0) {
    if (env.undo) env.undo->UNDO_reset();
    // The view's indices move with the rows: the highlight and the focus go,
    // the hidden groups keep being hidden at their new places.
    env.view.highlightedRows.clear();
    env.view.focusedRow = -1;
    env.view.hiddenGroups.clear();
    for (const int slot : hidden.Values()) {
      const int index = m.IndexOf(RowRef{slot, -1});
      if (index > 0) env.view.hiddenGroups.push_back(index);
    }
    m.Compact();
  }
  m.ShowDupCount();
  sink.SetLabel(Label::StatusBar, {});
  return removed;
}

CommandOutcome Outcome(int removed) {
  return CommandOutcome{removed > 0 ? CommandResult::Done : CommandResult::Cancelled, {}};
}

// The texts of a group's files under `key`, for the hard-link rules.
template <class Test>
bool AllFiles(const ResultModel& m, RowRef group, Test&& test) {
  bool all = true;
  m.ForEachFile(group, [&](RowRef f) {
    all = test(f);
    return all;
  });
  return all;
}

// A hard-link identity of fewer than 2 characters ("-", "") means no link.
bool HasLink(const std::string& id) {
  return id.size() >= 2;
}

// Caches a test of folders by their interned text (one per folder).
class FolderCache {
 public:
  template <class Test>
  bool Get(std::string_view folder, Test&& test) {
    auto [it, fresh] = cache_.try_emplace(folder.data(), false);
    if (fresh) it->second = test(folder);
    return it->second;
  }

 private:
  std::unordered_map<const char*, bool> cache_;
};

// The extracted copy of an archive member is Kelvor's own file, made as
// "<number>_<name>" in a run folder "run-...": only such a file is deleted,
// whatever a loaded result's cell says.
bool LooksLikeExtract(const std::string& path) {
  const std::string name = xGetFileName(path);
  const std::string parent = xGetFileName(xGetPath(path));
  std::size_t digits = 0;
  while (digits < name.size() && name[digits] >= '0' && name[digits] <= '9') ++digits;
  return digits > 0 && digits < name.size() && name[digits] == '_' && parent.rfind("run-", 0) == 0;
}

}  // namespace

CommandOutcome Report_RemoveSelectedFiles(CommandEnv& env) {
  ResultModel& m = env.model;
  RemovalRule rule;
  rule.file = [&](RowRef f, int) { return m.IsMarked(f); };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T9616), rule));
}

CommandOutcome RemoveMarkedFile(CommandEnv& env) {
  ResultModel& m = env.model;
  const int focused = env.view.focusedRow;
  if (m.Level(m.RowByIndex(focused)) != kLevelFile) return Outcome(0);
  RemovalRule rule;
  rule.file = [&](RowRef, int i) { return i == focused; };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T9617), rule));
}

CommandOutcome RemoveMarkedFiles(CommandEnv& env) {
  ResultModel& m = env.model;
  const IntSet highlighted(env.view.highlightedRows);
  if (highlighted.Empty()) return Outcome(0);
  RemovalRule rule;
  rule.file = [&](RowRef, int i) { return highlighted.Has(i); };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T9617), rule));
}

CommandOutcome RemoveGroup_Selected(CommandEnv& env) {
  ResultModel& m = env.model;
  const IntSet highlighted(env.view.highlightedRows);
  if (highlighted.Empty()) return Outcome(0);
  RemovalRule rule;
  rule.group = [&](RowRef, int i) { return highlighted.Has(i); };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T4096), rule));
}

CommandOutcome RemoveGroup_WithXfiles(CommandEnv& env) {
  ResultModel& m = env.model;
  const TextCatalog& t = m.Texts();
  const std::optional<std::string> reply = env.prompt.Input(t.Get(txt::T5039), "1");
  if (!reply || reply->empty()) return Outcome(0);
  long long count = 0;
  if (!result_detail::ParseWholeNumber(*reply, &count) || count < 0) {
    std::string message = t.Get(txt::T9626, {*reply});
    env.prompt.Message(message, MessageIcon::Exclamation);
    return CommandOutcome{CommandResult::Refused, std::move(message)};
  }
  RemovalRule rule;
  rule.group = [&](RowRef g, int) { return m.ChildCount(g) == count; };
  return Outcome(RemovalWalk(env, t.Get(txt::T4029, {std::to_string(count)}), rule));
}

CommandOutcome RemoveGroup_WithAllFilesSelected(CommandEnv& env) {
  ResultModel& m = env.model;
  RemovalRule rule;
  rule.group = [&](RowRef g, int) { return m.GetCheckState(g) == kCheckMarked; };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T5197), rule));
}

CommandOutcome RemoveGroup_IfHardlinkOnly(CommandEnv& env) {
  ResultModel& m = env.model;
  RemovalRule rule;
  rule.group = [&](RowRef g, int) {
    return AllFiles(m, g,
                    [&](RowRef f) { return HasLink(CellAsText(m.Cell(f, CellKey::hardlinkID))); });
  };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T3872), rule));
}

CommandOutcome RemoveGroup_ContainOnlyHardlinkWithSameID(CommandEnv& env) {
  ResultModel& m = env.model;
  RemovalRule rule;
  rule.group = [&](RowRef g, int) {
    std::optional<std::string> first;
    return AllFiles(m, g, [&](RowRef f) {
      std::string id = CellAsText(m.Cell(f, CellKey::hardlinkID));
      if (!HasLink(id)) return false;
      if (!first) {
        first = std::move(id);
        return true;
      }
      return id == *first;
    });
  };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T3872), rule));
}

CommandOutcome RemoveGroup_DupsNotExistAtAllSourcefolders(CommandEnv& env) {
  ResultModel& m = env.model;
  const std::size_t sources = m.Options().SourceFolders.size();
  std::vector<char> seen(sources);
  RemovalRule rule;
  rule.group = [&](RowRef g, int) {
    // A group whose files are all marked takes no part.
    if (m.GetCheckState(g) == kCheckMarked) return false;
    std::fill(seen.begin(), seen.end(), 0);
    std::size_t found = 0;
    m.ForEachFile(g, [&](RowRef f) {
      const int q = m.FileSourceNr(f);
      if (q >= 1 && static_cast<std::size_t>(q) <= sources && !seen[q - 1]) {
        seen[q - 1] = 1;
        ++found;
      }
      return found < sources;
    });
    return found < sources;
  };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T3872), rule));
}

CommandOutcome File_CheckExistAndRemove(CommandEnv& env) {
  ResultModel& m = env.model;
  FolderCache archives;  // members of one archive share its folder text
  RemovalRule rule;
  rule.file = [&](RowRef f, int) {
    if (!m.HasCell(f, CellKey::archiv)) return !xExistFile_W(m.File_GetPathFromNode(f));
    const bool gone =
        archives.Get(m.FileFolder(f), [](std::string_view a) { return !xExistFile_W(a); });
    if (gone) {
      const std::string tmp = CellAsText(m.Cell(f, CellKey::tmppath));
      if (!tmp.empty() && LooksLikeExtract(tmp)) xDeleteFile_W(tmp);
    }
    return gone;
  };
  return Outcome(RemovalWalk(env, m.Texts().Get(txt::T3872), rule));
}

CommandOutcome File_RemoveFromSameFolder(CommandEnv& env, bool recursive, std::string folder) {
  ResultModel& m = env.model;
  const TextCatalog& t = m.Texts();
  if (folder.empty()) {
    std::string start;
    const RowRef r = result_detail::FocusedOrFirstHighlightedFile(env);
    if (r.IsFile()) start = std::string(m.FileFolder(r));
    const std::optional<std::string> reply = env.prompt.Input(t.Get(txt::T9627), start);
    if (!reply || reply->empty()) return Outcome(0);
    folder = *reply;
  }
  const std::string want = FolderKey(folder);
  FolderCache cache;
  RemovalRule rule;
  rule.file = [&](RowRef f, int) {
    return cache.Get(m.FileFolder(f), [&](std::string_view dir) {
      const std::string key = FolderKey(dir);
      return recursive ? key.rfind(want, 0) == 0 : key == want;
    });
  };
  return Outcome(RemovalWalk(env, t.Get(txt::T3872), rule));
}

}  // namespace kelvor
