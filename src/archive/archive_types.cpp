#include "archive/archive_types.h"

#include <string>

#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {
constexpr std::string_view kTypes[] = {"zip", "rar", "7z",  "iso", "cab", "tar", "gz",  "epub",
                                       "cbr", "nrg", "lzh", "lha", "arj", "cbz", "cb7", "cbt"};

bool EndsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
}  // namespace

int ArchiveTypeOf(std::string_view fileName, const std::array<bool, 17>& enabled) {
  std::size_t dot = fileName.rfind('.');
  if (dot == std::string_view::npos) return 0;
  std::string lower = LowerCase(fileName);
  std::string_view name(lower);
  std::string_view ext = name.substr(dot + 1);
  int type = 0;
  for (int i = 0; i < 16; ++i) {
    if (ext == kTypes[i]) {
      type = i + 1;
      break;
    }
  }
  if (type == 2) {
    // Of a multi-volume set only the first part is an archive.
    std::size_t part = name.rfind(".part");
    if (part != std::string_view::npos) {
      std::string_view digits = name.substr(part + 5, dot - part - 5);
      unsigned long long v = 0;
      bool numeric = !digits.empty();
      for (char c : digits) {
        if (c < '0' || c > '9')
          numeric = false;
        else
          v = v * 10 + static_cast<unsigned>(c - '0');
      }
      if (!numeric || v != 1) return 0;
    }
  }
  if (type == 7 && EndsWith(name, ".tar.gz")) return 0;
  if (type == 0 && ext == "001") {
    if (EndsWith(name, ".7z.001"))
      type = 3;
    else if (EndsWith(name, ".zip.001"))
      type = 1;
    else if (EndsWith(name, ".tar.001"))
      type = 6;
  }
  return type > 0 && enabled[type] ? type : 0;
}

std::string_view ArchiveTypeName(int listType) {
  return listType >= 1 && listType <= 16 ? kTypes[listType - 1] : std::string_view();
}

std::vector<std::string> ArchiveLogHeaderLines(const std::array<bool, 17>& types, bool sizeFilter,
                                               std::int64_t sizeLimit, const TextCatalog& texts) {
  std::vector<std::string> lines;
  std::string list;
  for (int i = 1; i <= 16; ++i) {
    if (!types[i]) continue;
    if (!list.empty()) list += ", ";
    list += ArchiveTypeName(i);
  }
  lines.push_back(texts.Get(txt::T5173, {texts.Get(txt::T9584) + ": " + list}));
  if (sizeFilter) {
    const bool mb = sizeLimit % 1048576 == 0;
    const std::string limit =
        std::to_string(sizeLimit / (mb ? 1048576 : 1024)) + (mb ? " MB" : " KB");
    lines.push_back(texts.Get(txt::T5173, {texts.Get(txt::T9585) + " " + limit}));
  }
  return lines;
}

std::uint8_t RecordArchiveType(int listType) {
  if (listType < 1 || listType > 16) return 0;
  return static_cast<std::uint8_t>(listType <= 2 ? listType : listType + 1);
}

int ListTypeOfRecord(std::uint8_t archiveType) {
  if (archiveType == 0 || archiveType == 3 || archiveType > 17) return 0;
  return archiveType <= 2 ? archiveType : archiveType - 1;
}

}  // namespace kelvor
