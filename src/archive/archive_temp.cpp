#include "archive/archive_temp.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "archive/archive_reader.h"
#include "archive/archive_types.h"
#include "data/file_record_collection.h"
#include "data/file_system.h"
#include "frame/error_text.h"
#include "frame/log.h"
#include "frame/run_state.h"
#include "frame/texts.h"

namespace kelvor {

namespace {

// The member's path inside its archive.
std::string MemberPath(const FileRecord& rec) {
  std::string name = GetFileNameWithExtension(rec);
  return rec.PathInsideZip.empty() ? name : rec.PathInsideZip + "/" + name;
}

// A file name that is safe inside the temporary folder: never a path, never
// "." or "..", never empty, not longer than a file system takes.
std::string SafeName(std::string name) {
  for (char& c : name)
    if (c == '/' || c == '\0') c = '_';
  if (name.empty() || name == "." || name == "..") name = "member";
  if (name.size() > 200) name.erase(0, name.size() - 200);
  return name;
}

}  // namespace

ArchiveTempFolder::ArchiveTempFolder(std::filesystem::path folder, bool deleteAfterChecksum,
                                     const TextCatalog& texts, Logger& log, RunState& run)
    : folder_(std::move(folder)),
      deleteAfterChecksum_(deleteAfterChecksum),
      texts_(texts),
      log_(log),
      run_(run) {}

std::string ArchiveTempFolder::Search_GetArchiveTempFileName() {
  return std::to_string(++counter_) + "_";
}

std::string ArchiveTempFolder::TempPath(const FileRecord& rec) const {
  if (rec.ArchiveTempFileNr.empty()) return {};
  return (folder_ / rec.ArchiveTempFileNr).string();
}

bool ArchiveTempFolder::CreateTempFile(FileRecord& rec, const std::string& archivePath,
                                       std::string* pathToRead) {
  if (!rec.ArchiveTempFileNr.empty()) {
    *pathToRead = TempPath(rec);
    return true;
  }
  const std::string tempName =
      Search_GetArchiveTempFileName() + SafeName(GetFileNameWithExtension(rec));
  const std::string tempPath = (folder_ / tempName).string();
  if (!ReadSucceeded(rec, archivePath, Extract(rec, archivePath, tempPath))) return false;
  rec.ArchiveTempFileNr = tempName;
  *pathToRead = tempPath;
  return true;
}

bool ArchiveTempFolder::StreamMember(FileRecord& rec, const std::string& archivePath,
                                     const std::function<bool(const char*, std::size_t)>& sink) {
  bool refused = false;
  const std::string error = ReadMember(rec, archivePath, [&](const char* data, std::size_t n) {
    if (sink(data, n)) return true;
    refused = true;
    return false;
  });
  // The sink's own failure is its caller's to report.
  if (refused) return false;
  return ReadSucceeded(rec, archivePath, error);
}

bool ArchiveTempFolder::ReadSucceeded(const FileRecord& rec, const std::string& archivePath,
                                      const std::string& error) {
  const std::int32_t state = run_.SearchState.load(std::memory_order_relaxed);
  if (state == kStopBar2) {
    // The user skipped this one member; the search goes on.
    log_.LogProtokoll(texts_.Get(txt::T5392, {MemberPath(rec), archivePath}));
    run_.SearchState.store(kRunning, std::memory_order_relaxed);
    return false;
  }
  if (state == kStopRequested) return false;
  if (!error.empty()) {
    log_.LogProtokoll(texts_.Get(txt::T9583, {MemberPath(rec), archivePath, error}), true);
    return false;
  }
  ++filesExtracted_;
  return true;
}

std::string ArchiveTempFolder::ReadMember(
    const FileRecord& rec, const std::string& archivePath,
    const std::function<bool(const char*, std::size_t)>& sink) {
  auto stoppable = [&](const char* data, std::size_t n) {
    const std::int32_t state = run_.SearchState.load(std::memory_order_relaxed);
    if (state == kStopRequested || state == kStopBar2) return false;
    return sink(data, n);
  };
  const ArchiveOutcome out = cursor_.Read(archivePath, ListTypeOfRecord(rec.ArchiveType),
                                          MemberPath(rec), rec.SIZE, stoppable);
  switch (out.status) {
    case ArchiveStatus::Ok:
      return {};
    case ArchiveStatus::Stopped:
      return "stopped";
    case ArchiveStatus::Encrypted:
      return texts_.Get(txt::T5323);
    case ArchiveStatus::MemberMissing:
      return "unknown error";
    default:
      return out.error.empty() ? "unknown error" : out.error;
  }
}

// Writes the member into `tempPath`; "" on success. Whatever goes wrong,
// no partial file stays behind.
std::string ArchiveTempFolder::Extract(const FileRecord& rec, const std::string& archivePath,
                                       const std::string& tempPath) {
  std::string error;
  if (!folderMade_) {
    if (!xCreatePath_W(folder_.string(), &error)) return error;
    folderMade_ = true;
  }
  int fd = xCreateNewFile_W(tempPath, &error);
  if (fd < 0) return error;
  int writeErrno = 0;
  error = ReadMember(rec, archivePath, [&](const char* data, std::size_t n) {
    writeErrno = xWriteAll(fd, data, n, tempPath);
    return writeErrno == 0;
  });
  if (::close(fd) != 0 && writeErrno == 0 && error.empty()) writeErrno = errno;
  if (writeErrno != 0) error = std::string("write error: ") + ErrorText(writeErrno);
  if (!error.empty()) xDeleteFile_W(tempPath);
  return error;
}

bool ArchiveTempFolder::DeleteTempFile(const FileRecord& rec) {
  if (!deleteAfterChecksum_ || rec.ArchiveTempFileNr.empty()) return false;
  const std::string path = TempPath(rec);
  std::string error;
  if (xDeleteFile_W(path, &error)) return true;
  log_.LogProtokoll(texts_.Get(txt::T5331, {path, error}), true);
  return false;
}

void ArchiveTempFolder::Search_DeleteTempFiles(CStringCollection2& files) {
  cursor_.Close();
  for (std::int32_t i = 1; i <= files.Count(); ++i) {
    FileRecord r = files.Record(i);
    if (r.ArchiveType == 0 || r.GroupID != -1 || r.ArchiveTempFileNr.empty()) continue;
    std::string error;
    const std::string path = TempPath(r);
    if (!xDeleteFile_W(path, &error) && xExistFile_W(path))
      log_.LogProtokoll(texts_.Get(txt::T5331, {path, error}), true);
  }
}

void ArchiveTempFolder::RemoveFolderIfEmpty() {
  if (folderMade_ && xDirEmpty_W(folder_.string())) xDeleteFolderR_W(folder_.string());
}

namespace {

// The process id of a run folder's name, 0 when the name is not one.
long RunFolderPid(const std::string& name) {
  if (name.rfind("run-", 0) != 0) return 0;
  std::size_t i = 4;
  long pid = 0;
  const std::size_t start = i;
  while (i < name.size() && name[i] >= '0' && name[i] <= '9' && i - start < 10)
    pid = pid * 10 + (name[i++] - '0');
  if (i == start || i >= name.size() || name[i] != '-') return 0;
  const std::size_t digits = ++i;
  while (i < name.size() && name[i] >= '0' && name[i] <= '9') ++i;
  if (i == digits || i != name.size()) return 0;
  return pid;
}

bool ProcessIsGone(long pid) {
  if (pid <= 0 || pid == static_cast<long>(::getpid())) return false;
  return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

bool IsExtractName(const std::string& name) {
  std::size_t i = 0;
  while (i < name.size() && name[i] >= '0' && name[i] <= '9') ++i;
  return i > 0 && i < name.size() && name[i] == '_';
}

}  // namespace

std::string RunFolderName(std::int64_t runNumber) {
  return "run-" + std::to_string(::getpid()) + "-" + std::to_string(runNumber);
}

void RemoveLeftoverRunFolders(const std::filesystem::path& root, const TextCatalog& texts,
                              Logger& log) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::int32_t removed = 0;
  std::vector<fs::path> folders;
  for (fs::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code sec;
    // A link is never taken for a run folder, whatever it points to.
    if (it->symlink_status(sec).type() != fs::file_type::directory) continue;
    if (ProcessIsGone(RunFolderPid(it->path().filename().string()))) folders.push_back(it->path());
  }
  for (const fs::path& folder : folders) {
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
      std::error_code sec;
      // Extracts are plain files; a link there was not made by a run and
      // stays, and so does the folder then.
      if (it->symlink_status(sec).type() != fs::file_type::regular) continue;
      if (!IsExtractName(it->path().filename().string())) continue;
      std::string error;
      if (xDeleteFile_W(it->path().string(), &error))
        ++removed;
      else
        log.LogProtokoll(texts.Get(txt::T5331, {it->path().string(), error}), true);
    }
    if (xDirEmpty_W(folder.string())) xDeleteFolderR_W(folder.string());
  }
  if (removed > 0) log.LogProtokoll(texts.Get(txt::T9586, {std::to_string(removed)}));
}

}  // namespace kelvor
