// The selection commands. SelectionRun is the frame every rule shares: the
// status text, the undo step, one paced walk over the groups in index order,
// and the closing steps (counters, end of the step, status cleared), which
// run however the command ends.

#include "results/selection.h"

#include <charconv>
#include <optional>
#include <unordered_map>

#include "frame/long_operation.h"
#include "frame/pattern.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "results/command_support.h"
#include "results/undo.h"

namespace kelvor {

using result_detail::CommandCaption;
using result_detail::FolderKey;
using result_detail::IntSet;
using result_detail::SinkOf;

bool ChangeThisGroup(const ResultModel& model, const ViewState& view, RowRef group,
                     int groupIndex) {
  if (std::find(view.hiddenGroups.begin(), view.hiddenGroups.end(), groupIndex) !=
      view.hiddenGroups.end())
    return false;
  switch (view.SelectionMode) {
    case kSelectAllGroups:
      return true;
    case kSelectExpanded:
      return model.Expanded(group);
    case kSelectCollapsed:
      return !model.Expanded(group);
    case kSelectUnmarkedGroups:
      return model.GetCheckState(group) == kCheckNone;
    case kSelectMarkedGroups:
      return model.GetCheckState(group) == kCheckMarked;
    case kSelectPartlyGroups:
      return model.GetCheckState(group) == kCheckPartly;
    case kSelectHighlighted:
      return view.IsHighlighted(groupIndex);
    case kSelectNotHighlighted:
      return !view.IsHighlighted(groupIndex);
    default:
      return false;
  }
}

namespace {

class SelectionRun {
 public:
  SelectionRun(CommandEnv& env, std::string title, bool undoStep)
      : env_(env),
        m_(env.model),
        undoStep_(undoStep && env.undo != nullptr),
        pace_(env.run, result_detail::kWalkRefresh),
        sink_(SinkOf(env)),
        hidden_(env.view.hiddenGroups),
        highlighted_(env.view.highlightedRows),
        total_(m_.RowCount()) {
    sink_.SetLabel(Label::StatusBar, title);
    if (undoStep_) env_.undo->UNDO_record_Init(std::move(title));
  }
  SelectionRun(const SelectionRun&) = delete;
  SelectionRun& operator=(const SelectionRun&) = delete;
  // The closing steps run also when the rule failed half way, so that what
  // it did stays undoable.
  ~SelectionRun() {
    m_.ShowDupCount();
    if (undoStep_) env_.undo->UNDO_record_end();
    sink_.SetLabel(Label::StatusBar, {});
    result_detail::ClearStop(env_.run);
  }

  ResultModel& Model() { return m_; }

  void Set(RowRef f, bool mark) {
    if (m_.IsMarked(f) != mark) m_.File_Select(f, mark);
  }
  void Flip(RowRef f) { m_.File_Select(f, !m_.IsMarked(f)); }

  // Calls `apply(group, files)` for each group that takes part, in index
  // order, with its live file rows; then sets the group's picture. A stop
  // ends the walk before the group being read is changed.
  template <class Apply>
  void ForGroups(Apply&& apply) {
    int index = 1;
    std::vector<RowRef> files;
    m_.ForEachGroup([&](RowRef g) {
      if (!Step()) return false;
      const int count = m_.ChildCount(g);
      const int groupIndex = index;
      index += 1 + count;
      if (!TakesPart(g, groupIndex)) {
        visited_ += count;
        return true;
      }
      files.clear();
      bool stopped = false;
      m_.ForEachFile(g, [&](RowRef f) {
        if (!Step()) {
          stopped = true;
          return false;
        }
        files.push_back(f);
        return true;
      });
      if (stopped) return false;
      if (files.empty()) return true;
      apply(g, files);
      m_.Report_Set_Group_Checkbox_Image(g);
      return true;
    });
  }

