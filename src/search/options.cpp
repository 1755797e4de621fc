#include "search/options.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "frame/settings_store.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

constexpr const char* kSec = "DupVerz";

std::string CritKey(int index) {
  return "Suchkriterien" + std::to_string(index);
}

bool Crit(const SettingsStore& s, int index) {
  return s.GetBool(kSec, CritKey(index));
}

// Splits UTF-8 text into its characters, keeping the first of repeated ones.
std::vector<std::string> UniqueCharacters(const std::string& text) {
  std::vector<std::string> out;
  std::u32string cps = ToCodePoints(text);
  for (char32_t c : cps) {
    std::string one = FromCodePoints(std::u32string_view(&c, 1));
    if (std::find(out.begin(), out.end(), one) == out.end()) out.push_back(std::move(one));
  }
  return out;
}

std::vector<std::string> SplitNonEmpty(const std::string& text, char sep) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(sep, start);
    if (end == std::string::npos) end = text.size();
    if (end > start) out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

// Values kept between two ":" in the file so that blanks survive.
std::string Unwrap(std::string v) {
  if (v.size() >= 2 && v.front() == ':' && v.back() == ':') return v.substr(1, v.size() - 2);
  return v;
}

}  // namespace

bool SearchOptions::AnyCriterion() const {
  return CriterionName || CriterionExtension || CriterionSize || CriterionContent ||
         CriterionDateA || CriterionDateB || CriterionAttributes || CriterionHardlink ||
         CriterionSimilarPics || CriterionSimilarAudio;
}

