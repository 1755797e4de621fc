// Commands of the result view on one or two file rows.

#include "results/file_commands.h"

#include <cerrno>
#include <utility>

#include "data/file_ops.h"
#include "data/file_system.h"
#include "frame/child_process.h"
#include "frame/error_text.h"
#include "frame/sinks.h"

namespace kelvor {

namespace {

// The file rows among `rows`, in the order given.
std::vector<RowRef> FileRows(const ResultModel& model, const std::vector<RowRef>& rows) {
  std::vector<RowRef> out;
  for (const RowRef& r : rows) {
    if (model.IsValid(r) && model.Level(r) == kLevelFile) out.push_back(r);
  }
  return out;
}

bool IsMember(const ResultModel& model, RowRef r) {
  return CellAsInt(model.Cell(r, CellKey::archiv)) != 0;
}

// Replaces %1..%6 in one word, left to right, so that a value is never
// read again for tokens.
std::string FillWord(std::string_view word, const std::string (&values)[6]) {
  std::string out;
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] == '%' && i + 1 < word.size() && word[i + 1] >= '1' && word[i + 1] <= '6') {
      out += values[word[i + 1] - '1'];
      ++i;
    } else {
      out.push_back(word[i]);
    }
  }
  return out;
}

}  // namespace

namespace {

// The rules shared by rename and move: a file row, no archive member, and
// (unless copying) not in a protected source folder.
bool CommandAllowed(const ResultModel& model, RowRef row, bool checkProtection,
                    const FileCommandContext& ctx, FileCommandResult* res) {
  if (!model.IsValid(row) || model.Level(row) != kLevelFile) {
    res->outcome = FileCommandOutcome::NotAFile;
    return false;
  }
  if (IsMember(model, row)) {
    res->outcome = FileCommandOutcome::ArchiveMember;
    return false;
  }
  const std::int32_t qnr = model.FileSourceNr(row);
  if (checkProtection && qnr >= 1 && static_cast<std::size_t>(qnr) <= ctx.sourceProtected.size() &&
      ctx.sourceProtected[static_cast<std::size_t>(qnr - 1)]) {
    res->outcome = FileCommandOutcome::Protected;
    return false;
  }
  return true;
}

}  // namespace

FileCommandResult File_Rename(ResultModel& model, RowRef row, std::string_view newName,
                              const FileCommandContext& ctx) {
  FileCommandResult res;
  if (!CommandAllowed(model, row, true, ctx, &res)) return res;
  const std::string old(model.FileName(row));
  if (newName.empty() || newName == old) {
    res.outcome = FileCommandOutcome::Unchanged;
    return res;
  }
  const std::string oldPath = model.File_GetPathFromNode(row);
  res.target = xAddBackslash(model.File_GetPathOnlyFromNode(row)) + std::string(newName);
  if (newName.find('/') != std::string_view::npos) {
    res.outcome = FileCommandOutcome::Failed;
    res.errorText = ErrorText(EINVAL);
    return res;
  }
  if (xExistFile_W(res.target) || xExistFolder_W(res.target)) {
    res.outcome = FileCommandOutcome::NameTaken;
    return res;
  }
  if (ctx.releasePreview) ctx.releasePreview(oldPath);
  if (!xMoveFile_W(oldPath, res.target, &res.errorText, Overwrite::No)) {
    res.outcome = FileCommandOutcome::Failed;
    return res;
  }
  model.SetCell(row, CellKey::dupname, std::string(newName));
  res.outcome = FileCommandOutcome::Done;
  return res;
}

FileCommandResult File_Copying(
    ResultModel& model, RowRef row, std::string_view folder, bool move,
    const std::function<bool(std::string_view name, std::string_view folder)>& overwrite,
    const FileCommandContext& ctx) {
  FileCommandResult res;
  if (!CommandAllowed(model, row, move, ctx, &res)) return res;
  const std::string path = model.File_GetPathFromNode(row);
  const std::string name(model.FileName(row));
  res.target = xAddBackslash(folder) + name;
  Overwrite ow = Overwrite::No;
  if (xExistFile_W(res.target)) {
    if (!overwrite || !overwrite(name, folder)) {
      res.outcome = FileCommandOutcome::Unchanged;
      return res;
    }
    ow = Overwrite::Yes;
  }
  if (move && ctx.releasePreview) ctx.releasePreview(path);
  bool ok = false;
  if (move) {
    ok = xMoveFileWithDate_W(path, res.target, &res.errorText, ow);
  } else {
    ok = xCopyFile_W(path, res.target, &res.errorText, ow) &&
         xCopyFileDate_W(path, res.target, &res.errorText);
  }
  if (!ok) {
    res.outcome = FileCommandOutcome::Failed;
    return res;
  }
  res.outcome = FileCommandOutcome::Done;
  if (!move) return res;
  const RowRef group = model.Parent(row);
  model.File_RemoveFromReport(row);
  model.Report_Set_Group_Checkbox_Image(group);
  if (model.ChildCount(group) < 2) model.Report_RemoveGroup(group);
  model.Compact();
  if (ctx.undoReset) ctx.undoReset();
  model.ShowDupCount();
  return res;
}

