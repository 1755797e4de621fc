#pragma once
// The result commands of the headless front end: `--select ID[:ARG]`,
// `--remove ID[:ARG]` and `--undo`, run in the order given on the result of
// the search. ARG answers the command's prompts (every input box gets it,
// a yes/no question is answered yes); without ARG an input box is answered
// with its default, as when Enter is pressed.

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class ResultModel;
class TextCatalog;
class UndoHistory;

struct HeadlessCommand {
  enum class Kind { Select, Remove, Undo };
  Kind kind = Kind::Select;
  int id = 0;
  bool hasArg = false;
  std::string arg;
};

// Reads "ID[:ARG]" of a --select or --remove. False with *error (the text
// "Unbekannte Befehlsnummer: ..." or "Der Befehl ... kann hier nicht
// ausgeführt werden.") when the id is no command of that kind.
bool ParseHeadlessCommand(HeadlessCommand::Kind kind, std::string_view text,
                          const TextCatalog& texts, HeadlessCommand* out, std::string* error);

// Runs the commands in order with `undo` attached to `result` and
// `selectionMode` as the view's mode. Messages go to `err`. Returns false
// when a command refused its ARG (or was unknown): the caller exits 1.
bool RunHeadlessCommands(ResultModel& result, UndoHistory& undo,
                         const std::vector<HeadlessCommand>& commands, int selectionMode,
                         std::ostream& err);

}  // namespace kelvor