 private:
  bool TakesPart(RowRef g, int groupIndex) const {
    if (hidden_.Has(groupIndex)) return false;
    switch (env_.view.SelectionMode) {
      case kSelectAllGroups:
        return true;
      case kSelectExpanded:
        return m_.Expanded(g);
      case kSelectCollapsed:
        return !m_.Expanded(g);
      case kSelectUnmarkedGroups:
        return m_.GetCheckState(g) == kCheckNone;
      case kSelectMarkedGroups:
        return m_.GetCheckState(g) == kCheckMarked;
      case kSelectPartlyGroups:
        return m_.GetCheckState(g) == kCheckPartly;
      case kSelectHighlighted:
        return highlighted_.Has(groupIndex);
      case kSelectNotHighlighted:
        return !highlighted_.Has(groupIndex);
      default:
        return false;
    }
  }

  bool Step() {
    ++visited_;
    return pace_.Step([this] {
      sink_.ProgressBar(total_ > 0 ? static_cast<int>(visited_ * 100LL / total_) : 100);
    });
  }

  CommandEnv& env_;
  ResultModel& m_;
  bool undoStep_;
  LongOperation pace_;
  ProgressSink& sink_;
  IntSet hidden_, highlighted_;
  int total_;
  long long visited_ = 0;
};

// The keep-one frame: in each group the first file whose value is better
// than all before it stays unmarked, all others are marked. Equal values
// never replace, so a tie keeps the file that comes first.
template <class ValueOf, class Better>
void KeepOne(SelectionRun& run, ValueOf&& valueOf, Better&& better) {
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    std::size_t best = 0;
    auto bestValue = valueOf(files[0]);
    for (std::size_t i = 1; i < files.size(); ++i) {
      auto v = valueOf(files[i]);
      if (better(v, bestValue)) {
        best = i;
        bestValue = std::move(v);
      }
    }
    for (std::size_t i = 0; i < files.size(); ++i) run.Set(files[i], i != best);
  });
}

// The length of a text in characters (code points).
std::int64_t CharCount(std::string_view s) {
  std::int64_t n = 0;
  for (const char c : s) {
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  }
  return n;
}

CommandOutcome Refuse(CommandEnv& env, std::string message) {
  env.prompt.Message(message, MessageIcon::Exclamation);
  return CommandOutcome{CommandResult::Refused, std::move(message)};
}

CommandOutcome Cancelled() {
  return CommandOutcome{CommandResult::Cancelled, {}};
}

// Asks with `prompt`; nullopt when cancelled or left empty.
std::optional<std::string> Ask(CommandEnv& env, const std::string& prompt, std::string_view deflt) {
  std::optional<std::string> reply = env.prompt.Input(prompt, deflt);
  if (!reply || reply->empty()) return std::nullopt;
  return reply;
}

// The folder a folder rule works on: `given`, else the folder of the focused
// or first highlighted file row, else the one the user names.
std::optional<std::string> RuleFolder(CommandEnv& env, std::string given) {
  if (!given.empty()) return given;
  const RowRef r = result_detail::FocusedOrFirstHighlightedFile(env);
  if (r.IsFile()) return std::string(env.model.FileFolder(r));
  return Ask(env, env.model.Texts().Get(txt::T9627), {});
}

// Caches a test of folders by their interned text: files of one folder share
// one string, so each folder is lower-cased once.
template <class Test>
class FolderTest {
 public:
  explicit FolderTest(Test test) : test_(std::move(test)) {}
  bool operator()(std::string_view folder) {
    auto [it, fresh] = cache_.try_emplace(folder.data(), false);
    if (fresh) it->second = test_(FolderKey(folder));
    return it->second;
  }

 private:
  Test test_;
  std::unordered_map<const char*, bool> cache_;
};

}  // namespace

// ----- whole groups -----------------------------------------------------------

CommandOutcome Select_EveryDup(CommandEnv& env, bool mark, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) run.Set(f, mark);
  });
  return {};
}

CommandOutcome Select_Invert_Selection(CommandEnv& env, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) run.Flip(f);
  });
  return {};
}

// ----- by position -----------------------------------------------------------

CommandOutcome Select_OnlyTheFirst(CommandEnv& env, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (std::size_t i = 0; i < files.size(); ++i) run.Set(files[i], i == 0);
  });
  return {};
}

CommandOutcome Select_OnlyTheLast(CommandEnv& env, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (std::size_t i = 0; i < files.size(); ++i) run.Set(files[i], i + 1 == files.size());
  });
  return {};
}