SwapResult File_Swap_FileNames(ResultModel& model, const std::vector<RowRef>& rows,
                               const FileCommandContext& ctx) {
  SwapResult res;
  const std::vector<RowRef> files = FileRows(model, rows);
  if (files.size() != 2) return res;
  if (IsMember(model, files[0]) || IsMember(model, files[1])) {
    res.outcome = SwapOutcome::ArchiveMember;
    return res;
  }
  const std::string name1(model.FileName(files[0])), name2(model.FileName(files[1]));
  if (name1 == name2) {
    res.outcome = SwapOutcome::SameName;
    return res;
  }
  const std::string path1 = model.File_GetPathFromNode(files[0]);
  const std::string path2 = model.File_GetPathFromNode(files[1]);
  const std::string dir1 = xAddBackslash(model.File_GetPathOnlyFromNode(files[0]));
  const std::string dir2 = xAddBackslash(model.File_GetPathOnlyFromNode(files[1]));
  if (ctx.releasePreview) {
    ctx.releasePreview(path1);
    ctx.releasePreview(path2);
  }
  // Stage one to the ".temp" names, stage two to the final names.
  const std::pair<std::string, std::string> moves[4] = {
      {path1, dir1 + name2 + ".temp"},
      {path2, dir2 + name1 + ".temp"},
      {dir1 + name2 + ".temp", dir1 + name2},
      {dir2 + name1 + ".temp", dir2 + name1},
  };
  int done = 0;
  for (; done < 4; ++done) {
    std::string err;
    if (xMoveFile_W(moves[done].first, moves[done].second, &err, Overwrite::No)) continue;
    // Back to the old names, last move first.
    for (int k = done - 1; k >= 0; --k) {
      xMoveFile_W(moves[k].second, moves[k].first, nullptr, Overwrite::No);
    }
    res.outcome = SwapOutcome::Failed;
    res.message = moves[done].first + "\r\n-->>\r\n" + moves[done].second + "\r\n\r\n" + err;
    if (ctx.prompt) ctx.prompt->Message(res.message, MessageIcon::Exclamation);
    return res;
  }
  model.SetCell(files[0], CellKey::dupname, name2);
  model.SetCell(files[1], CellKey::dupname, name1);
  res.outcome = SwapOutcome::Swapped;
  return res;
}

std::vector<std::string> CompareCommandLine(std::string_view commandLine, std::string_view path1,
                                            std::string_view path2) {
  const std::string values[6] = {std::string(path1), std::string(path2),  xGetPath(path1),
                                 xGetPath(path2),    xGetFileName(path1), xGetFileName(path2)};
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  char quote = 0;
  for (char c : commandLine) {
    if (quote) {
      if (c == quote) {
        quote = 0;
      } else {
        word.push_back(c);
      }
    } else if (c == '"' || c == '\'') {
      quote = c;
      inWord = true;
    } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (inWord) words.push_back(FillWord(word, values));
      word.clear();
      inWord = false;
    } else {
      word.push_back(c);
      inWord = true;
    }
  }
  if (inWord) words.push_back(FillWord(word, values));
  return words;
}

bool File_Compare_Files(const ResultModel& model, const std::vector<RowRef>& rows,
                        std::string_view commandLine, std::string* error) {
  const std::vector<RowRef> files = FileRows(model, rows);
  if (files.size() != 2) return false;
  const std::vector<std::string> argv = CompareCommandLine(
      commandLine, model.File_GetPathFromNode(files[0]), model.File_GetPathFromNode(files[1]));
  if (argv.empty()) return false;
  // A shell only starts the program in the background (its arguments pass
  // as "$@", never read by the shell) and says whether it was found.
  std::vector<std::string> sh = {
      "/bin/sh", "-c",
      "command -v \"$0\" >/dev/null 2>&1 || exit 127; \"$0\" \"$@\" </dev/null >/dev/null 2>&1 &"};
  sh.insert(sh.end(), argv.begin(), argv.end());
  const ChildProcessResult r = RunChildProcess(sh);
  if (!r.started) {
    if (error) *error = r.error;
    return false;
  }
  if (r.exitCode != 0) {
    if (error) *error = argv[0] + ": " + (r.exitCode == 127 ? ErrorText(ENOENT) : r.output);
    return false;
  }
  return true;
}

int Report_Search(const ResultModel& model, int fromIndex, const std::vector<std::string>& keys,
                  const std::function<bool(std::string_view)>& matches) {
  const int n = model.RowCount();
  if (n <= 1 || !matches) return -1;
  for (int step = 1; step <= n; ++step) {
    const int i = ((fromIndex < 0 ? 0 : fromIndex) + step) % n;
    const RowRef r = model.RowByIndex(i);
    for (const std::string& key : keys) {
      std::string_view k = key;
      if (k == "__Tree") k = "dupname";
      if (k.size() > 3 && k.substr(0, 3) == "RTF") k.remove_prefix(3);
      std::string text =
          k == "dupname" && !r.IsFile() ? model.Caption(r) : CellAsText(model.Cell(r, k));
      if (matches(text)) return i;
    }
  }
  return -1;
}

}  // namespace kelvor