SearchOptions Init_Variablen(const SettingsStore& s, const TextCatalog& texts) {
  SearchOptions o;
  o.CriterionName = Crit(s, kCritName);
  o.CriterionExtension = Crit(s, kCritExtension);
  o.CriterionSize = Crit(s, kCritSize);
  o.CriterionContent = Crit(s, kCritContent);
  o.CriterionDateA = Crit(s, kCritDateA);
  o.CriterionDateB = Crit(s, kCritDateB);
  o.CriterionAttributes = Crit(s, kCritAttributes);
  o.CriterionHardlink = Crit(s, kCritHardlink);
  o.CriterionSimilarPics = Crit(s, kCritSimilarPics);
  o.CriterionSimilarAudio = Crit(s, kCritSimilarAudio);

  // The criterion that titles the groups.
  int& m = o.GroupTitleMode;
  m = -1;
  if (o.CriterionName && !o.CriterionExtension) m = 0;
  if (o.CriterionName && o.CriterionExtension) m = 1;
  if (!o.CriterionName && o.CriterionExtension) m = 2;
  if (m == -1 && (o.CriterionSize || o.CriterionContent)) m = 3;
  if (m == -1 && o.CriterionDateA) m = 4;
  if (m == -1 && o.CriterionDateB) m = 5;
  if (m == -1 && o.CriterionAttributes) m = 6;
  if (m == -1 && o.CriterionHardlink) m = 7;
  if (m == -1 && o.CriterionSimilarAudio) m = 9;
  if (m == -1 && o.CriterionSimilarPics) m = 8;

  o.DateFormat = s.Get(kSec, "DateFormat3");
  if (o.DateFormat.find_first_not_of(' ') == std::string::npos)
    o.DateFormat = "dd/mm/yyyy hh:nn:ss";
  o.UnicodeSupport = s.GetBool(kSec, "UnicodeSupport");
  o.SourceCompareMethod =
      static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "SourceFolderCompareMode"), 0, 3));
  // As the description shows it: a value outside the list is its nearest end.
  o.PartialCompareMethod =
      static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "PartialFilenameCompareMethod"), 0, 7));
  o.PartialDelimiters = s.Get(kSec, "PartialFilenameCompareMethodDelimiterChars");
  o.PartialFilenameCompare =
      s.GetBool(kSec, "PartialFilenameCompare") && o.CriterionName && !o.CriterionContent;
  o.PartialPercent = s.GetDouble(kSec, "PartialFilenameComparePercent") / 100.0;
  o.LogStatistic = s.GetBool(kSec, "LogStatistic");
  o.LogStatisticDays = s.GetDouble(kSec, "LogStatisticMinutes") * 60 * 0.000011574;
  o.MaxDupCount = s.GetBool(kSec, "CancelSearchMaxDup")
                      ? static_cast<std::int32_t>(std::clamp<long long>(
                            s.GetInt(kSec, "CancelSearchMaxDupCount"), 0, 2000000000))
                      : 2000000;
  o.Ignore0ByteFiles = s.GetBool(kSec, "NullByte") || o.CriterionContent ||
                       o.CriterionSimilarAudio || o.CriterionSimilarPics;

  ContentCompareOptions& c = o.Content;
  c.mode = static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "ContentCompare"), 0, 5));
  c.checksumCache = s.GetBool(kSec, "ChecksumCache");
  c.percent =
      c.mode == 0
          ? static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "ContentComparePercent"), 1, 100))
          : 100;
  for (int i = 0; i < 4; ++i) {
    long long v = s.GetInt(kSec, "CompareBuffer" + std::to_string(i));
    c.compareBuffer[i] = std::clamp<long long>(v, 512, 256LL << 20);
  }
  c.compareFileEndFirst =
      s.GetBool(kSec, "CompareFileEndFirst") && o.CriterionContent ? c.compareBuffer[3] : 0;

  o.AudioAlgorithm = static_cast<std::int32_t>(s.GetInt(kSec, "SimilarAudioAlgo"));
  {
    // A stored value that is no whole number takes its fallback; a match
    // outside 1..100 becomes 100, as the field mends it; no sound at all
    // cannot be measured.
    const auto whole = [&](const char* key, long long fallback) {
      const std::string v = s.Get(kSec, key);
      long long n = 0;
      const auto [p, ec] = std::from_chars(v.data(), v.data() + v.size(), n);
      return ec == std::errc() && p == v.data() + v.size() ? n : fallback;
    };
    long long match = whole("SimilarAudioMatchPercent", 85);
    o.AudioMatch = static_cast<std::int32_t>(match > 100 || match <= 0 ? 100 : match);
    long long seconds = whole("SimilarAudioSeconds", 30);
    o.AudioSeconds = static_cast<std::int32_t>(seconds <= 0 ? 30 : std::min(seconds, 86400LL));
  }
  o.AudioSameExtension = s.GetBool(kSec, "SimilarAudioOnlySameFileType");
  o.PictureAlgorithm =
      static_cast<std::int32_t>(std::clamp<long long>(s.GetInt(kSec, "SimiliarImagesAlgo"), 0, 2));
  o.PictureMatch = static_cast<std::int32_t>(
      std::stoi(MendPicturePercent(s.Get(kSec, "SimilarPicsMatchPercent", "91"))));
  static constexpr int kThumb[] = {8, 16, 24};
  o.ThumbnailSize = kThumb[OfferedThumbSizeIndex(
      o.PictureAlgorithm,
      static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "SimilarPicsThumbSizeIndex"), 0, 2)))];
  o.PicSameType = s.GetBool(kSec, "SimiliarImagesOnlySameFileType");
  o.PicSameDimension = s.GetBool(kSec, "SimiliarImagesOnlySameDimension");
  o.PicSameFormat = s.GetBool(kSec, "SimiliarImagesOnlySameFormat");
  o.PicSameRatio = s.GetBool(kSec, "SimiliarImagesOnlySameRatio");
  for (int form = 1; form <= 7; ++form) {
    if (s.GetBool(kSec, "SimiliarImagesRotateFlip" + std::to_string(form)))
      o.PicForms |= 1u << form;
  }
  o.PicRotateFlip = s.GetBool(kSec, "SimiliarImagesRotateFlip") && o.PicForms != 0;
  if (!o.PicRotateFlip) o.PicForms = 0;

  // Archive types: "ScanArchive" holds the checked entries of the archive list
  // as a text of sixteen 0/1 digits; "ScanArchives" is the switch.
  std::string types = s.Get(kSec, "ScanArchive");
  bool anyType = false;
  for (int i = 1; i <= 16; ++i) {
    o.ArchiveTypes[i] = i - 1 < static_cast<int>(types.size()) && types[i - 1] == '1';
    anyType = anyType || o.ArchiveTypes[i];
  }
  o.ScanArchives = s.GetBool(kSec, "ScanArchives") && anyType && !o.CriterionHardlink;
  o.DeleteTempFilesAfterChecksum = s.GetBool(kSec, "DeleteTempFilesAfterCreateChecksum") &&
                                   ((o.CriterionContent && c.mode > 0) || o.CriterionSimilarPics);
  o.LogPasswordProtected = s.GetBool(kSec, "LogPasswordProtectedFiles");
  o.ArchiveTempFolder = s.Get(kSec, "TempFolder");
  o.ArchiveSizeFilter = s.GetBool(kSec, "ZipSizeFilter");
  {
    std::string v = s.Get(kSec, "ZipSizeFilterSize");
    if (v.empty()) v = "20";
    double n = 20;
    try {
      n = std::stod(v);
    } catch (...) {
    }
    o.ArchiveSizeLimit = static_cast<std::int64_t>(
        n * (s.GetInt(kSec, "ZipSizeFilterTyp") >= 2 ? 1048576.0 : 1024.0));
  }
  o.ShowOnlyFilesWithoutDups = s.GetBool(kSec, "ShowOnlyFilesWithoutDups");
  o.FollowJunctions = s.GetBool(kSec, "NTFSordner");
  o.DontCompareHardlinks =
      s.GetBool(kSec, "DontCompareHardlinks") &&
      (o.CriterionContent || o.CriterionSimilarPics || o.CriterionSimilarAudio);
  o.IgnoreMP3Tags = s.GetBool(kSec, "IgnoreMP3Tags") && o.CriterionContent;
  o.IgnoreFlacMetadata = s.GetBool(kSec, "IgnoreFlacMetadata") && o.CriterionContent;
  o.IgnoreExif = s.GetBool(kSec, "IgnoreExif") && o.CriterionContent;
  c.dontCompareHardlinks = o.DontCompareHardlinks;
  c.ignoreMP3Tags = o.IgnoreMP3Tags;
  c.ignoreFlacMetadata = o.IgnoreFlacMetadata;
  c.ignoreExif = o.IgnoreExif;
  o.IgnoreTime = s.GetBool(kSec, "IgnoreTime");
  o.IgnoreSeconds = s.GetBool(kSec, "IgnoreSeconds");

  o.FileNameChars = static_cast<int>(
      std::max<long long>(0, s.GetInt(kSec, "FileNameCompareOnlyFirstCharsCount")));
  o.FileNameMethod =
      static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "FileNameCompareMethod"), 0, 3));
  if (o.FileNameChars == 0) o.FileNameMethod = 0;
  o.IgnoreTexts = SplitNonEmpty(Unwrap(s.Get(kSec, "IgnoreTextText")), '/');
  o.IgnoreText = s.GetBool(kSec, "IgnoreText") && !o.IgnoreTexts.empty();
  o.IgnoreCharList = UniqueCharacters(Unwrap(s.Get(kSec, "IgnoreCharsText")));
  o.IgnoreChars = s.GetBool(kSec, "IgnoreChars") && !o.IgnoreCharList.empty();

  o.ShowOwner = s.GetBool(kSec, "ShowOwner");
  o.ShowPicWidthHeight = s.GetBool(kSec, "ShowPicWidthHeight");
  {
    std::string ext = s.Get(kSec, "ShowAudioPropertiesExt");
    std::string cleaned;
    for (char ch : ext)
      if (ch != ' ') cleaned += ch == ',' ? '/' : ch;
    o.AudioPropertiesExt = "/" + LowerCase(cleaned) + "/";
    o.ShowAudioProperties = s.GetBool(kSec, "ShowAudioProperties") && !cleaned.empty();
  }
  o.ShowHardlinks = s.GetBool(kSec, "ShowHardlinks") || o.CriterionHardlink;
  o.Prio = s.GetBool(kSec, "Prio");
  o.ExpandAllGroups = s.GetBool(kSec, "ExpandAllGroups");
  o.RemoveGroupsNotInAllSources = s.GetBool(kSec, "RemoveGroupsDupsNotInsideAllSources");
  o.LogFilesWithNoDups = s.GetBool(kSec, "LogFilesWithNoDups");
  o.PlaySound = s.GetBool(kSec, "PlaySoundAfterSearch");
  o.SoundFile = s.Get(kSec, "SoundFileAfterSearch");

  // What the criteria make equal for a whole group, shown on the group row.
  o.GroupSize = (o.CriterionSize || o.CriterionContent) && !o.IgnoreMP3Tags &&
                !o.IgnoreFlacMetadata && !o.IgnoreExif;
  o.GroupDateA = o.CriterionDateA;
  o.GroupDateB = o.CriterionDateB;
  o.GroupAttributes = o.CriterionAttributes;

  static constexpr int kHashLength[] = {0, 16, 20, 32, 48, 64};
  if (o.CriterionContent && c.mode > 0) {
    o.HashLength = kHashLength[c.mode];
    o.ChecksumText = texts.Get(txt::T5028, {ChecksumName(c.mode)});
  }

  o.Filters = Init_FilterOptionen(s, o.Ignore0ByteFiles, &o.FilterProblems);
  o.Description = GetSearchDescription(s, texts);
  o.Colors = LoadResultColors(s);
  o.FormatSize = static_cast<std::int32_t>(s.GetInt("Optionen", "FormatSize"));
  return o;
}

