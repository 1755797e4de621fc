// Helpers shared by the selection and removal commands.

#include "results/command_support.h"

#include <charconv>

#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor::result_detail {

std::string CommandCaption(const CommandEnv& env, int commandId) {
  if (env.view.caption) {
    std::string c = env.view.caption(commandId);
    if (!c.empty()) return c;
  }
  return env.model.Texts().Get(txt::T9623, {std::to_string(commandId)});
}

ProgressSink& SinkOf(const CommandEnv& env) {
  static NullProgressSink none;  // stateless: shared safely
  return env.progress ? *env.progress : none;
}

std::string FolderKey(std::string_view folder) {
  std::string k = LowerCase(folder);
  if (k.empty() || k.back() != '/') k += '/';
  return k;
}

RowRef FocusedOrFirstHighlightedFile(const CommandEnv& env) {
  const ResultModel& m = env.model;
  if (env.view.focusedRow > 0) {
    const RowRef r = m.RowByIndex(env.view.focusedRow);
    if (m.Level(r) == kLevelFile) return r;
  }
  for (const int i : env.view.highlightedRows) {
    const RowRef r = m.RowByIndex(i);
    if (m.Level(r) == kLevelFile) return r;
  }
  return RowRef{-1, -2};
}

bool ParseWholeNumber(std::string_view text, long long* value) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  if (text.empty()) return false;
  if (text.front() == '+') text.remove_prefix(1);
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *value);
  return ec == std::errc() && end == text.data() + text.size();
}

}  // namespace kelvor::result_detail
