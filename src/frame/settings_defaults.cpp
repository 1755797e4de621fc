// The table of every known settings key with its default. A '#' in a key
// stands for a running number (rows of lists: "V0", "V1", ...; column
// positions: "1FolderColumnIndex", ...).
//
// Choices made where the behaviour was left open:
// - "ScanArchives" is the switch that the search reads; "ScanArchive" is kept
//   as a key of its own (the state of the option page) with the same default.
// - TempFolder defaults to "/tmp"; system variables in it ($VAR, %VAR%) are
//   replaced by the file-system layer.
// - ExternalPrgOpenFolderText opens the folder in the desktop's file manager.
// - Lists of rows end at the first row whose leading key (V, F, D) is missing.

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "frame/settings_store.h"
#include "frame/unicode.h"

namespace kelvor {
namespace {

struct KeyDefault {
  const char* section;
  const char* key;
  const char* value;
};

// clang-format off
const KeyDefault kDefaults[] = {
    // Search criteria and general options.
    {"DupVerz", "Suchkriterien", "0"},
    {"DupVerz", "Suchkriterien#", "0"},
    {"DupVerz", "ContentCompare", "2"},
    {"DupVerz", "ContentComparePercent", "100"},
    {"DupVerz", "DontCompareHardlinks", "0"},
    {"DupVerz", "IgnoreMP3Tags", "0"},
    {"DupVerz", "IgnoreFlacMetadata", "0"},
    {"DupVerz", "IgnoreExif", "0"},
    {"DupVerz", "IgnoreChars", "0"},
    {"DupVerz", "IgnoreCharsText", ""},
    {"DupVerz", "IgnoreText", "0"},
    {"DupVerz", "IgnoreTextText", ""},
    {"DupVerz", "CompareFileEndFirst", "1"},
    {"DupVerz", "IgnoreTime", "0"},
    {"DupVerz", "IgnoreSeconds", "0"},
    {"DupVerz", "PartialFilenameCompare", "0"},
    {"DupVerz", "PartialFilenameComparePercent", "90"},
    {"DupVerz", "PartialFilenameCompareMethod", "0"},
    {"DupVerz", "PartialFilenameCompareMethodDelimiterChars", " ,_.;-"},
    {"DupVerz", "FileNameCompareMethod", "0"},
    {"DupVerz", "FileNameCompareOnlyFirstCharsCount", "5"},
    {"DupVerz", "SimilarAudioAlgo", "2"},
    {"DupVerz", "SimilarAudioMatchPercent", "70"},
    {"DupVerz", "SimilarAudioSeconds", "30"},
    {"DupVerz", "SimilarAudioOnlySameFileType", "0"},
    {"DupVerz", "SimiliarImagesAlgo", "0"},
    {"DupVerz", "SimilarPicsMatchPercent", "91"},
    {"DupVerz", "SimilarPicsThumbSizeIndex", "1"},
    {"DupVerz", "SimiliarImagesOnlySameFileType", "1"},
    {"DupVerz", "SimiliarImagesOnlySameDimension", "0"},
    {"DupVerz", "SimiliarImagesOnlySameFormat", "1"},
    {"DupVerz", "SimiliarImagesOnlySameRatio", "1"},
    {"DupVerz", "SimiliarImagesRotateFlip", "0"},
    {"DupVerz", "CompareBuffer0", "16384"},
    {"DupVerz", "CompareBuffer1", "32768"},
    {"DupVerz", "CompareBuffer2", "16384"},
    {"DupVerz", "CompareBuffer3", "32768"},
    {"DupVerz", "ProfileKeineQuellordner", "1"},
    {"DupVerz", "ToolbarTheme", "14"},
    {"DupVerz", "DateFormat3", "dd/MM/yyyy hh:nn:ss"},
    {"DupVerz", "LogFilesWithNoDups", "0"},
    {"DupVerz", "LogStatistic", "0"},
    {"DupVerz", "LogStatisticMinutes", "5"},
    {"DupVerz", "CancelSearchMaxDup", "0"},
    {"DupVerz", "CancelSearchMaxDupCount", "999"},
    {"DupVerz", "LogDel", "1"},
    {"DupVerz", "LogDelDays", "10"},
    {"DupVerz", "Kontextmenu", "0"},
    {"DupVerz", "CheckNewVersion", "0"},
    {"DupVerz", "CheckNewBetaVersion", "0"},
    {"DupVerz", "UnicodeSupport", "0"},
    {"DupVerz", "ExternalPrgOpenFolder", "0"},
    {"DupVerz", "ExternalPrgOpenFolderText", "xdg-open \"%1\""},
    {"DupVerz", "ExternalPrgOpenFiles", "0"},
    {"DupVerz", "ExternalPrgOpenFilesText", ""},
    {"DupVerz", "ProgCompare", ""},
    {"DupVerz", "UseProgCompareWord", "1"},
    {"DupVerz", "ProgCompareWord", "doc,docx,rtf,txt"},
    {"DupVerz", "Prio", "0"},
    {"DupVerz", "ExpandAllGroups", "0"},
    {"DupVerz", "RemoveGroupsDupsNotInsideAllSources", "0"},
    {"DupVerz", "ShowOwner", "0"},
    {"DupVerz", "ShowPicWidthHeight", "0"},
    {"DupVerz", "ShowAudioProperties", "0"},
    {"DupVerz", "ShowAudioPropertiesExt", "m4a,mp3,wav"},
    {"DupVerz", "ShowHardlinks", "0"},
    {"DupVerz", "ShowOnlyFilesWithoutDups", "0"},
    {"DupVerz", "PlaySoundAfterSearch", "0"},
    {"DupVerz", "SoundFileAfterSearch", ""},
    {"DupVerz", "SoundFileAfterSearchOrig", ""},
    {"DupVerz", "FilterVerwendenBest", "0"},
    {"DupVerz", "ScanArchives", "0"},
    {"DupVerz", "ScanArchive", "0"},
    {"DupVerz", "TempFolderOrig", ""},
    {"DupVerz", "TempFolder", "/tmp"},
    {"DupVerz", "LogPasswordProtectedFiles", "0"},
    {"DupVerz", "DeleteTempFilesAfterCreateChecksum", "0"},
    // Checksums kept across runs in <data>/data/checksums.sqlite (Kelvor's own key).
    {"DupVerz", "ChecksumCache", "1"},
    {"DupVerz", "ZipSizeFilter", "1"},
    {"DupVerz", "ZipSizeFilterTyp", "2"},
    {"DupVerz", "ZipSizeFilterSize", "20"},
    {"DupVerz", "NullByte", "0"},
    {"DupVerz", "NTFSordner", "1"},
    {"DupVerz", "SourceFolderCompareMode", "0"},

    // Size filter.
    {"FilterGrösse", "Aktiv", "0"},
    {"FilterGrösse", "Art", "0"},
    {"FilterGrösse", "Typ", "0"},
    {"FilterGrösse", "Grösse", "0"},
    {"FilterGrösse", "Aktiv2", "0"},
    {"FilterGrösse", "Art2", "1"},
    {"FilterGrösse", "Typ2", "0"},
    {"FilterGrösse", "Grösse2", "0"},

    // Source folders.
    {"Ordnerlist", "V#", ""},
    {"Ordnerlist", "A#", "0"},
    {"Ordnerlist", "U#", "0"},
    {"Ordnerlist", "P#", "0"},
    {"Ordnerlist", "T#", ""},

    // File filters.
    {"Dateifilter", "Verwenden", "0"},
    {"DupFilter", "F#", ""},
    {"DupFilter", "C#", "0"},
    {"DupFilter", "Filtertyp", "0"},
    {"DateiFilterPlatzhalter", "Aktiv", "0"},
    {"DateiFilterGrossKlein", "Aktiv", "0"},

    // Folder filters.
    {"Ordnerfilter", "Verwenden", "1"},
    {"DupFilterOrdner", "F#", ""},
    {"DupFilterOrdner", "C#", "0"},
    {"DupFilterOrdner", "Filtertyp", "0"},
    {"OrdnerFilterPlatzhalter", "Aktiv", "0"},
    {"OrdnerFilterGrossKlein", "Aktiv", "0"},
    {"OrdnerFilterUnterordner", "Aktiv", "0"},

    // Which extensions go to which viewer.
    {"Dateiansicht", "D#", ""},
    {"Dateiansicht", "C#", "-1"},
    {"Browseransicht", "D#", ""},
    {"Browseransicht", "C#", "-1"},
    {"WMPendungen", "D#", ""},
    {"WMPendungen", "C#", "-1"},
    {"VLCendungen", "D#", ""},
    {"VLCendungen", "C#", "-1"},
    {"PICendungen", "D#", ""},
    {"PICendungen", "C#", "-1"},

    // Language.
    {"Allgemein", "Lang", "0"},
    {"Allgemein", "UseLangTxt", "0"},

    // Profile comment (profiles only).
    {"Profile", "Comment", ""},

    // The result window's options.
    {"Optionen", "#FolderColumnIndex", "-1"},
    {"Optionen", "DateivorschauAktiv", "0"},
    {"Optionen", "PreviewWindow", "0"},
    {"Optionen", "PreviewWindowTopMost", "0"},
    {"Optionen", "PreviewWindowTaskBar", "0"},
    {"Optionen", "SelectionMode", "0"},
    {"Optionen", "LoeschenBestaetigen", "1"},
    {"Optionen", "BeendenBestaetigen", "1"},
    {"Optionen", "BigToolbarIcons", "0"},
    {"Optionen", "HideToolbars", "0"},
    {"Optionen", "AutoColResize", "1"},
    {"Optionen", "AutoColResizeType", "0"},
    {"Optionen", "ShowInfoSymbols", "1"},
    {"Optionen", "Fontsize", "9"},
    {"Optionen", "ColumnDateM", "0"},
    {"Optionen", "ColumnDateC", "0"},
    {"Optionen", "ColumnAttr", "0"},
    {"Optionen", "ColumnOwner", "0"},
    {"Optionen", "ColumnFilePath", "1"},
    {"Optionen", "ColumnZipPath", "1"},
    {"Optionen", "ColumnSize", "1"},
    {"Optionen", "ColumnHardlinks", "0"},
    {"Optionen", "ColumnHardlinkID", "0"},
    {"Optionen", "ColumnSimilar", "0"},
    {"Optionen", "ColumnPicWidth", "0"},
    {"Optionen", "ColumnPicHeight", "0"},
    {"Optionen", "ColumnAudioDuration", "0"},
    {"Optionen", "ColumnAudioBitRate", "0"},
    {"Optionen", "ColumnAudioSamplingRate", "0"},
    {"Optionen", "SelectedFilesBackgroundColor", "16777215"},
    {"Optionen", "UserSelectedFilesBackgroundColor", "16777215"},
    {"Optionen", "ArchiveFileTextColor", "13579779"},
    {"Optionen", "ReferenceFileTextColor", "4297405"},
    {"Optionen", "HardlinkTextColor", "10053222"},
    {"Optionen", "GroupBackColor", "16382443"},
    {"Optionen", "GroupTextColor", "0"},
    {"Optionen", "FormatSize", "0"},
    {"Optionen", "FormatSizeDecimal", "2"},
    {"Optionen", "SearchCaseSensitive", "0"},
    {"Optionen", "SearchUseWildcards", "0"},
    {"Optionen", "SearchAllColumns", "0"},
    {"Optionen", "SearchExcludeSelectedFiles", "0"},
    {"Optionen", "SearchWrap", "1"},
    {"Optionen", "ThumbnailSize", "128"},
    {"Optionen", "File_Moving_Path", ""},
    {"Optionen", "File_Copying_Path", ""},

    // The file manager's window.
    {"Aktionen", "Aktion", "0"},
    {"Aktionen", "GroupAction", "0"},
    {"Aktionen", "LogNoActions", "1"},
    {"Aktionen", "OptionShortcut", "0"},
    {"Aktionen", "OptionHardlink", "0"},
    {"Aktionen", "Ordner", ""},
    {"Aktionen", "Ordnerstruktur", "1"},
    {"Aktionen", "CreateSubfolder", "1"},
    {"Aktionen", "CreateSubfolderText", "\"%USERNAME%/\"YYYY-MM-DD HH-NN-SS"},
    {"Aktionen", "DateienEntfernen", "1"},
    {"Aktionen", "GruppenEntfernen", "0"},
    {"Aktionen", "SetFileSizeToZero", "0"},
    {"Aktionen", "Rename", "DUPLIKAT %1%2"},
    {"Aktionen", "DelEmptyFolders", "0"},
    {"Aktionen", "SecureHint", "1"},
    {"Aktionen", "IfErrorDontAskToAbort", "0"},
    {"Aktionen", "CloseFileManager", "0"},
    {"Aktionen", "IgnoreGroupsAllFilesSelected", "1"},
    {"Aktionen", "CheckUnchanged", "1"},
    {"Aktionen", "DryRun", "0"},
    {"Aktionen", "OptionReflink", "0"},

    // Export.
    {"ExportList", "SaveFileType", "0"},
    {"ExportList", "FileFormat", "TXT"},
    {"ExportList", "Delimiter", "0"},
    {"ExportList", "DelimiterChars", " "},
    {"ExportList", "SaveOnlyFiles", "0"},
    {"ExportList", "OpenFile", "0"},
    {"ExportList", "LastSaveDir", ""},
    {"ExportList", "LastSaveFileName", ""},
};
// clang-format on

struct Pattern {
  std::string section;  // lower case
  std::string prefix;   // lower case, before '#'
  std::string suffix;   // lower case, after '#'
  const char* value;
};

struct Table {
  std::unordered_map<std::string, const char*> exact;  // "section\nkey", lower case
  std::vector<Pattern> patterns;

