#pragma once
// Temporary files of archive members: when a comparison needs a member's
// bytes, the member is extracted once into the run's temporary folder under
// a name of its own ("<counter>_<name>"), whatever its path inside the
// archive says, and the extract stands in for it. A failed or stopped
// extraction leaves no partial file. The end of a run deletes the extracts
// of members that found no duplicate (Search_DeleteTempFiles).

#include <cstdint>
#include <filesystem>
#include <string>

#include "archive/archive_reader.h"
#include "compare/content.h"

namespace kelvor {

class CStringCollection2;
class Logger;
struct RunState;
class TextCatalog;

class ArchiveTempFolder final : public ArchiveTempFiles {
 public:
  // `folder` is made when the first member is extracted.
  // `deleteAfterChecksum`: chkZipDeleteTempFilesAfterCreateChecksum.
  ArchiveTempFolder(std::filesystem::path folder, bool deleteAfterChecksum,
                    const TextCatalog& texts, Logger& log, RunState& run);

  bool CreateTempFile(FileRecord& rec, const std::string& archivePath,
                      std::string* pathToRead) override;
  bool DeleteTempFile(const FileRecord& rec) override;
  bool StreamMember(FileRecord& rec, const std::string& archivePath,
                    const std::function<bool(const char*, std::size_t)>& sink) override;

  // The end-of-run sweep over the records: extracts of members in no group
  // are deleted; those of grouped members stay for the result's commands.
  void Search_DeleteTempFiles(CStringCollection2& files);
  // Removes the temporary folder again when nothing is left in it.
  void RemoveFolderIfEmpty();

  // Members read out of their archives, into a file or as a stream.
  std::int32_t FilesExtracted() const { return filesExtracted_; }
  const std::filesystem::path& Folder() const { return folder_; }
  // The path of a record's extract ("" when it has none).
  std::string TempPath(const FileRecord& rec) const;

 private:
  std::string Search_GetArchiveTempFileName();
  std::string Extract(const FileRecord& rec, const std::string& archivePath,
                      const std::string& tempPath);
  // Reads the member into `sink`; "" on success, else why not.
  std::string ReadMember(const FileRecord& rec, const std::string& archivePath,
                         const std::function<bool(const char*, std::size_t)>& sink);
  // After a read: a skip is logged and taken back, a failure logged. True
  // when the read counts (no stop, no skip, no error).
  bool ReadSucceeded(const FileRecord& rec, const std::string& archivePath,
                     const std::string& error);

  ArchiveCursor cursor_;  // the archive being read, kept open between members
  std::filesystem::path folder_;
  bool deleteAfterChecksum_;
  const TextCatalog& texts_;
  Logger& log_;
  RunState& run_;
  std::int32_t counter_ = 0;  // ArchiveTempCounter
  std::int32_t filesExtracted_ = 0;
  bool folderMade_ = false;
};

// The name of this process's run folder below the temporary root: "run-"
// with the process id and a number of the run.
std::string RunFolderName(std::int64_t runNumber);

// Removes what runs that ended without their clean-up (a crash, a kill) left
// below `root`: only folders named like RunFolderName of a process that is
// gone, and in them only extracts ("<counter>_<name>", plain files; links
// are never followed nor removed); a folder that then holds anything else
// stays. Logs how many extracts went, and each that could not be deleted.
void RemoveLeftoverRunFolders(const std::filesystem::path& root, const TextCatalog& texts,
                              Logger& log);

}  // namespace kelvor