namespace {

// A whole number with blanks around it, or nullopt.
std::optional<long long> WholeNumber(std::string_view text) {
  const std::size_t b = text.find_first_not_of(' ');
  if (b == std::string_view::npos) return std::nullopt;
  text = text.substr(b, text.find_last_not_of(' ') - b + 1);
  long long n = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return n;
}

std::string MendPercent(std::string_view text, const char* notNumeric) {
  const std::optional<long long> n = WholeNumber(text);
  if (!n) return notNumeric;
  if (*n > 100 || *n <= 0) return "100";
  return std::to_string(*n);
}

}  // namespace

std::string MendPicturePercent(std::string_view text) {
  return MendPercent(text, "95");
}

std::string MendAudioMatchPercent(std::string_view text) {
  return MendPercent(text, "90");
}

std::string MendContentPercent(std::string_view text) {
  return MendPercent(text, "100");
}

std::array<std::string, 4> MendCompareBufferFields(const std::array<std::string, 4>& fields) {
  std::array<std::int64_t, 4> values{};
  for (int i = 0; i < 4; ++i) values[i] = WholeNumber(fields[i]).value_or(0);
  MendCompareBuffers(values);
  std::array<std::string, 4> out;
  for (int i = 0; i < 4; ++i) out[i] = std::to_string(values[i]);
  return out;
}