  Table() {
    for (const auto& d : kDefaults) {
      const std::string section = LowerCase(d.section);
      const std::string key = LowerCase(d.key);
      const auto hash = key.find('#');
      if (hash == std::string::npos) {
        exact.emplace(section + '\n' + key, d.value);
      } else {
        patterns.push_back({section, key.substr(0, hash), key.substr(hash + 1), d.value});
      }
    }
  }
};

const Table& TheTable() {
  static const Table table;  // built once, read-only afterwards
  return table;
}

bool AllDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

}  // namespace

const char* SettingsStore::DefaultOf(std::string_view section, std::string_view key) {
  const Table& t = TheTable();
  const std::string lsection = LowerCase(section);
  const std::string lkey = LowerCase(key);
  if (auto it = t.exact.find(lsection + '\n' + lkey); it != t.exact.end()) return it->second;
  for (const auto& p : t.patterns) {
    if (p.section != lsection) continue;
    if (lkey.size() <= p.prefix.size() + p.suffix.size()) continue;
    if (lkey.compare(0, p.prefix.size(), p.prefix) != 0) continue;
    if (lkey.compare(lkey.size() - p.suffix.size(), p.suffix.size(), p.suffix) != 0) continue;
    const std::string_view middle = std::string_view(lkey).substr(
        p.prefix.size(), lkey.size() - p.prefix.size() - p.suffix.size());
    if (AllDigits(middle)) return p.value;
  }
  return nullptr;
}

}  // namespace kelvor