CommandOutcome Select_AllButNotTheFirst(CommandEnv& env, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (std::size_t i = 0; i < files.size(); ++i) run.Set(files[i], i != 0);
  });
  return {};
}

CommandOutcome Select_AllButNotTheLast(CommandEnv& env, int commandId) {
  SelectionRun run(env, CommandCaption(env, commandId), true);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (std::size_t i = 0; i < files.size(); ++i) run.Set(files[i], i + 1 != files.size());
  });
  return {};
}

// ----- keep one by a value -------------------------------------------------------

CommandOutcome Select_AllButNotTheNewestOldest(CommandEnv& env, bool newest, bool changeDate) {
  if (env.model.RowCount() < 2) return Cancelled();
  const TextCatalog& t = env.model.Texts();
  const std::string word = changeDate ? t.Get(txt::T3573) : t.Get(txt::T3572);
  SelectionRun run(env, CommandCaption(env, newest ? 208 : 209) + "\n(" + word + ")", true);
  ResultModel& m = run.Model();
  const auto date = [&](RowRef f) {
    return changeDate ? m.FileDate(f) : CellAsDouble(m.Cell(f, CellKey::dateEval));
  };
  if (newest) {
    KeepOne(run, date, [](double a, double b) { return a > b; });
  } else {
    KeepOne(run, date, [](double a, double b) { return a < b; });
  }
  return {};
}

CommandOutcome Select_AllButNotTheShortestLongestFileName(CommandEnv& env, bool shortest,
                                                          int commandId) {
  if (env.model.RowCount() < 2) return Cancelled();
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  const auto len = [&](RowRef f) { return CharCount(m.FileName(f)); };
  if (shortest) {
    KeepOne(run, len, std::less<>());
  } else {
    KeepOne(run, len, std::greater<>());
  }
  return {};
}

CommandOutcome Select_AllButNotTheShortestLongestFilePath(CommandEnv& env, bool shortest,
                                                          int commandId) {
  if (env.model.RowCount() < 2) return Cancelled();
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  const auto len = [&](RowRef f) { return CharCount(m.FileFolder(f)); };
  if (shortest) {
    KeepOne(run, len, std::less<>());
  } else {
    KeepOne(run, len, std::greater<>());
  }
  return {};
}

CommandOutcome Select_AllButNotTheSmallestBiggest(CommandEnv& env, bool smallest, int commandId) {
  if (env.model.RowCount() < 2) return Cancelled();
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  const auto size = [&](RowRef f) { return m.File_GetSize(f); };
  if (smallest) {
    KeepOne(run, size, std::less<>());
  } else {
    KeepOne(run, size, std::greater<>());
  }
  return {};
}

CommandOutcome Select_AllButNotTheMostMP(CommandEnv& env, int commandId) {
  if (env.model.RowCount() < 2) return Cancelled();
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  // The pixel count of a row, its dimensions read first when the search did
  // not read them. A file that cannot be read counts as 0 pixels.
  const auto pixels = [&](RowRef f) -> std::int64_t {
    std::int64_t info = CellAsInt(m.Cell(f, CellKey::GetFileInfo));
    const bool held =
        m.HasCell(f, CellKey::picW) && m.HasCell(f, CellKey::picH) && (info & kInfoPicture) == 0;
    if (!held) {
      if (!env.readPictureSize) return 0;
      // A member of an archive is read from its extracted copy, if any.
      std::string path = m.HasCell(f, CellKey::archiv) ? CellAsText(m.Cell(f, CellKey::tmppath))
                                                       : m.File_GetPathFromNode(f);
      int w = 0, h = 0;
      if (path.empty() || !env.readPictureSize(path, &w, &h)) {
        m.SetCell(f, CellKey::GetFileInfo, info | kInfoPicture);
        return 0;
      }
      m.SetCell(f, CellKey::picW, std::int64_t{w});
      m.SetCell(f, CellKey::picH, std::int64_t{h});
      info &= ~std::int64_t{kInfoPicture};
      if (m.HasCell(f, CellKey::GetFileInfo)) m.SetCell(f, CellKey::GetFileInfo, info);
    }
    return CellAsInt(m.Cell(f, CellKey::picW)) * CellAsInt(m.Cell(f, CellKey::picH));
  };
  using Value = std::pair<std::int64_t, std::int64_t>;  // pixels, then size
  KeepOne(
      run,
      [&](RowRef f) {
        return Value{pixels(f), m.File_GetSize(f)};
      },
      [](const Value& a, const Value& b) { return a > b; });
  return {};
}