int OfferedThumbSizeIndex(int algorithm, int index) {
  return index == 2 && algorithm != 2 ? 1 : std::clamp(index, 0, 2);
}

void chkSuchKriterien_Click(SettingsStore& s, int index, bool on) {
  if (index < 0 || index >= kCriterionCount) return;
  s.SetBool(kSec, CritKey(index), on);
  const bool standAlone =
      index == kCritHardlink || index == kCritSimilarPics || index == kCritSimilarAudio;
  if (on && standAlone) {
    for (int i = 0; i < kCriterionCount; ++i)
      if (i != index) s.SetBool(kSec, CritKey(i), false);
  }
  if (on && index >= kCritSize && index <= kCritAttributes)
    s.SetBool(kSec, CritKey(kCritHardlink), false);
  if (on && (index == kCritName || index == kCritExtension)) {
    // Size, name and extension never run with a stand-alone criterion.
    s.SetBool(kSec, CritKey(kCritHardlink), false);
    s.SetBool(kSec, CritKey(kCritSimilarPics), false);
    s.SetBool(kSec, CritKey(kCritSimilarAudio), false);
  }
  if (on && index >= kCritSize && index <= kCritAttributes) {
    s.SetBool(kSec, CritKey(kCritSimilarPics), false);
    s.SetBool(kSec, CritKey(kCritSimilarAudio), false);
  }
  // The archive page follows the hard link criterion.
  if (Crit(s, kCritHardlink)) s.SetBool(kSec, "ScanArchives", false);
  // chkDontCompareHardlinks only with content, similar pictures or audio.
  if (!Crit(s, kCritContent) && !Crit(s, kCritSimilarPics) && !Crit(s, kCritSimilarAudio))
    s.SetBool(kSec, "DontCompareHardlinks", false);
  // Fuzzy names follow the name criterion and are switched off by content.
  if (!Crit(s, kCritName) || Crit(s, kCritContent))
    s.SetBool(kSec, "PartialFilenameCompare", false);
}

