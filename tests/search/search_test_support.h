#pragma once
// What the search tests share: a prompt that answers without asking, a
// progress sink that shows nothing, the
// groups of a result as sets of paths below the tree, and the switch that
// leaves exactly some criteria on.

#include <filesystem>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "frame/settings_store.h"
#include "frame/sinks.h"
#include "results/result_model.h"

namespace kelvor::test {

using Group = std::set<std::string>;
using Groups = std::set<Group>;

// Answers every question with `answer` and shows nothing.
struct SilentPrompt : Prompt {
  explicit SilentPrompt(bool answer = false) : answer(answer) {}
  bool answer;
  void Message(std::string_view, MessageIcon) override {}
  bool AskYesNo(std::string_view) override { return answer; }
  std::optional<std::string> Input(std::string_view, std::string_view) override {
    return std::nullopt;
  }
};

// Shows nothing.
struct SilentProgress : ProgressSink {
  void SetLabel(Label, std::string_view) override {}
  void ProgressBar(int) override {}
  void LogPanel(std::string_view) override {}
};

// The groups of `result`, each file by its path below `tree`.
inline Groups GroupsBelow(const ResultModel& result, const std::filesystem::path& tree) {
  const std::string prefix = tree.string() + "/";
  Groups out;
  result.ForEachGroup([&](RowRef g) {
    Group files;
    result.ForEachFile(g, [&](RowRef f) {
      std::string p = result.File_GetPathFromNode(f);
      files.insert(p.rfind(prefix, 0) == 0 ? p.substr(prefix.size()) : p);
      return true;
    });
    out.insert(files);
    return true;
  });
  return out;
}

// Switches exactly the given criteria on.
inline void OnlyCriteria(SettingsStore& s, std::initializer_list<int> on) {
  for (int i = 0; i < 10; ++i) s.SetBool("DupVerz", "Suchkriterien" + std::to_string(i), false);
  for (int i : on) s.SetBool("DupVerz", "Suchkriterien" + std::to_string(i), true);
}

}  // namespace kelvor::test
