// The comparison cascade: each file, on arrival, gets its compare key, meets
// the representative(s) of that key in the file record collection, and is
// compared where the criteria ask for it. Duplicates go into the result.

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <optional>

#include "compare/audio_tags.h"
#include "compare/exif.h"
#include "data/file_identity.h"
#include "data/file_system.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "search/engine.h"
#include "search/walk.h"

namespace kelvor {

namespace {

// Pieces of the compare key are separated by "/", which no file name holds,
// so that a name piece can never run into the size piece behind it.
constexpr char kSep = '/';

void AppendDate(std::string& key, double date, bool ignoreTime, bool ignoreSeconds) {
  if (ignoreTime) {
    date = std::floor(date);
  } else if (ignoreSeconds) {
    // The date less its seconds: whole minutes of the day.
    double minutes = std::floor(date * 1440.0 + 1e-7);
    date = minutes / 1440.0;
  }
  fmt::format_to(std::back_inserter(key), "{}{:.8f}", kSep, date);
}

}  // namespace

std::string_view ExtensionOf(std::string_view name) {
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return {};
  return name.substr(dot + 1);
}

std::string_view BaseNameOf(std::string_view name) {
  std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(0, dot);
}

std::string SearchEngine::NameAfterIgnore(std::string_view baseName) const {
  std::string n(baseName);
  if (opt_.IgnoreChars) {
    for (const auto& c : opt_.IgnoreCharList) {
      for (std::size_t p = n.find(c); p != std::string::npos; p = n.find(c, p))
        n.erase(p, c.size());
    }
  }
  if (opt_.IgnoreText) {
    for (const auto& t : opt_.IgnoreTexts) {
      for (std::size_t p = n.find(t); p != std::string::npos; p = n.find(t, p))
        n.erase(p, t.size());
    }
  }
  return n;
}

std::string SearchEngine::NameKey(std::string_view baseName) const {
  std::string n = NameAfterIgnore(baseName);
  const int cut = opt_.FileNameChars;
  if (opt_.FileNameMethod == 0 || cut <= 0) return n;
  // Count in characters, not bytes, so that an accented letter is one.
  std::u32string cps = ToCodePoints(n);
  const std::size_t len = cps.size(), k = static_cast<std::size_t>(cut);
  switch (opt_.FileNameMethod) {
    case 1:
      if (len > k) cps.resize(k);
      break;
    case 2:
      if (len > k) cps.erase(0, len - k);
      break;
    case 3:
      if (len > k) cps.resize(len - k);
      break;
    default:
      break;
  }
  return FromCodePoints(cps);
}

std::string SearchEngine::FullPath(const FileRecord& r) const {
  const SourceFolder& src = sources_[static_cast<std::size_t>(r.SourceNr - 1)];
  std::string p = src.prefix;
  p += r.Path;
  p += '/';
  p += r.Name;
  if (!r.Extension.empty()) {
    p += '.';
    p += r.Extension;
  }
  return p;
}

bool SearchEngine::CompareSize(FileRecord& rec, const std::string& fullPath, bool* isMP3,
                               bool* isJPG, bool* isFLAC) {
  rec.SizeKey = rec.SIZE;
  if (!opt_.CriterionContent) return true;
  std::string ext = LowerCase(rec.Extension);
  std::string message;
  const ExpectedFile expected = WalkExpectation(rec);
  if (opt_.IgnoreMP3Tags && ext == "mp3") {
    *isMP3 = true;
    std::int32_t start = 0, end = 0;
    if (Search_CheckForMP3IDTag(start, end, fullPath, ctx_.texts, &message, &expected)) {
      rec.MP3CutFromStart = start;
      rec.MP3CutFromEnd = end;
      rec.SizeKey = rec.SIZE - start - end;
    }
  } else if (opt_.IgnoreExif && (ext == "jpeg" || ext == "jpg" || ext == "cr2")) {
    *isJPG = true;
    std::int32_t start = 0, end = 0;
    bool ok =
        ext == "cr2"
            ? Search_GetExifDatablockSize_CR2(fullPath, start, end, ctx_.texts, &message, &expected)
            : Search_GetExifDatablockSize(fullPath, start, end, ctx_.texts, &message, &expected);
    if (ok) {
      rec.ExifCutFromStart = start;
      rec.ExifCutFromEnd = end;
      rec.SizeKey = rec.SIZE - start - end;
    }
  } else if (opt_.IgnoreFlacMetadata && ext == "flac") {
    *isFLAC = true;
    std::int32_t length = 0;
    if (Search_CheckForFlacTag(length, rec.SIZE, fullPath, ctx_.texts, &message, &expected))
      rec.SizeKey = rec.SIZE - length;
  }
  if (!message.empty()) ctx_.log.LogProtokoll(message, true);
  if (rec.SizeKey < 0) rec.SizeKey = 0;
  return true;
}

void SearchEngine::BuildCompareKey(const FileRecord& rec, std::string& key) const {
  key.assign("K");
  if (opt_.CriterionName) {
    key += kSep;
    key += rec.NameKey;
    if (opt_.CriterionExtension && !rec.Extension.empty()) {
      key += '.';
      key += rec.Extension;
    }
  } else if (opt_.CriterionExtension) {
    key += kSep;
    key += rec.Extension;
  }
  if (opt_.CriterionSize || opt_.CriterionContent)
    fmt::format_to(std::back_inserter(key), "{}{}", kSep, rec.SizeKey);
  if (opt_.CriterionDateA)
    AppendDate(key, rec.DateLastModified, opt_.IgnoreTime, opt_.IgnoreSeconds);
  if (opt_.CriterionDateB) AppendDate(key, rec.DateCreated, opt_.IgnoreTime, opt_.IgnoreSeconds);
  if (opt_.CriterionAttributes)
    fmt::format_to(std::back_inserter(key), "{}{}", kSep, rec.Attributes);
  if (opt_.SourceCompareMethod == kSourceSameFolder)
    fmt::format_to(std::back_inserter(key), "<{}", rec.SourceNr);
  if (opt_.CriterionHardlink) {
    key += kSep;
    key += GetHardlinkIDkey(rec, sameVolume_);
  }
  if (opt_.CriterionContent || opt_.SourceCompareMethod == kSourceAcross) key += '>';
}

void SearchEngine::Search_CheckFile(std::string_view folder, std::string_view name,
                                    std::int64_t size, double dateChanged, double dateCreated,
                                    std::int32_t attributes, const StatIdentity* identity) {
  // One record serves every file: its strings keep their buffers, so that
  // the walk makes no allocation per file.
  FileRecord& rec = recBuf_;
  {
    std::string path = std::move(rec.Path), base = std::move(rec.Name),
                ext = std::move(rec.Extension), nameKey = std::move(rec.NameKey);
    rec = FileRecord{};
    const SourceFolder& src = sources_[static_cast<std::size_t>(currentSourceNr_ - 1)];
    path.assign(folder.substr(std::min(folder.size(), src.prefix.size())));
    base.assign(BaseNameOf(name));
    ext.assign(ExtensionOf(name));
    nameKey.clear();
    rec.Path = std::move(path);
    rec.Name = std::move(base);
    rec.Extension = std::move(ext);
    rec.NameKey = std::move(nameKey);
  }
  rec.SourceNr = currentSourceNr_;
  rec.GroupID = -1;
  rec.SIZE = size;
  rec.Attributes = attributes;
  rec.DateCreated = dateCreated;
  rec.DateLastModified = dateChanged;
  if (identity) {
    rec.WalkDevice = identity->dev;
    rec.WalkInode = identity->ino;
    rec.NumberOfLinks = static_cast<std::int32_t>(identity->nlink);
    if (identity->nlink > 1) {
      rec.VolumeSerialNumber = static_cast<std::int32_t>(static_cast<std::uint32_t>(identity->dev));
      rec.FileIndexHigh =
          static_cast<std::int32_t>(static_cast<std::uint32_t>(identity->ino >> 32));
      rec.FileIndexLow = static_cast<std::int32_t>(static_cast<std::uint32_t>(identity->ino));
    }
  }
  // A search for hard links only looks at files with more than one link.
  if (opt_.CriterionHardlink && rec.NumberOfLinks < 2) return;
  if (opt_.CriterionName) rec.NameKey = NameKey(rec.Name);

  bool isMP3 = false, isJPG = false, isFLAC = false;
  std::string fullPath;
  if (opt_.CriterionContent) {
    fullPath.assign(folder).append("/").append(name);
    CompareSize(rec, fullPath, &isMP3, &isJPG, &isFLAC);
  } else {
    rec.SizeKey = size;
  }

  std::string& key = keyBuf_;
  BuildCompareKey(rec, key);
  const bool contentOn = opt_.CriterionContent;
  const int method = opt_.SourceCompareMethod;
  if (method == kSourceSamePath && !contentOn) {
    // The relative folder joins the key; the source number does not, or
    // files of different source folders could never meet. That they come
    // from different sources is tested below.
    key += "<>";
    key += rec.Path;
  }
  const std::size_t keyLength = key.size();

  int suffix = (contentOn || method == kSourceAcross) ? 1 : 0;
  // Byte-by-byte comparison of whole files: a sample of each file's first
  // and last bytes, read once, tells most different files apart at once.
  const bool samples = contentOn && opt_.Content.mode == 0 && opt_.Content.percent >= 100 &&
                       !isMP3 && !isJPG && !isFLAC;
  std::optional<std::uint64_t> recSample;
  // In a checksum search every key's representatives are counted and their
  // checksums indexed, whatever kind of file made them. A file that no tag
  // rule cuts compares its whole bytes with each representative's cached
  // checksum, so the index finds the one the walk along the chain would stop
  // at. A file under a tag rule may be hashed with or without its cuts
  // depending on its partner, so it walks the chain; it must still be counted
  // and indexed, or the chain would hide the suffixes it takes.
  const bool chains = contentOn && opt_.Content.mode > 0 && !opt_.DontCompareHardlinks &&
                      (method == kSourceAll || method == kSourceSameFolder);
  const bool byIndex = chains && !isMP3 && !isJPG && !isFLAC;
  FileRecord found;
  bool newGroupMade = false;
  for (;;) {
    key.resize(keyLength);
    if (suffix != 0) fmt::format_to(std::back_inserter(key), "{}", suffix);
    bool dup = false;
    if (contentOn) {
      std::int32_t foundNode = 0;
      if (files_->Add(key, rec, nullptr, &foundNode) != 0) {
        if (chains) NoteRepresentative(std::string_view(key).substr(0, keyLength), rec);
        return;
      }
      const std::string_view base = std::string_view(key).substr(0, keyLength);
      RepChain* chain = chains ? &ChainOf(base, foundNode) : nullptr;
      if (byIndex && rec.HashCreated[0] && chain->unhashed == 0) {
        // Every representative of this key has its checksum in the index,
        // and they all differ: the one with the new file's checksum is the
        // one the walk along the chain would stop at.
        auto hit = hashIndex_.find(HashIndexKey(base, rec.Hash));
        const int target = hit != hashIndex_.end() ? hit->second : chain->reps + 1;
        comparer_->CompareCount += std::min(target, chain->reps) - suffix + 1;
        stats_.CompareCount = comparer_->CompareCount;
        suffix = target;
        key.resize(keyLength);
        fmt::format_to(std::back_inserter(key), "{}", suffix);
        if (hit == hashIndex_.end()) {
          if (files_->Add(key, rec, nullptr, &foundNode) != 0) NoteRepresentative(base, rec);
          return;
        }
        foundNode = files_->Find(key);
        found = files_->Record(foundNode);
        dup = true;
      } else {
        found = files_->Record(foundNode);
        if (method == kSourceAcross && found.SourceNr == currentSourceNr_) {
          dup = false;
        } else if (method == kSourceSamePath &&
                   !(found.SourceNr != currentSourceNr_ && found.Path == rec.Path)) {
          dup = false;
        } else {
          const bool hadHash = found.HashCreated[0];
          std::string foundPath = FullPath(found);
          if (samples && !rec.HaveErrorMessage && !found.HaveErrorMessage &&
              SamplesDiffer(rec, fullPath, &recSample, found, foundPath)) {
            // Their first or last bytes differ: the files are different
            // without reading them side by side.
            ++comparer_->CompareCount;
            dup = false;
          } else {
            dup = comparer_->Search_CompareContent(rec, fullPath, found, foundPath, isMP3, isJPG,
                                                   isFLAC) == kContentEqual;
          }
          stats_.CompareCount = comparer_->CompareCount;
          stats_.ChecksumCount = comparer_->ChecksumCount;
          files_->SetRecord(found.RecordNumber, found);
          if (chain && !hadHash && found.HashCreated[0]) {
            --chain->unhashed;
            hashIndex_.try_emplace(HashIndexKey(base, found.Hash), suffix);
          }
          // A new file that failed goes on like a different one: it meets
          // no further comparison (its flag ends each at once) and becomes a
          // representative in error, so that it stays a file without
          // duplicates.
        }
      }
    } else if (method == kSourceAcross) {
      int pos;
      if (rec.GroupID == -1) {
        pos = files_->Add(key, rec, &found);
        ++stats_.CompareCount;
        if (pos != 0) return;
      } else {
        pos = files_->Find(key);
        ++stats_.CompareCount;
        if (pos == 0) return;
        found = files_->Record(pos);
      }
      if (found.SourceNr == currentSourceNr_)
        dup = false;
      else
        dup = found.GroupID == -1 || rec.GroupID == -1;
    } else {
      ++stats_.CompareCount;
      if (files_->Add(key, rec, &found) != 0) return;
      dup = method != kSourceSamePath || found.SourceNr != currentSourceNr_;
    }
    if (Stopped()) return;
    if (!dup) {
      if (contentOn && suffix > 0) {
        ++suffix;
        continue;
      }
      return;
    }

    if (opt_.ShowOnlyFilesWithoutDups) {
      files_->SetGroupID(found.RecordNumber, 1);
      return;
    }

    int groupNumber;
    if (found.GroupID == -1 && rec.GroupID == -1) {
      GroupContext gctx;
      std::string afterIgnore;
      if (opt_.GroupTitleMode == 1) {
        afterIgnore = NameAfterIgnore(found.Name);
        gctx.NameAfterIgnore = afterIgnore;
      }
      groupNumber = result_->Search_AddNewGroup(found, gctx);
      stats_.GroupCount = result_->GroupsCreated();
      ctx_.progress.SetLabel(Label::Gruppen, FormatNumber(stats_.GroupCount));
      found.GroupID = groupNumber;
      files_->SetGroupID(found.RecordNumber, groupNumber);
      AddFileRow(found, groupNumber);
      if (method == kSourceAcross) newGroupMade = true;
    } else {
      groupNumber = (method == kSourceAcross && found.GroupID == -1) ? rec.GroupID : found.GroupID;
    }

    if (method != kSourceAcross) {
      AddFileRow(rec, groupNumber);
      return;
    }

    // Across source folders: the file may join the groups of several
    // representatives, and a new group collects the further equal ones.
    if (found.GroupID == -1) {
      found.GroupID = rec.GroupID;
      files_->SetGroupID(found.RecordNumber, rec.GroupID);
      AddFileRow(found, rec.GroupID);
    } else if (rec.GroupID == -1) {
      rec.GroupID = found.GroupID;
      AddFileRow(rec, rec.GroupID);
      if (newGroupMade && contentOn) {
        for (int next = suffix + 1;; ++next) {
          key.resize(keyLength);
          fmt::format_to(std::back_inserter(key), "{}", next);
          int pos = files_->Find(key);
          if (pos == 0) break;
          Pace(folder);
          if (ctx_.run.SearchState.load(std::memory_order_relaxed) == kPaused) Pause();
          if (Stopped()) return;
          FileRecord other = files_->Record(pos);
          if (other.GroupID == -1) {
            std::string otherPath = FullPath(other);
            std::string foundPath = FullPath(found);
            if (comparer_->Search_CompareContent(other, otherPath, found, foundPath, isMP3, isJPG,
                                                 isFLAC) == kContentEqual) {
              other.GroupID = found.GroupID;
              AddFileRow(other, found.GroupID);
            }
            stats_.CompareCount = comparer_->CompareCount;
            stats_.ChecksumCount = comparer_->ChecksumCount;
            files_->SetRecord(other.RecordNumber, other);
            files_->SetRecord(found.RecordNumber, found);
          }
        }
        lastProgressTime_ = 0;
      }
    }
    newGroupMade = false;
    if (!contentOn || suffix == 0) return;
    ++suffix;
  }
}

namespace {

// A fingerprint of a file's first and last 4 KiB; false when it cannot be
// read or is no longer the file the walk saw (the comparison then reports
// the problem itself).
bool ReadSample(const std::string& path, const FileRecord& rec, std::uint64_t* out) {
  constexpr std::int64_t kSampleBytes = 4096;
  const std::int64_t size = rec.SIZE;
  const ExpectedFile expected = WalkExpectation(rec);
  int fd = xOpenFileForReading(path, &expected, nullptr);
  if (fd < 0) return false;
  char buf[2 * kSampleBytes];
  const std::int64_t head = std::min(size, kSampleBytes);
  const std::int64_t tailStart = std::max(head, size - kSampleBytes);
  const std::int64_t tail = size - tailStart;
  bool ok =
      ::pread(fd, buf, static_cast<std::size_t>(head), 0) == head &&
      (tail == 0 || ::pread(fd, buf + head, static_cast<std::size_t>(tail), tailStart) == tail);
  ::close(fd);
  if (!ok) return false;
  std::uint64_t h = 1469598103934665603ULL ^ static_cast<std::uint64_t>(size);
  for (std::int64_t i = 0; i < head + tail; ++i) {
    h ^= static_cast<unsigned char>(buf[i]);
    h *= 1099511628211ULL;
  }
  *out = h;
  return true;
}

}  // namespace

bool SearchEngine::SamplesDiffer(const FileRecord& rec, const std::string& recPath,
                                 std::optional<std::uint64_t>* recSample, const FileRecord& found,
                                 const std::string& foundPath) {
  if (!recSample->has_value()) {
    std::uint64_t v;
    if (!ReadSample(recPath, rec, &v)) return false;
    *recSample = v;
  }
  auto it = samples_.find(found.RecordNumber);
  if (it == samples_.end()) {
    std::uint64_t v;
    if (!ReadSample(foundPath, found, &v)) return false;
    it = samples_.emplace(found.RecordNumber, v).first;
  }
  return it->second != **recSample;
}

std::string SearchEngine::HashIndexKey(std::string_view base, std::string_view hash) {
  std::string k;
  k.reserve(base.size() + 1 + hash.size());
  k.append(base).append(1, '\0').append(hash);
  return k;
}

SearchEngine::RepChain& SearchEngine::ChainOf(std::string_view base, std::int32_t firstNode) {
  auto [it, inserted] = chains_.try_emplace(std::string(base));
  if (inserted) {
    // A key's chain is made when its second file arrives: only the first
    // representative exists then.
    it->second.reps = 1;
    if (files_->HashCreated(firstNode, 0)) {
      hashIndex_.try_emplace(HashIndexKey(base, files_->Hash(firstNode)), 1);
    } else {
      it->second.unhashed = 1;
    }
  }
  return it->second;
}

void SearchEngine::NoteRepresentative(std::string_view base, const FileRecord& rec) {
  auto it = chains_.find(std::string(base));
  if (it == chains_.end()) return;  // the first of its key
  RepChain& c = it->second;
  ++c.reps;
  if (rec.HashCreated[0]) {
    hashIndex_.try_emplace(HashIndexKey(base, rec.Hash), c.reps);
  } else {
    ++c.unhashed;
  }
}

void SearchEngine::AddFileRow(const FileRecord& r, int groupNumber) {
  FileRowExtras x;
  if (opt_.ShowOwner || (opt_.ShowHardlinks && !opt_.CriterionHardlink)) {
    std::string path = FullPath(r);
    if (opt_.ShowOwner) {
      x.HasOwner = true;
      x.Owner = GetFileOwner(path);
    }
    if (opt_.ShowHardlinks && !opt_.CriterionHardlink) {
      FileRecord id;
      std::string error;
      if (xGetHardlinkCount2(path, id, &error, &ctx_.texts)) {
        x.HasHardlinks = true;
        x.Hardlinks = id.NumberOfLinks > 1 ? id.NumberOfLinks : 0;
        x.HardlinkID = id.NumberOfLinks > 1 ? GetHardlinkIDkeyFormatted(id, false) : "-";
      } else if (!error.empty()) {
        ctx_.log.LogProtokoll(error, true);
      }
    }
  }
  result_->AddFileRow(groupNumber, r, x);
  stats_.DupCount = result_->DupCount();
  stats_.DupSize = result_->FilesizeAll();
  ctx_.progress.SetLabel(Label::Dups, FormatNumber(stats_.DupCount));
}

}  // namespace kelvor
