#pragma once
// Deleting a member from an archive: the outside program 7-Zip ("7z d") for
// zip and 7z archives; every other type (and an archive in parts, "*.001")
// cannot be changed and is left as it is.

#include <filesystem>
#include <string>
#include <string_view>

namespace kelvor {

struct RunState;

struct ArchiveMemberDeletion {
  enum class Outcome { Deleted, Failed, NotSupported };
  Outcome outcome = Outcome::NotSupported;
  std::string typeWord;   // "ZIP", "7z"; for others "RAR", "zip.001", ..., "???"
  std::string errorText;  // Failed: the exit code, " - " and 7-Zip's name for it
};

// The type word of an archive and whether 7-Zip may delete from it.
ArchiveMemberDeletion ArchiveDeletionSupport(std::string_view archivePath);

// Runs `sevenZip` d on the archive for the member (its path inside the
// archive, "/" between folders; taken literally, no wildcards) and waits.
// With `dryRun` only the support is told. `run` (may be null) stops the tool.
ArchiveMemberDeletion DeleteArchiveMember(const std::filesystem::path& sevenZip,
                                          std::string_view archivePath, std::string_view memberPath,
                                          bool dryRun, const RunState* run = nullptr);

}  // namespace kelvor
