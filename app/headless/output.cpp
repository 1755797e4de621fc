// Printing a result: groups of paths, or one JSON document.

#include <nlohmann/json.hpp>

#include <ostream>

#include "frame/formats.h"
#include "frame/unicode.h"
#include "headless/headless.h"
#include "results/result_model.h"
#include "results/undo.h"
#include "search/engine.h"

namespace kelvor {

namespace {

// Length of the valid UTF-8 sequence at s[i], or 0 when there is none.
std::size_t Utf8SequenceAt(std::string_view s, std::size_t i) {
  const auto b0 = static_cast<unsigned char>(s[i]);
  std::size_t len = 0;
  if (b0 < 0x80) return 1;
  if (b0 >= 0xC2 && b0 <= 0xDF) len = 2;
  if (b0 >= 0xE0 && b0 <= 0xEF) len = 3;
  if (b0 >= 0xF0 && b0 <= 0xF4) len = 4;
  if (len == 0 || i + len > s.size()) return 0;
  for (std::size_t k = 1; k < len; ++k) {
    if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return 0;
  }
  const auto b1 = static_cast<unsigned char>(s[i + 1]);
  if (b0 == 0xE0 && b1 < 0xA0) return 0;   // overlong
  if (b0 == 0xED && b1 >= 0xA0) return 0;  // surrogates
  if (b0 == 0xF0 && b1 < 0x90) return 0;   // overlong
  if (b0 == 0xF4 && b1 >= 0x90) return 0;  // above U+10FFFF
  return len;
}

bool IsControl(unsigned char c) {
  return c < 0x20 || c == 0x7F;
}

// C1 control characters U+0080..U+009F (C2 80..C2 9F) act on terminals too.
bool IsC1(std::string_view s, std::size_t i, std::size_t len) {
  return len == 2 && static_cast<unsigned char>(s[i]) == 0xC2 &&
         static_cast<unsigned char>(s[i + 1]) <= 0x9F;
}

bool NeedsQuoting(std::string_view name) {
  if (name.substr(0, 2) == "$'") return true;
  for (std::size_t i = 0; i < name.size();) {
    const std::size_t len = Utf8SequenceAt(name, i);
    if (len == 0 || (len == 1 && IsControl(static_cast<unsigned char>(name[i]))) ||
        IsC1(name, i, len))
      return true;
    i += len;
  }
  return false;
}

void AppendHexByte(unsigned char c, std::string& out) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += "\\x";
  out += kHex[c >> 4];
  out += kHex[c & 0xF];
}

std::string Base64(std::string_view bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = static_cast<unsigned char>(bytes[i]) << 16 |
                       static_cast<unsigned char>(bytes[i + 1]) << 8 |
                       static_cast<unsigned char>(bytes[i + 2]);
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += kDigits[(v >> 6) & 63];
    out += kDigits[v & 63];
  }
  if (i < bytes.size()) {
    const bool two = i + 1 < bytes.size();
    const unsigned v = static_cast<unsigned char>(bytes[i]) << 16 |
                       (two ? static_cast<unsigned char>(bytes[i + 1]) << 8 : 0);
    out += kDigits[v >> 18];
    out += kDigits[(v >> 12) & 63];
    out += two ? kDigits[(v >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

}  // namespace

std::string QuoteForLine(std::string_view name) {
  if (!NeedsQuoting(name)) return std::string(name);
  std::string out = "$'";
  for (std::size_t i = 0; i < name.size();) {
    const std::size_t len = Utf8SequenceAt(name, i);
    const auto c = static_cast<unsigned char>(name[i]);
    if (len == 0) {  // a byte that is no UTF-8: its value
      AppendHexByte(c, out);
      ++i;
      continue;
    }
    if (IsC1(name, i, len)) {
      AppendHexByte(c, out);
      AppendHexByte(static_cast<unsigned char>(name[i + 1]), out);
    } else if (len > 1) {
      out.append(name.substr(i, len));
    } else if (c == '\\' || c == '\'') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (IsControl(c)) {
      AppendHexByte(c, out);
    } else {
      out += static_cast<char>(c);
    }
    i += len;
  }
  out += '\'';
  return out;
}

void PrintGroups(const ResultModel& result, std::ostream& out) {
  bool first = true;
  result.ForEachGroup([&](RowRef g) {
    if (!first) out << '\n';
    first = false;
    out << QuoteForLine(result.Caption(g)) << '\n';
    // Paths go out with their real bytes, quoted only where a line could not
    // hold them unambiguously, so that scripts can act on them.
    result.ForEachFile(g, [&](RowRef f) {
      out << QuoteForLine(result.File_GetPathFromNode(f)) << '\n';
      return true;
    });
    return true;
  });
}

void PrintNullSeparated(const ResultModel& result, std::ostream& out) {
  bool first = true;
  result.ForEachGroup([&](RowRef g) {
    if (!first) out << '\0';
    first = false;
    result.ForEachFile(g, [&](RowRef f) {
      out << result.File_GetPathFromNode(f) << '\0';
      return true;
    });
    return true;
  });
}

void PrintJson(const ResultModel& result, const SearchStatistics& stats, double elapsedSeconds,
               std::ostream& out, const UndoHistory* undo) {
  using nlohmann::ordered_json;
  ordered_json doc;
  ordered_json groups = ordered_json::array();
  result.ForEachGroup([&](RowRef g) {
    ordered_json files = ordered_json::array();
    result.ForEachFile(g, [&](RowRef f) {
      ordered_json file;
      const std::string path = result.File_GetPathFromNode(f);
      file["path"] = DisplayUtf8(path);
      if (!IsValidUtf8(path)) file["path_b64"] = Base64(path);
      file["size"] = result.FileSize(f);
      file["modified"] =
          FormatDate(CellAsDouble(result.Cell(f, CellKey::dateVal)), "yyyy-MM-dd hh:nn:ss");
      file["created"] =
          FormatDate(CellAsDouble(result.Cell(f, CellKey::dateEval)), "yyyy-MM-dd hh:nn:ss");
      file["source"] = result.FileSourceNr(f);
      file["marked"] = result.IsMarked(f);
      // The match of a similarity search and the media properties, where
      // the row has them.
      for (CellKey k :
           {CellKey::similar, CellKey::picW, CellKey::picH, CellKey::AudioDurationVal,
            CellKey::AudioDuration, CellKey::AudioBitrate, CellKey::AudioSamplingrate}) {
        if (!result.HasCell(f, k)) continue;
        const CellValue v = result.Cell(f, k);
        const std::string name(CellKeyName(k));
        if (const auto* i = std::get_if<std::int64_t>(&v)) {
          file[name] = *i;
        } else if (const auto* d = std::get_if<double>(&v)) {
          file[name] = *d;
        } else if (const auto* t = std::get_if<std::string>(&v)) {
          file[name] = *t;
        }
      }
      if (result.HasCell(f, CellKey::archiv)) {
        // A member of an archive: "path" is the archive's path and the
        // member's name; the archive and the path inside it on their own.
        const std::size_t slash = path.rfind('/');
        const std::string inner = CellAsText(result.Cell(f, CellKey::pathA));
        const std::string name = path.substr(slash + 1);
        file["archive"] = DisplayUtf8(path.substr(0, slash));
        file["inner_path"] = DisplayUtf8(inner.empty() ? name : inner + "/" + name);
      }
      files.push_back(std::move(file));
      return true;
    });
    ordered_json group;
    group["title"] = result.Caption(g);
    group["check"] = result.GetCheckState(g);
    group["files"] = std::move(files);
    groups.push_back(std::move(group));
    return true;
  });
  doc["groups"] = std::move(groups);
  ordered_json st;
  st["files_total"] = stats.FilesTotal;
  st["files_checked"] = stats.FilesChecked;
  st["files_excluded"] = stats.FilesExcluded;
  st["folders_searched"] = stats.FoldersSearched;
  st["folders_excluded"] = stats.FoldersExcluded;
  st["groups"] = result.GroupCount();
  st["duplicates"] = result.DupCount();
  st["duplicate_bytes"] = result.FilesizeAll();
  st["compares"] = stats.CompareCount;
  st["checksums"] = stats.ChecksumCount;
  st["seconds"] = elapsedSeconds;
  // The counters of the result window's status bar.
  st["DupCount"] = result.DupCount();
  st["DupCountSelected"] = result.DupCountSelected();
  st["FilesizeAll"] = result.FilesizeAll();
  st["FilesizeSelected"] = result.FilesizeSelected();
  doc["statistics"] = std::move(st);
  if (undo) {
    const UndoCommandState& u = undo->CommandState();
    ordered_json j;
    j["enabled"] = u.enabled;
    j["steps"] = undo->UndoCount();
    j["tool_tip"] = u.toolTip;
    doc["undo"] = std::move(j);
  }
  // Titles that are not valid UTF-8 show U+FFFD; paths carry their bytes in
  // "path_b64".
  out << doc.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace kelvor