// ----- by a value the user gives ------------------------------------------------

CommandOutcome Select_MatchHigherLower(CommandEnv& env, bool higher, int commandId) {
  const TextCatalog& t = env.model.Texts();
  const auto reply = Ask(env, t.Get(txt::T9629), "100");
  if (!reply) return Cancelled();
  long long value = 0;
  if (!result_detail::ParseWholeNumber(*reply, &value) || value < 1 || value > 100)
    return Refuse(env, t.Get(txt::T9625, {"1", "100"}));
  SelectionRun run(env, CommandCaption(env, commandId) + "\n" + std::to_string(value) + "%", true);
  ResultModel& m = run.Model();
  SinkOf(env).SetLabel(Label::StatusBar, t.Get(txt::T9615));
  const double v = static_cast<double>(value);
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) {
      // A row without the cell reads as 0; both borders count as inside.
      const double s = CellAsDouble(m.Cell(f, CellKey::similar));
      run.Set(f, higher ? s >= v : s <= v);
    }
  });
  return {};
}

CommandOutcome Select_DupBySize(CommandEnv& env, int mode) {
  const TextCatalog& t = env.model.Texts();
  const std::string title = CommandCaption(env, 243) + " -> " + CommandCaption(env, 244 + mode);
  const auto reply = Ask(env, t.Get(txt::T5481), env.view.lastSizeText);
  if (!reply) return Cancelled();
  env.view.lastSizeText = *reply;
  std::string text = *reply;
  std::erase(text, ' ');
  std::replace(text.begin(), text.end(), ',', '.');
  double value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size())
    return Refuse(env, t.Get(txt::T9626, {*reply}));
  SelectionRun run(env, title, true);
  ResultModel& m = run.Model();
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) {
      if (m.IsMarked(f)) continue;  // only marks, never unmarks
      const auto size = static_cast<double>(m.File_GetSize(f));
      const bool fits = mode == 0 ? size < value : mode == 1 ? size == value : size > value;
      if (fits) m.File_Select(f, true);
    }
  });
  return {};
}

namespace {

// Select_DupByName and Select_DupByPath: files in the state opposite to
// `mark` change when the pattern fits their name (or folder).
CommandOutcome SelectByPattern(CommandEnv& env, bool mark, int commandId, bool byPath) {
  const TextCatalog& t = env.model.Texts();
  std::string& last = byPath ? env.view.lastPathPattern : env.view.lastNamePattern;
  const auto reply = Ask(env, t.Get(txt::T4102) + "\n" + t.Get(txt::T4103), last);
  if (!reply) return Cancelled();
  last = *reply;
  LikePattern pattern;
  std::string error;
  if (!pattern.Compile(*reply, true, &error))
    return Refuse(env, t.Get(txt::T9620, {*reply, error}));
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  std::string lowered;
  FolderTest folderFits([&](const std::string& key) {
    // FolderKey adds a closing "/", which the cell does not hold.
    return pattern.Match(std::string_view(key).substr(0, key.size() - 1));
  });
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) {
      if (m.IsMarked(f) == mark) continue;
      bool fits;
      if (byPath) {
        fits = folderFits(m.FileFolder(f));
      } else {
        lowered.clear();
        AppendLowerCase(m.FileName(f), lowered);
        fits = pattern.Match(lowered);
      }
      if (fits) m.File_Select(f, mark);
    }
  });
  return {};
}

}  // namespace

CommandOutcome Select_DupByName(CommandEnv& env, bool mark, int commandId) {
  return SelectByPattern(env, mark, commandId, false);
}

CommandOutcome Select_DupByPath(CommandEnv& env, bool mark, int commandId) {
  return SelectByPattern(env, mark, commandId, true);
}

