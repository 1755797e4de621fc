// --select, --remove and --undo of the headless front end.

#include "headless/result_commands.h"

#include <charconv>
#include <optional>
#include <ostream>

#include "compare/media_info.h"
#include "frame/run_state.h"
#include "frame/sinks.h"
#include "frame/texts.h"
#include "results/commands.h"
#include "results/undo.h"

namespace kelvor {

namespace {

// Answers every prompt of one command from its ARG.
class ArgPrompt final : public Prompt {
 public:
  ArgPrompt(const HeadlessCommand& c, std::ostream& err) : c_(c), err_(err) {}
  void Message(std::string_view text, MessageIcon) override { err_ << text << '\n'; }
  bool AskYesNo(std::string_view) override { return true; }
  std::optional<std::string> Input(std::string_view, std::string_view deflt) override {
    return c_.hasArg ? c_.arg : std::string(deflt);
  }

 private:
  const HeadlessCommand& c_;
  std::ostream& err_;
};

}  // namespace

bool ParseHeadlessCommand(HeadlessCommand::Kind kind, std::string_view text,
                          const TextCatalog& texts, HeadlessCommand* out, std::string* error) {
  HeadlessCommand c;
  c.kind = kind;
  const std::size_t colon = text.find(':');
  const std::string_view id = text.substr(0, colon);
  if (colon != std::string_view::npos) {
    c.hasArg = true;
    c.arg = std::string(text.substr(colon + 1));
  }
  const auto [end, ec] = std::from_chars(id.data(), id.data() + id.size(), c.id);
  const ResultCommand* command =
      ec == std::errc() && end == id.data() + id.size() ? FindResultCommand(c.id) : nullptr;
  if (!command) {
    *error = texts.Get(txt::T9624, {id});
    return false;
  }
  const bool fits =
      kind == HeadlessCommand::Kind::Select
          ? command->kind == CommandKind::Selection || command->kind == CommandKind::SelectionMode
          : command->kind == CommandKind::Removal;
  if (!fits) {
    *error = texts.Get(txt::T9628, {id});
    return false;
  }
  *out = std::move(c);
  return true;
}

bool RunHeadlessCommands(ResultModel& result, UndoHistory& undo,
                         const std::vector<HeadlessCommand>& commands, int selectionMode,
                         std::ostream& err) {
  undo.Attach(result);
  ViewState view;
  view.SelectionMode = selectionMode;
  RunState run;
  std::unique_ptr<MediaProperties> media;
  const PictureSizeReader readPicture = [&](const std::string& path, int* w, int* h) {
    if (!media) media = MakeMediaProperties();
    std::string error;
    return media->GetPictureDimension(path, w, h, &error);
  };
  for (const HeadlessCommand& c : commands) {
    ArgPrompt prompt(c, err);
    CommandEnv env{result, &undo, view, prompt, run, nullptr, readPicture};
    const int id = c.kind == HeadlessCommand::Kind::Undo ? kCommandUndo : c.id;
    const CommandOutcome o = RunResultCommand(env, id);
    if (o.result == CommandResult::Refused || o.result == CommandResult::Unknown) return false;
  }
  return true;
}

}  // namespace kelvor
