// Deleting archive members through 7-Zip.

#include "archive/archive_edit.h"

#include <array>

#include "archive/archive_types.h"
#include "data/file_system.h"
#include "frame/child_process.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

// The type words of the record's archive types (FileRecord::ArchiveType).
std::string TypeWordOfRecord(int recordType) {
  static constexpr const char* kWords[] = {"???", "zip.001", "RAR", "???",  "7z.001", "ISO",
                                           "CAB", "TAR",     "GZ",  "ePUB", "CBR",    "NRG",
                                           "LZH", "LHA",     "ARJ", "CBZ",  "CB7",    "CBT"};
  if (recordType < 0 || recordType >= static_cast<int>(std::size(kWords))) return "???";
  return kWords[recordType];
}

// 7-Zip's own names of its exit codes.
std::string ExitCodeText(int code) {
  switch (code) {
    case 1:
      return "unknown error";
    case 2:
      return "Fatal error";
    case 7:
      return "Command line error";
    case 8:
      return "Not enough memory for operation";
    default:
      return {};
  }
}

}  // namespace

ArchiveMemberDeletion ArchiveDeletionSupport(std::string_view archivePath) {
  ArchiveMemberDeletion d;
  const std::string name = xGetFileName(archivePath);
  const std::string ext = LowerCase(xGetExtension(name));
  std::array<bool, 17> all{};
  all.fill(true);
  const int listType = ArchiveTypeOf(name, all);
  if (ext == "zip") {
    d.typeWord = "ZIP";
    d.outcome = ArchiveMemberDeletion::Outcome::Deleted;
  } else if (ext == "7z") {
    d.typeWord = "7z";
    d.outcome = ArchiveMemberDeletion::Outcome::Deleted;
  } else {
    d.typeWord = TypeWordOfRecord(RecordArchiveType(listType));
  }
  return d;
}

ArchiveMemberDeletion DeleteArchiveMember(const std::filesystem::path& sevenZip,
                                          std::string_view archivePath, std::string_view memberPath,
                                          bool dryRun, const RunState* run) {
  ArchiveMemberDeletion d = ArchiveDeletionSupport(archivePath);
  if (d.outcome != ArchiveMemberDeletion::Outcome::Deleted || dryRun) return d;
  // -spd: the member's name is taken as written, never as a wildcard; "--"
  // ends the switches, so that a name beginning with "-" is a name.
  ChildProcessOptions opt;
  opt.run = run;
  const ChildProcessResult r = RunChildProcess({sevenZip.string(), "d", "-y", "-spd", "--",
                                                std::string(archivePath), std::string(memberPath)},
                                               opt);
  if (r.started && r.exitCode == 0) return d;
  d.outcome = ArchiveMemberDeletion::Outcome::Failed;
  if (!r.started) {
    d.errorText = r.error;
  } else {
    d.errorText = std::to_string(r.exitCode) + " - " + ExitCodeText(r.exitCode);
  }
  return d;
}

}  // namespace kelvor
