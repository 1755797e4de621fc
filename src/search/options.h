#pragma once
// The options record of a search. Init_Variablen fills it once from the
// settings store (the state of the setup window): the criteria and their
// options, the compiled filters, and what the run's log and the result show
// (description, colours, size format). The caller builds it and hands it to
// the engine, which is given no settings store at all.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "compare/content.h"
#include "results/result_model.h"
#include "search/filters.h"

namespace kelvor {

class SettingsStore;
class TextCatalog;

// Indexes of chkSuchKriterien.
enum Criterion : int {
  kCritName = 0,
  kCritExtension = 1,
  kCritSize = 2,
  kCritContent = 3,
  kCritDateA = 4,
  kCritDateB = 5,
  kCritAttributes = 6,
  kCritHardlink = 7,
  kCritSimilarPics = 8,
  kCritSimilarAudio = 9,
};
inline constexpr int kCriterionCount = 10;

// optSourceFolderCompareMethod.
enum SourceCompare : int {
  kSourceAll = 0,         // every file against every file
  kSourceSameFolder = 1,  // only inside the same source folder
  kSourceAcross = 2,      // only between different source folders
  kSourceSamePath = 3,    // only the same relative path in different source folders
};

struct SearchOptions {
  // Criteria, as truth values.
  bool CriterionName = false;
  bool CriterionExtension = false;
  bool CriterionSize = false;
  bool CriterionContent = false;
  bool CriterionDateA = false;
  bool CriterionDateB = false;
  bool CriterionAttributes = false;
  bool CriterionHardlink = false;
  bool CriterionSimilarPics = false;
  bool CriterionSimilarAudio = false;
  int GroupTitleMode = -1;

  std::string DateFormat = "dd/MM/yyyy hh:nn:ss";
  bool UnicodeSupport = false;
  int SourceCompareMethod = kSourceAll;
  int PartialCompareMethod = 0;
  std::string PartialDelimiters = " ,_.;-";
  bool PartialFilenameCompare = false;
  double PartialPercent = 0.9;
  bool LogStatistic = false;
  double LogStatisticDays = 5 * 60 * 0.000011574;
  std::int32_t MaxDupCount = 2000000;
  bool Ignore0ByteFiles = false;
  ContentCompareOptions Content;  // content compare mode, percent, buffers, tag options
  std::int32_t AudioAlgorithm = 2;
  std::int32_t AudioSeconds = 30;
  std::int32_t AudioMatch = 70;
  bool AudioSameExtension = false;
  // The fingerprint program found at start-up (empty: none).
  std::string FingerprintTool;
  std::int32_t PictureAlgorithm = 0;
  std::int32_t PictureMatch = 91;
  std::int32_t ThumbnailSize = 16;
  bool PicSameType = true, PicSameDimension = false, PicSameFormat = true, PicSameRatio = true;
  bool PicRotateFlip = false;
  // The turned and mirrored forms chosen (bit k for form k, 1..7); with none
  // chosen PicRotateFlip is off.
  unsigned PicForms = 0;
  std::array<bool, 17> ArchiveTypes{};  // index 1..16 as the archive list's item data
  bool ScanArchives = false;
  bool DeleteTempFilesAfterChecksum = false;
  bool LogPasswordProtected = false;
  std::string ArchiveTempFolder;  // txtTempFolder; "" = KVtemp in the data folder's temp
  bool ArchiveSizeFilter = true;
  std::int64_t ArchiveSizeLimit = 20LL * 1048576;
  // Members whose header states no size are left out beyond this size.
  std::int64_t ArchiveUnstatedSizeCap = 8LL << 30;
  bool ShowOnlyFilesWithoutDups = false;
  bool FollowJunctions = true;  // chkNTFSAbzweigungspunkte
  bool DontCompareHardlinks = false;
  bool IgnoreMP3Tags = false;
  bool IgnoreFlacMetadata = false;
  bool IgnoreExif = false;
  bool IgnoreTime = false;
  bool IgnoreSeconds = false;
  int FileNameMethod = 0;  // 0 all, 1 first n, 2 last n, 3 without the last n
  int FileNameChars = 5;
  bool IgnoreText = false;
  std::vector<std::string> IgnoreTexts;
  bool IgnoreChars = false;
  std::vector<std::string> IgnoreCharList;  // single characters (UTF-8)
  bool ShowOwner = false;
  bool ShowPicWidthHeight = false;
  bool ShowAudioProperties = false;
  std::string AudioPropertiesExt = "/m4a/mp3/wav/";
  bool ShowHardlinks = false;
  bool Prio = false;
  bool ExpandAllGroups = false;
  bool RemoveGroupsNotInAllSources = false;
  bool LogFilesWithNoDups = false;
  bool PlaySound = false;
  std::string SoundFile;