// ----- by folder -------------------------------------------------------------------

CommandOutcome Select_DupInSameFolderByPath(CommandEnv& env, bool mark, bool recursive,
                                            int commandId, std::string folder) {
  const TextCatalog& t = env.model.Texts();
  auto chosen = RuleFolder(env, std::move(folder));
  if (!chosen) return Cancelled();
  if (recursive) {
    // Asked with the folder; the choice starts at the source folder that
    // holds it.
    const std::string question = t.Get(mark ? txt::T9621 : txt::T9622) + "\n" + *chosen;
    if (!env.prompt.AskYesNo(question)) return Cancelled();
    std::string start = *chosen;
    const std::string key = FolderKey(*chosen);
    for (const std::string& source : env.model.Options().SourceFolders) {
      if (!source.empty() && key.rfind(FolderKey(source), 0) == 0) {
        start = source;
        break;
      }
    }
    chosen = Ask(env, t.Get(txt::T9627), start);
    if (!chosen) return Cancelled();
  }
  const std::string want = FolderKey(*chosen);
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  FolderTest inFolder(
      [&](const std::string& key) { return recursive ? key.rfind(want, 0) == 0 : key == want; });
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    for (const RowRef f : files) {
      if (m.IsMarked(f) != mark && inFolder(m.FileFolder(f))) m.File_Select(f, mark);
    }
  });
  return {};
}

CommandOutcome Select_DupInSameFolderByPathSelection(CommandEnv& env, bool mark, bool recursive,
                                                     int commandId) {
  std::string start;
  const RowRef r = result_detail::FocusedOrFirstHighlightedFile(env);
  if (r.IsFile()) start = std::string(env.model.FileFolder(r));
  const auto folder = Ask(env, env.model.Texts().Get(txt::T9627), start);
  if (!folder) return Cancelled();
  return Select_DupInSameFolderByPath(env, mark, recursive, commandId, *folder);
}

CommandOutcome Select_DupFromFilesOfThisFolder(CommandEnv& env, bool mark, int commandId,
                                               std::string folder) {
  auto chosen = RuleFolder(env, std::move(folder));
  if (!chosen) return Cancelled();
  const std::string want = FolderKey(*chosen);
  SelectionRun run(env, CommandCaption(env, commandId), true);
  ResultModel& m = run.Model();
  FolderTest inFolder([&](const std::string& key) { return key == want; });
  run.ForGroups([&](RowRef, const std::vector<RowRef>& files) {
    // First pass: has the group a file in the folder, and is one of those
    // marked already?
    bool here = false, markedHere = false;
    for (const RowRef f : files) {
      if (!inFolder(m.FileFolder(f))) continue;
      here = true;
      if (m.IsMarked(f)) markedHere = true;
    }
    if (!here || (mark && markedHere)) return;
    for (const RowRef f : files) {
      if (!inFolder(m.FileFolder(f))) run.Set(f, mark);
    }
  });
  return {};
}

// ----- on the rows the view points at (no undo step) ------------------------------

CommandOutcome File_SelectAllOtherFilesFromThisFolder(CommandEnv& env) {
  ResultModel& m = env.model;
  const RowRef row = result_detail::FocusedOrFirstHighlightedFile(env);
  if (!row.IsFile()) return Cancelled();
  const RowRef group = m.Parent(row);
  m.ForEachFile(group, [&](RowRef f) {
    if (!(f == row)) m.File_Select(f, !m.IsMarked(f));
    return true;
  });
  m.Report_Set_Group_Checkbox_Image(group);
  m.ShowDupCount();
  return {};
}

CommandOutcome Select_MarkedFiles(CommandEnv& env, bool mark) {
  ResultModel& m = env.model;
  bool any = false;
  for (const int index : env.view.highlightedRows) {
    const RowRef r = m.RowByIndex(index);
    if (m.Level(r) != kLevelFile || m.IsMarked(r) == mark) continue;
    m.File_Select(r, mark);
    m.Report_Set_Group_Checkbox_Image(m.Parent(r));
    any = true;
  }
  m.ShowDupCount();
  return any ? CommandOutcome{} : Cancelled();
}

}  // namespace kelvor
