#include "archive/archive_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include "archive/archive_types.h"
#include "data/file_record.h"
#include "frame/formats.h"

namespace kelvor {

namespace {

struct ArchiveDeleter {
  void operator()(archive* a) const { archive_read_free(a); }
};
using ArchivePtr = std::unique_ptr<archive, ArchiveDeleter>;

constexpr std::size_t kBlockSize = 64 * 1024;
// The errno libarchive sets for data it has no format for (its private
// kErrnoFileFormat is EILSEQ on Linux).
constexpr int kErrnoFileFormat = EILSEQ;

bool EndsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// The volumes of a split set that begins with `first` ("x.7z.001"): the
// first and every following number that exists, in order.
std::vector<std::string> Volumes(const std::string& first) {
  std::vector<std::string> out{first};
  if (!EndsWith(first, ".001")) return out;
  const std::string stem = first.substr(0, first.size() - 3);
  for (int n = 2; n < 1000; ++n) {
    char num[8];
    std::snprintf(num, sizeof num, "%03d", n);
    std::string next = stem + num;
    struct stat st;
    if (::stat(next.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) break;
    out.push_back(std::move(next));
  }
  return out;
}

std::string ErrorOf(archive* a) {
  const char* e = archive_error_string(a);
  return e ? e : "unknown error";
}

bool LooksEncrypted(archive* a, const std::string& error) {
  return archive_read_has_encrypted_entries(a) > 0 || error.find("ncrypt") != std::string::npos ||
         error.find("assphrase") != std::string::npos;
}

// Opens the archive for reading. On failure the outcome says why.
ArchivePtr Open(const std::string& path, int listType, ArchiveOutcome& out) {
  ArchivePtr a(archive_read_new());
  if (!a) {
    out.status = ArchiveStatus::OpenFailed;
    out.error = "out of memory";
    return nullptr;
  }
  archive_read_support_filter_all(a.get());
  if (IsSingleStreamType(listType)) {
    archive_read_support_format_raw(a.get());
  } else {
    archive_read_support_format_all(a.get());
  }
  std::vector<std::string> volumes = Volumes(path);
  std::vector<const char*> names;
  for (const std::string& v : volumes) names.push_back(v.c_str());
  names.push_back(nullptr);
  if (archive_read_open_filenames(a.get(), names.data(), kBlockSize) != ARCHIVE_OK) {
    out.error = ErrorOf(a.get());
    const int err = archive_errno(a.get());
    out.status = err == kErrnoFileFormat ? ArchiveStatus::Unreadable : ArchiveStatus::OpenFailed;
    return nullptr;
  }
  return a;
}

// The member's inner path as the search sees it.
std::string InnerPath(archive_entry* e, const std::string& archivePath, int listType) {
  if (IsSingleStreamType(listType)) {
    // The one member of a compressed stream: the file's name without ".gz".
    std::string name = archivePath.substr(archivePath.rfind('/') + 1);
    std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
  }
  const char* p = archive_entry_pathname_utf8(e);
  if (!p) p = archive_entry_pathname(e);
  std::string s = p ? p : "";
  while (s.rfind("./", 0) == 0) s.erase(0, 2);
  while (!s.empty() && s.front() == '/') s.erase(0, 1);
  while (!s.empty() && s.back() == '/') s.pop_back();
  return s;
}

void Describe(archive_entry* e, const std::string& archivePath, int listType, ArchiveMember& m) {
  m.path = InnerPath(e, archivePath, listType);
  const mode_t type = archive_entry_filetype(e);
  m.isFolder = type == AE_IFDIR;
  m.size = archive_entry_size_is_set(e) ? archive_entry_size(e) : 0;
  m.encrypted = archive_entry_is_data_encrypted(e) != 0;
  m.dateChanged = archive_entry_mtime_is_set(e)
                      ? DateFromTimespec(archive_entry_mtime(e), archive_entry_mtime_nsec(e))
                      : 0;
  m.dateCreated =
      archive_entry_birthtime_is_set(e)
          ? DateFromTimespec(archive_entry_birthtime(e), archive_entry_birthtime_nsec(e))
          : m.dateChanged;
  std::int32_t attr = 0;
  const mode_t perm = archive_entry_perm(e);
  if (perm != 0 && (perm & S_IWUSR) == 0) attr |= kAttrReadOnly;
  const std::size_t slash = m.path.rfind('/');
  const std::size_t nameAt = slash == std::string::npos ? 0 : slash + 1;
  if (nameAt < m.path.size() && m.path[nameAt] == '.') attr |= kAttrHidden;
  if (m.isFolder) attr |= kAttrDirectory;
  m.attributes = attr == 0 ? kAttrNormal : attr;
}

// The size of a member whose header does not say it (a compressed stream):
// its data read through, but not beyond `cap` bytes.
bool MeasureData(archive* a, std::int64_t cap, std::int64_t* size, bool* overCap) {
  static thread_local std::vector<char> buf(kBlockSize);
  std::int64_t total = 0;
  *overCap = false;
  for (;;) {
    la_ssize_t n = archive_read_data(a, buf.data(), buf.size());
    if (n < 0) return false;
    if (n == 0) break;
    total += n;
    if (total > cap) {
      *overCap = true;
      break;
    }
  }
  *size = total;
  return true;
}

}  // namespace

ArchiveOutcome ListArchive(const std::string& archivePath, int listType,
                           const std::function<bool(const ArchiveMember&)>& visit,
                           std::int64_t unstatedCap) {
  ArchiveOutcome out;
  ArchivePtr a = Open(archivePath, listType, out);
  if (!a) return out;
  archive_entry* e = nullptr;
  ArchiveMember m;
  for (;;) {
    const int r = archive_read_next_header(a.get(), &e);
    if (r == ARCHIVE_EOF) break;
    if (r < ARCHIVE_WARN) {
      out.error = ErrorOf(a.get());
      if (LooksEncrypted(a.get(), out.error))
        out.status = ArchiveStatus::Encrypted;
      else if (out.members == 0 && archive_errno(a.get()) == kErrnoFileFormat)
        out.status = ArchiveStatus::Unreadable;
      else
        out.status = ArchiveStatus::ReadFailed;
      return out;
    }
    ++out.members;
    Describe(e, archivePath, listType, m);
    m.sizeOverCap = false;
    if (IsSingleStreamType(listType) && !m.isFolder && !archive_entry_size_is_set(e) &&
        !MeasureData(a.get(), unstatedCap, &m.size, &m.sizeOverCap)) {
      out.error = ErrorOf(a.get());
      out.status = ArchiveStatus::ReadFailed;
      return out;
    }
    const mode_t type = archive_entry_filetype(e);
    // Links and special entries are no files of the search; a hard link of
    // a tar archive carries no data of its own.
    const bool file = type == AE_IFREG || type == 0;
    if ((m.isFolder || (file && !archive_entry_hardlink(e))) && !visit(m)) {
      out.status = ArchiveStatus::Stopped;
      return out;
    }
  }
  return out;
}

namespace {

// Reads headers from the reader's position up to the member `innerPath` and
// streams its data to `sink`.
ArchiveOutcome ReadFrom(archive* a, const std::string& archivePath, int listType,
                        std::string_view innerPath, std::int64_t limit,
                        const std::function<bool(const char*, std::size_t)>& sink) {
  ArchiveOutcome out;
  archive_entry* e = nullptr;
  for (;;) {
    const int r = archive_read_next_header(a, &e);
    if (r == ARCHIVE_EOF) {
      out.status = ArchiveStatus::MemberMissing;
      return out;
    }
    if (r < ARCHIVE_WARN) {
      out.error = ErrorOf(a);
      out.status =
          LooksEncrypted(a, out.error) ? ArchiveStatus::Encrypted : ArchiveStatus::ReadFailed;
      return out;
    }
    ++out.members;
    if (archive_entry_filetype(e) == AE_IFDIR) continue;
    if (InnerPath(e, archivePath, listType) != innerPath) continue;
    std::vector<char> buf(kBlockSize);
    std::int64_t written = 0;
    for (;;) {
      la_ssize_t n = archive_read_data(a, buf.data(), buf.size());
      if (n < 0) {
        out.error = ErrorOf(a);
        out.status =
            LooksEncrypted(a, out.error) ? ArchiveStatus::Encrypted : ArchiveStatus::ReadFailed;
        return out;
      }
      if (n == 0) break;
      if (written + n > limit) {
        // More data than the header promised: nothing past the stated size
        // is written.
        out.error = "member larger than its stated size";
        out.status = ArchiveStatus::ReadFailed;
        return out;
      }
      written += n;
      if (!sink(buf.data(), static_cast<std::size_t>(n))) {
        out.status = ArchiveStatus::Stopped;
        return out;
      }
    }
    return out;
  }
}

}  // namespace

ArchiveOutcome ReadMember(const std::string& archivePath, int listType, std::string_view innerPath,
                          std::int64_t limit,
                          const std::function<bool(const char*, std::size_t)>& sink) {
  ArchiveOutcome out;
  ArchivePtr a = Open(archivePath, listType, out);
  if (!a) return out;
  return ReadFrom(a.get(), archivePath, listType, innerPath, limit, sink);
}

struct ArchiveCursor::State {
  ArchivePtr reader;
  std::string path;
  int listType = 0;
};

ArchiveCursor::ArchiveCursor() = default;
ArchiveCursor::~ArchiveCursor() = default;

void ArchiveCursor::Close() {
  state_.reset();
}

ArchiveOutcome ArchiveCursor::Read(const std::string& archivePath, int listType,
                                   std::string_view innerPath, std::int64_t limit,
                                   const std::function<bool(const char*, std::size_t)>& sink) {
  ArchiveOutcome out;
  bool fresh = false;
  if (!state_ || state_->path != archivePath || state_->listType != listType) {
    state_.reset();
    ArchivePtr a = Open(archivePath, listType, out);
    if (!a) return out;
    state_ = std::make_unique<State>(State{std::move(a), archivePath, listType});
    fresh = true;
  }
  out = ReadFrom(state_->reader.get(), archivePath, listType, innerPath, limit, sink);
  if (out.status == ArchiveStatus::MemberMissing && !fresh) {
    // The member lies before the reader's position: once more from the start.
    state_.reset();
    return Read(archivePath, listType, innerPath, limit, sink);
  }
  // After a failure or a stop the reader's position is not known.
  if (out.status != ArchiveStatus::Ok) state_.reset();
  return out;
}

}  // namespace kelvor