  // Derived: what the criteria make equal for a whole group.
  bool GroupSize = false, GroupDateA = false, GroupDateB = false, GroupAttributes = false;
  // Checksum route.
  int HashLength = 0;
  std::string ChecksumText;  // "Erstelle %1 Prüfsumme" with the method's name

  // The filters, compiled, and the filters that are not valid patterns (the
  // run logs them after its header).
  FilterOptions Filters;
  std::vector<FilterProblem> FilterProblems;
  // What the log and the result show.
  std::string Description;      // GetSearchDescription
  ResultColors Colors;          // LoadResultColors
  std::int32_t FormatSize = 0;  // Optionen/FormatSize, the result's size format

  bool AnyCriterion() const;
};

// Fixed extension lists, "/" at both ends.
inline constexpr const char* kPicturesDirect =
    "/bmp/dib/rle/jpg/jpeg/jpe/jfif/gif/emf/wmf/tif/tiff/png/ico/";
inline constexpr const char* kPicturesPlugin =
    "/3fr/arw/cr2/crw/cut/dcr/dng/erf/hdp/iff/j2c/j2k/jp2/jpx/kdc/mdc/mef/mos/mrw/nef/orf/pbm/pcx/"
    "pef/pgm/ppm/psd/raf/ras/raw/rw2/srw/tga/wbmp/x3f/";
inline constexpr const char* kSimilarPicsExtensions = "/jpg/jpeg/png/gif/bmp/tif/";
inline constexpr const char* kSimilarAudioExtensions =
    "/mp3/flac/m4a/wma/wav/ogg/aac/mp2/m4r/ape/mka/";

// Init_Variablen: the whole record, filters included (variables in filters
// from the environment).
SearchOptions Init_Variablen(const SettingsStore& s, const TextCatalog& texts);

// chkSuchKriterien_Click: switches criterion `index` and applies the rules
// between criteria to the settings (stand-alone criteria, hard links cleared
// by 2..6, dependent options cleared).
void chkSuchKriterien_Click(SettingsStore& s, int index, bool on);

// Caption of a criterion and of a source compare method.
std::string CriterionCaption(const TextCatalog& texts, int index);
std::string SourceCompareCaption(const TextCatalog& texts, int method);

// The fields of the setup window as they are mended when the user leaves
// them; the search reads the stored values through the same rules.
// txtSimilarPicsMatchPercent: "95" when not a whole number, "100" when above
// 100 or not above 0.
std::string MendPicturePercent(std::string_view text);
// txtSimilarAudioMatch: "90" when not a whole number, "100" when above 100 or
// not above 0.
std::string MendAudioMatchPercent(std::string_view text);
// txtContentComparePercent: "100" when not a whole number, above 100 or 0.
std::string MendContentPercent(std::string_view text);
// txtCompareBuffer(0..3): a field that is not a number counts as 0, then
// MendCompareBuffers (compare/content.h).
std::array<std::string, 4> MendCompareBufferFields(const std::array<std::string, 4>& fields);
// cboSimilarImagesCompareSize: "24x24" (index 2) is offered with pHash
// (algorithm 2) only; the others fall back to "16x16".
int OfferedThumbSizeIndex(int algorithm, int index);

// GetSearchDescription: the one-line description of the chosen criteria.
std::string GetSearchDescription(const SettingsStore& s, const TextCatalog& texts);

}  // namespace kelvor
