// The comparison cascade: each file, on arrival, gets its compare key, meets
// the representative(s) of that key in the file record collection, and is
// compared where the criteria ask for it. Duplicates go into the result.

#include "search/cascade.h"

#include <fmt/format.h>

#include <cmath>

#include "compare/audio_tags.h"
#include "compare/checksum_cache.h"
#include "compare/content_comparator.h"
#include "compare/exif.h"
#include "compare/media_info.h"
#include "compare/name_compare.h"
#include "compare/picture_decoder.h"
#include "compare/similar_audio.h"
#include "compare/similar_pictures.h"
#include "data/file_identity.h"
#include "data/file_system.h"
#include "frame/formats.h"
#include "frame/log.h"
#include "frame/long_operation.h"
#include "frame/texts.h"
#include "frame/unicode.h"
#include "frame/work_pool.h"

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

std::string NameAfterIgnore(const SearchOptions& opt, std::string_view baseName) {
  std::string n(baseName);
  if (opt.IgnoreChars) {
    for (const auto& c : opt.IgnoreCharList) {
      for (std::size_t p = n.find(c); p != std::string::npos; p = n.find(c, p))
        n.erase(p, c.size());
    }
  }
  if (opt.IgnoreText) {
    for (const auto& t : opt.IgnoreTexts) {
      for (std::size_t p = n.find(t); p != std::string::npos; p = n.find(t, p))
        n.erase(p, t.size());
    }
  }
  return n;
}