std::string CriterionCaption(const TextCatalog& texts, int index) {
  static constexpr const TextDef* kCaptions[] = {&txt::T9200, &txt::T9201, &txt::T9202, &txt::T9203,
                                                 &txt::T9204, &txt::T9205, &txt::T9206, &txt::T9207,
                                                 &txt::T9208, &txt::T9209};
  if (index < 0 || index >= kCriterionCount) return {};
  return texts.Get(*kCaptions[index]);
}

std::string SourceCompareCaption(const TextCatalog& texts, int method) {
  static constexpr const TextDef* kCaptions[] = {&txt::T9210, &txt::T9211, &txt::T9212,
                                                 &txt::T9213};
  return texts.Get(*kCaptions[std::clamp(method, 0, 3)]);
}

std::string GetSearchDescription(const SettingsStore& s, const TextCatalog& texts) {
  static constexpr const TextDef* kNameMethods[] = {&txt::T9224, &txt::T9225, &txt::T9226,
                                                    &txt::T9227};
  static constexpr const char* kPartialMethods[] = {"SmartMatch",   "FuzzyMatch", "Levenshtein",
                                                    "Ratcliff",     "MatchDiff",  "WordMatch",
                                                    "FuzzyPercent", "Simil"};
  static constexpr const char* kPicAlgos[] = {"Algorithmus 1", "Algorithmus 2", "Algorithmus 3"};
  static constexpr int kThumb[] = {8, 16, 24};
  std::string out;
  for (int i = 0; i < kCriterionCount; ++i) {
    if (!Crit(s, i)) continue;
    if (!out.empty()) out += " + ";
    out += CriterionCaption(texts, i);
    switch (i) {
      case kCritContent: {
        int mode = static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "ContentCompare"), 0, 5));
        out += " ";
        out += mode == 0 ? texts.Get(txt::T9214) : ChecksumName(mode);
        if (mode == 0) out += fmt::format(" ({}%)", s.Get(kSec, "ContentComparePercent"));
        break;
      }
      case kCritDateA:
      case kCritDateB:
        if (s.GetBool(kSec, "IgnoreTime"))
          out += " (" + texts.Get(txt::T9215) + ")";
        else if (s.GetBool(kSec, "IgnoreSeconds"))
          out += " (" + texts.Get(txt::T9216) + ")";
        break;
      case kCritName: {
        if (s.GetBool(kSec, "PartialFilenameCompare") && !Crit(s, kCritContent)) {
          int pm = static_cast<int>(
              std::clamp<long long>(s.GetInt(kSec, "PartialFilenameCompareMethod"), 0, 7));
          out += fmt::format(" ({}: {}%)", kPartialMethods[pm],
                             s.Get(kSec, "PartialFilenameComparePercent"));
        }
        std::string chars = Unwrap(s.Get(kSec, "IgnoreCharsText"));
        if (s.GetBool(kSec, "IgnoreChars") && !chars.empty())
          out += " (" + texts.Get(txt::T9222) + ": " + chars + ")";
        std::string text = Unwrap(s.Get(kSec, "IgnoreTextText"));
        if (s.GetBool(kSec, "IgnoreText") && !text.empty())
          out += " (" + texts.Get(txt::T9223) + ": " + text + ")";
        long long n = s.GetInt(kSec, "FileNameCompareOnlyFirstCharsCount");
        int method =
            static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "FileNameCompareMethod"), 0, 3));
        if (n > 0 && method > 0)
          out += fmt::format(" ({}: {} {})", texts.Get(*kNameMethods[method]), n,
                             texts.Get(txt::T9221));
        break;
      }
      case kCritSimilarPics: {
        int algo =
            static_cast<int>(std::clamp<long long>(s.GetInt(kSec, "SimiliarImagesAlgo"), 0, 2));
        int size = kThumb[std::clamp<long long>(s.GetInt(kSec, "SimilarPicsThumbSizeIndex"), 0, 2)];
        out += fmt::format(" - {} ({}%) ({}x{})", kPicAlgos[algo],
                           s.Get(kSec, "SimilarPicsMatchPercent"), size, size);
        break;
      }
      case kCritSimilarAudio:
        out += fmt::format(" - ({}s) ({}%)", s.Get(kSec, "SimilarAudioSeconds"),
                           s.Get(kSec, "SimilarAudioMatchPercent"));
        break;
      default:
        break;
    }
  }
  return out;
}

}  // namespace kelvor
