// Printing a result: groups of paths, or one JSON document.

#include <nlohmann/json.hpp>

#include <ostream>

#include "frame/formats.h"
#include "headless/headless.h"
#include "results/result_model.h"
#include "search/engine.h"

namespace kelvor {

void PrintGroups(const ResultModel& result, std::ostream& out) {
  bool first = true;
  result.ForEachGroup([&](RowRef g) {
    if (!first) out << '\n';
    first = false;
    out << result.Caption(g) << '\n';
    // Paths go out with their real bytes, so that scripts can act on them.
    result.ForEachFile(g, [&](RowRef f) {
      out << result.File_GetPathFromNode(f) << '\n';
      return true;
    });
    return true;
  });
}

void PrintJson(const ResultModel& result, const SearchStatistics& stats, double elapsedSeconds,
               std::ostream& out) {
  using nlohmann::ordered_json;
  ordered_json doc;
  ordered_json groups = ordered_json::array();
  result.ForEachGroup([&](RowRef g) {
    ordered_json files = ordered_json::array();
    result.ForEachFile(g, [&](RowRef f) {
      ordered_json file;
      file["path"] = result.File_GetPathFromNode(f);
      file["size"] = result.FileSize(f);
      file["modified"] =
          FormatDate(CellAsDouble(result.Cell(f, CellKey::dateVal)), "yyyy-MM-dd hh:nn:ss");
      file["created"] =
          FormatDate(CellAsDouble(result.Cell(f, CellKey::dateEval)), "yyyy-MM-dd hh:nn:ss");
      file["source"] = result.FileSourceNr(f);
      files.push_back(std::move(file));
      return true;
    });
    ordered_json group;
    group["title"] = result.Caption(g);
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
  doc["statistics"] = std::move(st);
  // Names that are not valid UTF-8 show U+FFFD here; the plain output keeps
  // their bytes.
  out << doc.dump(2, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace kelvor
