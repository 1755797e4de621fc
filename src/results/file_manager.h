#pragma once
// The file manager: one action on every marked file of the result.
//
// Process_Selected_Files walks the result from the last row to the first, so
// that a row leaving the result never shifts a row still to come: a group's
// files (last first) come before its group row. Per group it decides whether
// the group is treated (filter, check state, all files marked), picks the
// source of link replacements, and per marked file runs the action through
// file_actions.h. Every step is written to the action log. Done rows leave
// the result (File_RemoveFromReport); rows that failed or were skipped stay,
// marked.
//
// Beyond the plain actions, three safeties are on by default:
//  - CheckUnchanged: a file whose size or change date differs from its row
//    (changed since the search) is left alone and counted as skipped; for a
//    link replacement the kept source is checked too;
//  - link replacements never remove the file first (file_actions.h);
//  - DryRun: the whole walk with every check and every log line, no file
//    touched and the result left as it is.
//
// Runs on the worker thread; the cancel of the RunState acts between files.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "data/trash.h"
#include "results/result_model.h"

namespace kelvor {

class Prompt;
class ProgressSink;
class SettingsStore;
class TextCatalog;
struct RunState;

// optAktion.
enum class FileAction : std::int32_t {
  Delete = 0,
  Copy = 1,
  Move = 2,
  Trash = 3,
  Rename = 4,
};

// chkLinks: what takes the place of a treated file (delete, move, trash).
enum class LinkOption : std::int32_t {
  None = 0,
  Shortcut = 1,  // a symbolic link to the group's kept file
  Hardlink = 2,  // a hard link to it
  Reflink = 3,   // the file keeps its name, its blocks shared with the kept
                 // file's where the file system can (delete only)
};

// The settings of section "Aktionen", read once when the action starts.
struct FileManagerOptions {
  FileAction Aktion = FileAction::Delete;
  std::int32_t GroupAction = 0;  // 0 all groups, 1 only groups the filter shows
  bool LogNoActions = true;      // success lines are not logged (failures are)
  LinkOption Link = LinkOption::None;
  std::string Ordner;          // target folder of copy and move
  bool Ordnerstruktur = true;  // keep the folder structure below the target
  bool CreateSubfolder = true;
  std::string CreateSubfolderText = "\"%USERNAME%/\"YYYY-MM-DD HH-NN-SS";
  bool DateienEntfernen = true;    // done rows leave the result
  bool GruppenEntfernen = false;   // groups left with one file leave the result
  bool SetFileSizeToZero = false;  // rename: empty the renamed file
  std::string Rename = "DUPLIKAT %1%2";
  bool DelEmptyFolders = false;
  bool SecureHint = true;
  bool IfErrorDontAskToAbort = false;
  // chkIgnoreGroupsAllFilesSelected: groups whose files are all marked are
  // left whole (not for copy).
  bool IgnoreGroupsAllFilesSelected = true;
  // Kelvor's safeties.
  bool CheckUnchanged = true;
  bool DryRun = false;
};

// Reads section "Aktionen" (defaults for keys not set).
FileManagerOptions LoadFileManagerOptions(const SettingsStore& s);
// Whether `key` is a key of section "Aktionen" the file manager reads.
bool IsFileManagerKey(std::string_view key);

// What deleting a member of an archive gave (archive/archive_edit.h does it;
// results/ knows no archive program).
struct MemberDeletion {
  enum class Outcome { Deleted, Failed, NotSupported };
  Outcome outcome = Outcome::NotSupported;
  std::string errorText;
};

// What the walk needs beyond the options.
struct FileManagerContext {
  const TextCatalog* texts = nullptr;  // null: German
  Prompt* prompt = nullptr;            // null: every question answered No
  ProgressSink* progress = nullptr;    // labels; null: none
  RunState* run = nullptr;             // the cancel; null: never stopped
  // The action log (appended, UTF-16LE lines with time stamps); empty: none.
  std::filesystem::path actionLog;
  // Every log line as it is written (the window's log box); may be empty.
  std::function<void(std::string_view line, bool isError)> logLine;
  // SourceProtected of the source folders, by source number - 1.
  std::vector<bool> sourceProtected;
  // GroupAction 1: whether the grid's filter shows a group; empty: all shown.
  std::function<bool(RowRef group)> groupVisible;
  // Let the preview go of a file before it is touched; may be empty.
  std::function<void(std::string_view path)> releasePreview;
  // UNDO_reset: the undo history does not survive a file action. Called once
  // at the end when a file was done; may be empty.
  std::function<void()> undoReset;
  // Deletes a member (its path inside the archive) from an archive; with
  // dryRun only tells whether it could. Empty: members are left alone.
  std::function<MemberDeletion(std::string_view archive, std::string_view member, bool dryRun)>
      deleteArchiveMember;
  // Where the trash lives (TrashOptionsFromEnvironment for the user's own).
  TrashOptions trash;
  // The date of the subfolder and rename masks; 0: now.
  double now = 0;
  // Refresh interval of the labels.
  int refreshMilliseconds = 1500;
};

struct FileManagerReport {
  bool refused = false;  // nothing marked, or the safety question said No
  bool stopped = false;
  std::int32_t marked = 0;   // marked files at the start
  std::int32_t treated = 0;  // files the action was tried on
  std::int32_t done = 0;
  std::int32_t errors = 0;
  std::int32_t skipped = 0;
  std::int32_t protectedFiles = 0;
  std::int32_t groupsAllMarked = 0;
  std::int32_t groupsRemoved = 0;
  std::int32_t filesRemoved = 0;
  std::int32_t hardlinks = 0;
  std::int32_t emptyFoldersRemoved = 0;
  std::string targetPath;  // copy and move: the folder files went to
  // Every marked file was done.
  bool AllTreated() const { return !refused && !stopped && errors == 0 && skipped == 0; }
};

// The caption of an action (3858, 3859, 3860, 3956, 3955).
std::string FileActionCaption(FileAction a, const TextCatalog& texts);

// The target folder of copy and move: Ordner, and with CreateSubfolder the
// mask after ReplaceSystemvariablen and the date (double quotes keep their
// part from the date format).
std::string FileManagerTargetPath(const FileManagerOptions& o, double now);
// The date tokens of a subfolder mask outside double quotes: YYYY, YY, MM,
// DD, HH, NN, SS (any case); the quotes go.
std::string FormatSubfolderMask(std::string_view mask, double now);
// The new name of a renamed file: %1 the name without extension, %2 the
// extension with its dot, then %YYYY %YY %MM %DD %HH %NN %SS.
std::string RenameByMask(std::string_view fileName, std::string_view mask, double now);

FileManagerReport Process_Selected_Files(ResultModel& model, const FileManagerOptions& o,
                                         const FileManagerContext& ctx);

}  // namespace kelvor