std::string NameKey(const SearchOptions& opt, std::string_view baseName) {
  std::string n = NameAfterIgnore(opt, baseName);
  const int cut = opt.FileNameChars;
  if (opt.FileNameMethod == 0 || cut <= 0) return n;
  // Count in characters, not bytes, so that an accented letter is one.
  std::u32string cps = ToCodePoints(n);
  const std::size_t len = cps.size(), k = static_cast<std::size_t>(cut);
  switch (opt.FileNameMethod) {
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

std::string Cascade::FullPath(const FileRecord& r) const {
  return ctx_.sources[static_cast<std::size_t>(r.SourceNr - 1)].FullPath(r);
}

bool Cascade::PathToRead(FileRecord& r, std::string* path) {
  if (r.ArchiveType == 0) {
    *path = FullPath(r);
    return true;
  }
  return archiveTemp_ && archiveTemp_->CreateTempFile(r, FullPath(r), path);
}

bool Cascade::CutsTags(const FileRecord& rec) const {
  const std::string e = LowerCase(rec.Extension);
  return (opt_.IgnoreMP3Tags && e == "mp3") ||
         (opt_.IgnoreExif && (e == "jpeg" || e == "jpg" || e == "cr2")) ||
         (opt_.IgnoreFlacMetadata && e == "flac");
}

void Cascade::CompareSize(FileRecord& rec, const std::string& fullPath, bool* isMP3, bool* isJPG,
                          bool* isFLAC) {
  rec.SizeKey = rec.SIZE;
  if (!opt_.CriterionContent) return;
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
}

void Cascade::BuildCompareKey(const FileRecord& rec, std::string& key) const {
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
    key += GetHardlinkIDkey(rec, ctx_.sameVolume);
  }
  if (opt_.CriterionContent || opt_.SourceCompareMethod == kSourceAcross) key += '>';
}

// ---------------------------------------------------------------------------
// The cascade

Cascade::Cascade(CascadeContext ctx) : ctx_(ctx), opt_(ctx.opt) {
  // The steps a file meets after its key, in their order: the first whose
  // criterion is on decides whether two files of one key are duplicates.
  for (CascadeStep step : {CascadeStep::FuzzyNames, CascadeStep::SimilarAudio,
                           CascadeStep::SimilarPictures, CascadeStep::Content}) {
    switch (step) {
      case CascadeStep::Content:
        if (opt_.CriterionContent) {
          ContentSearchRules rules;
          rules.comparesEveryMeeting = opt_.SourceCompareMethod == kSourceAll ||
                                       opt_.SourceCompareMethod == kSourceSameFolder;
          rules.hardlinkSearch = opt_.CriterionHardlink;
          auto content = std::make_unique<ContentComparator>(opt_.Content, rules, ctx_.texts,
                                                             ctx_.log, ctx_.run, ctx_.progress);
          content_ = content.get();
          comparator_ = std::move(content);
          OpenChecksumCache();
          if (content_->ReadsAhead()) content_->Comparer().SetWorkPool(&MakeWorkPool());
        }
        break;
      case CascadeStep::SimilarAudio:
        if (opt_.CriterionSimilarAudio) {
          SimilarAudioOptions a;
          a.fingerprint.tool = opt_.FingerprintTool;
          a.fingerprint.algorithm = AudioAlgorithmOfIndex(opt_.AudioAlgorithm);
          a.fingerprint.seconds = opt_.AudioSeconds;
          a.matchPercent = opt_.AudioMatch;
          a.sameExtension = opt_.AudioSameExtension;
          a.dontCompareHardlinks = opt_.DontCompareHardlinks;
          a.sourceCompareMethod = opt_.SourceCompareMethod;
          auto audio = std::make_unique<SimilarAudioComparator>(
              a, files_,
              [this](const FileRecord& r) {
                FileRecord copy = r;
                std::string path;
                return PathToRead(copy, &path) ? path : FullPath(r);
              },
              ctx_.texts, ctx_.log, ctx_.run);
          audio_ = audio.get();
          // Each worker runs a tool of its own: as many fingerprints at once
          // as there are workers.
          if (!opt_.FingerprintTool.empty()) audio_->SetWorkPool(&MakeWorkPool());
          comparator_ = std::move(audio);
          comparatorReadsBytes_ = true;
        }
        break;
      case CascadeStep::SimilarPictures:
        if (opt_.CriterionSimilarPics) {
          comparator_ = MakeSimilarPictures();
          pictures_ = static_cast<SimilarPicturesComparator*>(comparator_.get());
          pictures_->SetWorkPool(&MakeWorkPool());
          comparatorReadsBytes_ = true;
        }
        break;
      case CascadeStep::FuzzyNames:
        if (opt_.PartialFilenameCompare) {
          NameCompareOptions names;
          names.method = static_cast<NameMeasure>(opt_.PartialCompareMethod);
          names.threshold = opt_.PartialPercent;
          names.delimiters = opt_.PartialDelimiters;
          names.sourceRule = opt_.SourceCompareMethod;
          comparator_ = std::make_unique<NameComparator>(std::move(names), ctx_.texts, ctx_.log,
                                                         ctx_.pacing, ctx_.refresh);
        }
        break;
      case CascadeStep::KeyAlone:
        break;
    }
    if (comparator_) break;
  }
  // Without a comparator the key alone decides (CascadeStep::KeyAlone).
}

Cascade::~Cascade() = default;

WorkPool& Cascade::MakeWorkPool() {
  if (!pool_) {
    RunState& run = ctx_.run;
    pool_ = std::make_unique<WorkPool>(opt_.Content.readAheadThreads,
                                       [&run] { return run.StopRequested(); });
  }
  return *pool_;
}

std::unique_ptr<Comparator> Cascade::MakeSimilarPictures() {
  SimilarPictureOptions o;
  o.algo = static_cast<PicHashAlgo>(opt_.PictureAlgorithm);
  o.side = opt_.ThumbnailSize;
  o.matchPercent = opt_.PictureMatch;
  o.sameType = opt_.PicSameType;
  o.sameDimension = opt_.PicSameDimension;
  o.sameFormat = opt_.PicSameFormat;
  o.sameRatio = opt_.PicSameRatio;
  o.forms = opt_.PicRotateFlip ? opt_.PicForms : 0u;
  o.dontCompareHardlinks = opt_.DontCompareHardlinks;
  o.sourceRule = static_cast<PicSourceRule>(opt_.SourceCompareMethod);
  // The walk over the collection refreshes with the comparator's counts.
  return std::make_unique<SimilarPicturesComparator>(o, ctx_.texts, ctx_.log, ctx_.progress,
                                                     ctx_.pacing, [this] {
                                                       SyncCounts();
                                                       ctx_.refresh();
                                                     });
}

void Cascade::OpenChecksumCache() {
  if (!ctx_.paths || !opt_.Content.checksumCache || opt_.Content.mode == kCompareSideBySide) return;
  std::string message;
  checksumCache_ = ChecksumCache::Open(ChecksumCachePath(*ctx_.paths), ctx_.texts, &message);
  // Either why the search goes on without the cache, or a note about it
  // (rebuilt after damage, read only).
  if (!message.empty()) ctx_.log.LogProtokoll(message, true);
  if (checksumCache_) content_->Comparer().SetChecksumCache(checksumCache_.get());
}

std::int32_t Cascade::FinishChecksumCache() {
  if (!content_) return 0;
  if (checksumCache_) checksumCache_->Finish();
  content_->Comparer().TakeCacheMessages();
  return content_->Comparer().CacheCount;
}

bool Cascade::ComparatorCounts(std::int64_t* compares, std::int32_t* checksums,
                               std::int32_t* prefixes) const {
  if (!comparator_) return false;
  *compares = comparator_->CompareCount();
  *checksums = comparator_->ChecksumCount();
  if (prefixes) *prefixes = comparator_->PrefixCount();
  return true;
}

void Cascade::SyncCounts() {
  ctx_.stats.CompareCount = comparator_->CompareCount();
  ctx_.stats.ChecksumCount = comparator_->ChecksumCount();
  ctx_.stats.PrefixCount = comparator_->PrefixCount();
}

// Step 1: the file's record. False when the file takes no part.
bool Cascade::MakeRecord(int sourceNr, std::string_view folder, std::string_view name,
                         std::int64_t size, double dateChanged, double dateCreated,
                         std::int32_t attributes, const FileIdentity* identity,
                         std::int64_t mtimeNs, std::int64_t ctimeNs) {
  // One record serves every file: its strings keep their buffers, so that
  // the walk makes no allocation per file.
  FileRecord& rec = recBuf_;
  {
    std::string path = std::move(rec.Path), base = std::move(rec.Name),
                ext = std::move(rec.Extension), nameKey = std::move(rec.NameKey);
    rec = FileRecord{};
    const SourceFolder& src = ctx_.sources[static_cast<std::size_t>(sourceNr - 1)];
    path.assign(folder.substr(std::min(folder.size(), src.prefix.size())));
    base.assign(BaseNameOf(name));
    ext.assign(ExtensionOf(name));
    nameKey.clear();
    rec.Path = std::move(path);
    rec.Name = std::move(base);
    rec.Extension = std::move(ext);
    rec.NameKey = std::move(nameKey);
  }
  rec.SourceNr = sourceNr;
  rec.GroupID = -1;
  rec.SIZE = size;
  rec.Attributes = attributes;
  rec.DateCreated = dateCreated;
  rec.DateLastModified = dateChanged;
  if (identity) {
    rec.WalkDevice = identity->device;
    rec.WalkInode = identity->inode;
    rec.WalkMtimeNs = mtimeNs;
    rec.WalkCtimeNs = ctimeNs;
    SetHardlinkIdentity(*identity, rec);
  }
  if (memberType_ != 0) {
    rec.ArchiveType = memberType_;
    rec.PathInsideZip.assign(memberFolder_);
  }
  // A search for hard links only looks at files with more than one link.
  if (opt_.CriterionHardlink && rec.NumberOfLinks < 2) return false;
  if (opt_.CriterionName) rec.NameKey = NameKey(opt_, rec.Name);
  return true;
}

void Cascade::CheckFile(int sourceNr, std::string_view folder, std::string_view name,
                        std::int64_t size, double dateChanged, double dateCreated,
                        std::int32_t attributes, const FileIdentity* identity, std::int64_t mtimeNs,
                        std::int64_t ctimeNs) {
  sourceNr_ = sourceNr;
  if (!MakeRecord(sourceNr, folder, name, size, dateChanged, dateCreated, attributes, identity,
                  mtimeNs, ctimeNs))
    return;
  FileRecord& rec = recBuf_;
  std::string fullPath;
  CascadeFile file{rec, fullPath};
  const bool walks = comparator_ && comparator_->WalksCollection();
  if (opt_.CriterionContent && rec.ArchiveType != 0) {
    // A member is read through its archive, and counts with its whole size
    // unless its tags are cut off: those are read from its extract, which
    // the comparator then reads too. A member that cannot be extracted
    // (logged there) is left out.
    fullPath.assign(folder);
    rec.SizeKey = size;
    if (CutsTags(rec)) {
      std::string extract;
      if (!PathToRead(rec, &extract)) return;
      CompareSize(rec, extract, &file.isMP3, &file.isJPG, &file.isFLAC);
    }
  } else if (opt_.CriterionContent) {
    fullPath.assign(folder).append("/").append(name);
    CompareSize(rec, fullPath, &file.isMP3, &file.isJPG, &file.isFLAC);
  } else {
    rec.SizeKey = size;
    if (comparatorReadsBytes_ && rec.ArchiveType != 0) {
      // The comparator reads the member's extract; one that cannot be made
      // (logged there) leaves the member out.
      if (!PathToRead(rec, &fullPath)) return;
    } else if (comparator_) {
      fullPath.assign(folder).append("/").append(name);
    }
  }

  // Step 2: the compare key.
  std::string& key = keyBuf_;
  BuildCompareKey(rec, key);
  const int method = opt_.SourceCompareMethod;
  if (method == kSourceSamePath && !comparator_) {
    // The relative folder joins the key; the source number does not, or
    // files of different source folders could never meet. That they come
    // from different sources is tested below.
    key += "<>";
    key += rec.Path;
  }
  const std::size_t keyLength = key.size();
  if (walks) {
    comparator_->BeginFile();
    MeetByWalk(file, key);
    return;
  }

  // Step 3: the representatives of the key, one after the other under their
  // suffixes while a comparator decides; step 4: the group.
  if (comparator_) comparator_->BeginFile();
  int suffix = (comparator_ || method == kSourceAcross) ? 1 : 0;
  FileRecord& found = foundBuf_;
  bool newGroupMade = false;
  for (;;) {
    key.resize(keyLength);
    if (suffix != 0) fmt::format_to(std::back_inserter(key), "{}", suffix);
    Meeting meeting;
    if (comparator_)
      meeting = MeetWithComparator(file, key, keyLength, suffix, found);
    else if (method == kSourceAcross)
      meeting = MeetAcrossSources(key, found);
    else
      meeting = MeetByKey(key, found);
    if (meeting == Meeting::Placed) return;
    if (ctx_.run.StopRequested()) return;
    if (meeting == Meeting::Different) {
      if (comparator_ && suffix > 0) {
        ++suffix;
        continue;
      }
      return;
    }
    if (!JoinGroup(file, key, keyLength, suffix, found, newGroupMade)) return;
    ++suffix;
  }
}

void Cascade::CheckMember(int sourceNr, std::string_view archivePath, std::string_view innerFolder,
                          std::string_view name, std::int64_t size, double dateChanged,
                          double dateCreated, std::int32_t attributes, std::uint8_t archiveType) {
  memberType_ = archiveType;
  memberFolder_ = innerFolder;
  CheckFile(sourceNr, archivePath, name, size, dateChanged, dateCreated, attributes, nullptr);
  memberType_ = 0;
  memberFolder_ = {};
}

void Cascade::SetArchiveTempFiles(ArchiveTempFiles* temp) {
  archiveTemp_ = temp;
  if (content_) content_->Comparer().SetArchiveTempFiles(temp);
}

// Step 3 with a comparator: the representative under the current suffix, or
// the one the comparator names at once.
Cascade::Meeting Cascade::MeetWithComparator(CascadeFile& file, std::string& key,
                                             std::size_t keyLength, int& suffix,
                                             FileRecord& found) {
  FileRecord& rec = file.rec;
  const int method = opt_.SourceCompareMethod;
  const std::string_view base = std::string_view(key).substr(0, keyLength);
  std::int32_t foundNode = 0;
  if (const std::int32_t node = files_.Add(key, rec, nullptr, &foundNode); node != 0) {
    rec.RecordNumber = node;
    comparator_->BecameRepresentative(base, rec);
    return Meeting::Placed;
  }
  if (auto answer = comparator_->FindPartner(file, {base, suffix}, files_, foundNode)) {
    ctx_.stats.CompareCount = comparator_->CompareCount();
    ctx_.stats.ChecksumCount = comparator_->ChecksumCount();
    suffix = answer->suffix;
    key.resize(keyLength);
    fmt::format_to(std::back_inserter(key), "{}", suffix);
    if (!answer->matched) {
      if (const std::int32_t node = files_.Add(key, rec, nullptr, &foundNode); node != 0) {
        rec.RecordNumber = node;
        comparator_->BecameRepresentative(std::string_view(key).substr(0, keyLength), rec);
      }
      return Meeting::Placed;
    }
    foundNode = files_.Find(key);
    files_.ReadRecord(foundNode, found);
    return Meeting::Duplicate;
  }
  files_.ReadRecord(foundNode, found);
  // The rule of the source compare method comes first: a representative it
  // passes by is not compared.
  if (method == kSourceAcross && found.SourceNr == sourceNr_) return Meeting::Different;
  if (method == kSourceSamePath && !(found.SourceNr != sourceNr_ && found.Path == rec.Path))
    return Meeting::Different;
  const bool dup = comparator_->IsDuplicate(file, found, FullPath(found), {base, suffix});
  SyncCounts();
  files_.SetRecord(found.RecordNumber, found);
  return dup ? Meeting::Duplicate : Meeting::Different;
}

// Step 3 for a comparator that walks the whole collection: the file is
// measured against every earlier representative and joins the group of the
// first it matches, or becomes one itself under a key of its own.
void Cascade::MeetByWalk(CascadeFile& file, std::string& key) {
  FileRecord& rec = file.rec;
  file.key = key;  // until the key grows below
  const std::int32_t hit = comparator_->SearchCollection(file, files_, 1, [this](std::int32_t pos) {
    if (comparatorReadsBytes_ && files_.ArchiveType(pos) != 0) {
      FileRecord r = files_.Record(pos);
      std::string path;
      if (!PathToRead(r, &path)) return FullPath(r);
      files_.SetRecord(pos, r);  // keeps a newly made extract's name
      return path;
    }
    const SourceFolder& src = ctx_.sources[static_cast<std::size_t>(files_.SourceNr(pos) - 1)];
    std::string p = src.prefix;
    files_.AppendPathWithFileName(pos, p);
    return p;
  });
  file.key = {};
  SyncCounts();
  if (hit == Comparator::kFileFails) return;  // unreadable: it leaves the search
  if (ctx_.run.StopRequested()) return;
  if (hit == Comparator::kNoMatch) {
    // A key no other file has: the walk, not the key, finds partners.
    const std::size_t keyLength = key.size();
    fmt::format_to(std::back_inserter(key), "{}{}", kSep, ++walkSerial_);
    if (const std::int32_t node = files_.Add(key, rec); node != 0) {
      rec.RecordNumber = node;
      comparator_->BecameRepresentative(std::string_view(key).substr(0, keyLength), rec);
    }
    return;
  }
  FileRecord& found = foundBuf_;
  files_.ReadRecord(hit, found);
  bool newGroupMade = false;
  JoinGroup(file, key, key.size(), 0, found, newGroupMade);
}

// Step 3 across source folders by the key alone: a file of another source
// with the same key is a duplicate.
Cascade::Meeting Cascade::MeetAcrossSources(std::string& key, FileRecord& found) {
  FileRecord& rec = recBuf_;
  int pos;
  if (rec.GroupID == -1) {
    pos = files_.Add(key, rec, &found);
    ++ctx_.stats.CompareCount;
    if (pos != 0) return Meeting::Placed;
  } else {
    pos = files_.Find(key);
    ++ctx_.stats.CompareCount;
    if (pos == 0) return Meeting::Placed;
    files_.ReadRecord(pos, found);
  }
  if (found.SourceNr == sourceNr_) return Meeting::Different;
  return found.GroupID == -1 || rec.GroupID == -1 ? Meeting::Duplicate : Meeting::Different;
}

// Step 3 by the key alone.
Cascade::Meeting Cascade::MeetByKey(std::string& key, FileRecord& found) {
  ++ctx_.stats.CompareCount;
  if (files_.Add(key, recBuf_, &found) != 0) return Meeting::Placed;
  const bool dup = opt_.SourceCompareMethod != kSourceSamePath || found.SourceNr != sourceNr_;
  return dup ? Meeting::Duplicate : Meeting::Different;
}

// Step 4: the file is a duplicate of `found`; both join a group. True when
// the file goes on to the representative under the next suffix.
bool Cascade::JoinGroup(CascadeFile& file, std::string& key, std::size_t keyLength, int suffix,
                        FileRecord& found, bool& newGroupMade) {
  FileRecord& rec = file.rec;
  const int method = opt_.SourceCompareMethod;
  if (opt_.ShowOnlyFilesWithoutDups) {
    files_.SetGroupID(found.RecordNumber, 1);
    return false;
  }

  int groupNumber;
  if (found.GroupID == -1 && rec.GroupID == -1) {
    GroupContext gctx;
    std::string afterIgnore;
    if (opt_.GroupTitleMode == 1) {
      afterIgnore = NameAfterIgnore(opt_, found.Name);
      gctx.NameAfterIgnore = afterIgnore;
    }
    groupNumber = ctx_.result.Search_AddNewGroup(found, gctx);
    ctx_.stats.GroupCount = ctx_.result.GroupsCreated();
    ctx_.progress.SetLabel(Label::Gruppen, FormatNumber(ctx_.stats.GroupCount));
    found.GroupID = groupNumber;
    files_.SetGroupID(found.RecordNumber, groupNumber);
    AddFileRow(found, groupNumber);
    if (method == kSourceAcross) newGroupMade = true;
  } else {
    groupNumber = (method == kSourceAcross && found.GroupID == -1) ? rec.GroupID : found.GroupID;
  }

  if (method != kSourceAcross) {
    AddFileRow(rec, groupNumber);
    return false;
  }

  // Across source folders: the file may join the groups of several
  // representatives, and a new group collects the further equal ones.
  if (found.GroupID == -1) {
    found.GroupID = rec.GroupID;
    files_.SetGroupID(found.RecordNumber, rec.GroupID);
    AddFileRow(found, rec.GroupID);
  } else if (rec.GroupID == -1) {
    rec.GroupID = found.GroupID;
    AddFileRow(rec, rec.GroupID);
    if (newGroupMade && content_) {
      if (!CollectFurtherRepresentatives(file, key, keyLength, suffix, found)) return false;
    }
  }
  newGroupMade = false;
  // Only a content search goes on to the further representatives: a
  // similarity search ends with the file's first partner.
  return content_ && suffix != 0;
}

// The representatives behind `suffix` that are not in a group yet and equal
// `found` join its new group. False when a stop ended the loop.
bool Cascade::CollectFurtherRepresentatives(CascadeFile& file, std::string& key,
                                            std::size_t keyLength, int suffix, FileRecord& found) {
  for (int next = suffix + 1;; ++next) {
    key.resize(keyLength);
    fmt::format_to(std::back_inserter(key), "{}", next);
    int pos = files_.Find(key);
    if (pos == 0) break;
    if (!ctx_.pacing.Step(ctx_.refresh)) return false;
    FileRecord other = files_.Record(pos);
    if (other.GroupID == -1) {
      std::string otherPath = FullPath(other);
      std::string foundPath = FullPath(found);
      if (comparator_->AreDuplicates(other, otherPath, found, foundPath, file)) {
        other.GroupID = found.GroupID;
        AddFileRow(other, found.GroupID);
      }
      SyncCounts();
      files_.SetRecord(other.RecordNumber, other);
      files_.SetRecord(found.RecordNumber, found);
    }
  }
  ctx_.pacing.ForceRefresh();
  return true;
}

// ---------------------------------------------------------------------------
// Read-ahead

bool Cascade::ReadsAhead() const {
  return (content_ && content_->ReadsAhead()) || (pool_ && (pictures_ || audio_));
}

// Pictures and music: every file of the folder that the walk will hand to
// the cascade (its extension in the search's list, through the filters) is
// measured against the earlier ones, so each is read ahead. One not needed
// after all costs a worker's time and nothing else. The files go to the pool
// in a window ahead of the walk, moved on as the walk hands files over, so
// that a folder of thousands stays within the table's bounds and is still
// read ahead to its end.
void Cascade::PredictMediaFiles(const Frame& top, const FilterOptions& filters) {
  if (top.path != mediaFolder_ || mediaCursor_ < top.next) {
    mediaFolder_ = top.path;
    mediaCursor_ = top.next;
  }
  const std::size_t end = std::min(top.entries.size(), top.next + kMediaWindow);
  const std::string_view list = pictures_ ? kSimilarPicsExtensions : kSimilarAudioExtensions;
  for (; mediaCursor_ < end; ++mediaCursor_) {
    const DirEntry& e = top.entries[mediaCursor_];
    if (e.kind != EntryKind::File || e.size == 0) continue;
    std::string_view name = std::string_view(top.names).substr(e.nameOffset, e.nameLength);
    const std::string_view ext = ExtensionOf(name);
    if (ext.empty()) continue;
    predictKey_.assign("/");
    AppendLowerCase(ext, predictKey_);
    predictKey_ += '/';
    if (list.find(predictKey_) == std::string_view::npos) continue;
    pathBuf_.assign(top.path).append("/").append(name);
    if (filters.Search_CheckFileFilter(static_cast<std::uint64_t>(e.size), name, pathBuf_))
      continue;
    if (pictures_)
      pictures_->Prefetch(pathBuf_);
    else
      audio_->Prefetch(pathBuf_);
  }
}

void Cascade::FileReached(const Frame& top, const FilterOptions& filters) {
  if (pool_ && (pictures_ || audio_)) PredictMediaFiles(top, filters);
}

void Cascade::PredictComparisons(const Frame& top, int sourceNr, const FilterOptions& filters) {
  if (!ReadsAhead()) return;
  if (!content_) {
    PredictMediaFiles(top, filters);
    return;
  }
  content_->BeginFolder();
  FileRecord probe;
  probe.SourceNr = sourceNr;
  const SourceFolder& src = ctx_.sources[static_cast<std::size_t>(sourceNr - 1)];
  probe.Path = top.path.substr(std::min(top.path.size(), src.prefix.size()));
  auto prefetchEntry = [&](std::size_t index) {
    const DirEntry& e = top.entries[index];
    std::string_view name = std::string_view(top.names).substr(e.nameOffset, e.nameLength);
    probe.Name.assign(BaseNameOf(name));
    probe.Extension.assign(ExtensionOf(name));
    probe.SIZE = probe.SizeKey = e.size;
    probe.WalkDevice = e.identity.device;
    probe.WalkInode = e.identity.inode;
    probe.WalkMtimeNs = e.mtimeNs;
    probe.WalkCtimeNs = e.ctimeNs;
    pathBuf_.assign(top.path).append("/").append(name);
    content_->Prefetch(pathBuf_, probe);
  };
  for (std::size_t i = top.next; i < top.entries.size(); ++i) {
    const DirEntry& e = top.entries[i];
    if (e.kind != EntryKind::File || e.size == 0) continue;
    std::string_view name = std::string_view(top.names).substr(e.nameOffset, e.nameLength);
    pathBuf_.assign(top.path).append("/").append(name);
    if (filters.Search_CheckFileFilter(static_cast<std::uint64_t>(e.size), name, pathBuf_))
      continue;
    probe.Name.assign(BaseNameOf(name));
    probe.Extension.assign(ExtensionOf(name));
    probe.SIZE = probe.SizeKey = e.size;
    probe.DateLastModified = e.mtime;
    probe.DateCreated = e.btime;
    probe.Attributes = e.attributes;
    if (opt_.CriterionName) probe.NameKey = NameKey(opt_, probe.Name);
    BuildCompareKey(probe, predictKey_);
    predictKey_ += '1';  // the first representative, where the cascade starts
    const std::int32_t rep = files_.Find(predictKey_);
    const ContentComparator::ReadAhead plan = content_->PlanFile(predictKey_, i, files_, rep);
    if (plan.representative) {
      files_.ReadRecord(rep, repBuf_);
      content_->Prefetch(FullPath(repBuf_), repBuf_);
    }
    if (plan.earlier != SIZE_MAX) prefetchEntry(plan.earlier);
    if (plan.file) prefetchEntry(i);
  }
}

// Audio and picture properties of a file row. A file whose properties
// cannot be read keeps the bit in GetFileInfo, to be read when the row is
// first shown.
void Cascade::ReadMediaProperties(const FileRecord& r, FileRowExtras& x) {
  const std::string ext = "/" + LowerCase(r.Extension) + "/";
  const bool audio = opt_.ShowAudioProperties && !r.Extension.empty() &&
                     opt_.AudioPropertiesExt.find(ext) != std::string::npos;
  const bool picture = opt_.ShowPicWidthHeight && !r.Extension.empty() &&
                       (IsDirectPictureExtension(LowerCase(r.Extension)) ||
                        IsPluginPictureExtension(LowerCase(r.Extension)));
  if (!audio && !picture) return;
  if (!media_) media_ = MakeMediaProperties();
  const std::string path = FullPath(r);
  std::string error;
  if (audio) {
    AudioProperties a;
    if (media_->GetMP3MediaInfo(path, &a, &error)) {
      x.HasAudio = true;
      x.AudioDurationVal = a.durationSeconds;
      x.AudioBitrate = a.bitRate;
      x.AudioSamplingrate = a.samplingRate;
    } else {
      x.GetFileInfo |= kInfoAudio;
    }
  }
  if (picture) {
    int w = 0, h = 0;
    if (media_->GetPictureDimension(path, &w, &h, &error)) {
      x.HasPicSize = true;
      x.PicW = w;
      x.PicH = h;
    } else {
      x.GetFileInfo |= kInfoPicture;
    }
  }
}

void Cascade::AddFileRow(const FileRecord& r, int groupNumber) {
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
  if (opt_.ShowAudioProperties || opt_.ShowPicWidthHeight) ReadMediaProperties(r, x);
  ctx_.result.AddFileRow(groupNumber, r, x);
  ctx_.stats.DupCount = ctx_.result.DupCount();
  ctx_.stats.DupSize = ctx_.result.FilesizeAll();
  ctx_.progress.SetLabel(Label::Dups, FormatNumber(ctx_.stats.DupCount));
}

}  // namespace kelvor
