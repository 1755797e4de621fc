#include "search/source_folders.h"

#include <sys/stat.h>

#include <cstdlib>

#include "compare/content.h"
#include "data/file_system.h"
#include "frame/settings_store.h"
#include "frame/texts.h"
#include "search/options.h"

namespace kelvor {

namespace {
constexpr const char* kSec = "Ordnerlist";

bool IsFolder(const std::string& path) {
  return xExistFolder_W(path);
}
}  // namespace

std::vector<SourceFolderRow> LoadSourceFolders(const SettingsStore& s) {
  std::vector<SourceFolderRow> rows;
  for (int n = 1;; ++n) {
    std::string num = std::to_string(n);
    std::string path = s.Get(kSec, "V" + num, "");
    if (path.empty()) break;
    SourceFolderRow r;
    r.path = path;
    r.checked = s.Get(kSec, "A" + num, "0") != "0";
    r.subfolders = s.Get(kSec, "U" + num, "0") != "0";
    r.protect = s.Get(kSec, "P" + num, "0") != "0";
    r.text = s.Get(kSec, "T" + num, "");
    rows.push_back(std::move(r));
  }
  return rows;
}

void StoreSourceFolders(SettingsStore& s, const std::vector<SourceFolderRow>& rows) {
  // Drop the old list entirely, so that a shorter list does not keep stale rows.
  for (int n = 1; s.Has(kSec, "V" + std::to_string(n)); ++n) {
    std::string num = std::to_string(n);
    for (const char* k : {"V", "A", "U", "P", "T"}) s.Remove(kSec, k + num);
  }
  int n = 0;
  for (const auto& r : rows) {
    std::string num = std::to_string(++n);
    s.Set(kSec, "V" + num, r.path);
    s.SetInt(kSec, "A" + num, r.checked ? 1 : 0);
    s.SetInt(kSec, "U" + num, r.subfolders ? 1 : 0);
    s.SetInt(kSec, "P" + num, r.protect ? 1 : 0);
    s.Set(kSec, "T" + num, r.text);
  }
}

std::string NormalizeSourcePath(const std::string& in) {
  std::size_t b = in.find_first_not_of(" \t");
  std::size_t e = in.find_last_not_of(" \t");
  if (b == std::string::npos) return {};
  std::string p = in.substr(b, e - b + 1);
  if (p == "~" || p.rfind("~/", 0) == 0) {
    const char* home = std::getenv("HOME");
    if (home && *home) p = std::string(home) + p.substr(1);
  }
  std::string out;
  out.reserve(p.size());
  for (char c : p) {
    if (c == '/' && !out.empty() && out.back() == '/') continue;
    out += c;
  }
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

void Folder_Add_to_List(std::vector<SourceFolderRow>& rows, const std::string& path,
                        bool subfolders) {
  std::string p = NormalizeSourcePath(path);
  if (p.empty()) return;
  for (auto& r : rows) {
    if (NormalizeSourcePath(r.path) == p) {
      r.checked = true;
      return;
    }
  }
  SourceFolderRow r;
  r.path = p;
  r.subfolders = subfolders;
  rows.push_back(std::move(r));
}

bool FoldersOverlap(const SourceFolderRow& a, const SourceFolderRow& b) {
  // Linux paths are case-sensitive: "/data/A" and "/data/a" are two folders.
  std::string pa = NormalizeSourcePath(a.path), pb = NormalizeSourcePath(b.path);
  if (pa == pb) return true;
  const SourceFolderRow* shorter = pa.size() < pb.size() ? &a : &b;
  const std::string& sp = pa.size() < pb.size() ? pa : pb;
  const std::string& lp = pa.size() < pb.size() ? pb : pa;
  if (!shorter->subfolders) return false;
  if (sp == "/") return true;  // the root holds everything
  return lp.size() > sp.size() && lp.compare(0, sp.size(), sp) == 0 && lp[sp.size()] == '/';
}

std::string StartSearchForDups(const SettingsStore& s, const std::vector<SourceFolderRow>& rows,
                               const TextCatalog& texts) {
  bool any = false;
  for (int i = 0; i < kCriterionCount; ++i)
    any = any || s.GetBool("DupVerz", "Suchkriterien" + std::to_string(i));
  if (!any) return texts.Get(txt::T3626);
  std::vector<const SourceFolderRow*> checked;
  for (const auto& r : rows) {
    if (!r.checked) continue;
    std::string p = NormalizeSourcePath(r.path);
    if (!IsFolder(p)) return texts.Get(txt::T3681, {p});
    checked.push_back(&r);
  }
  if (checked.empty()) return texts.Get(txt::T3627);

  int method = static_cast<int>(s.GetInt("DupVerz", "SourceFolderCompareMode"));
  if (method == kSourceAcross && checked.size() == 1)
    return texts.Get(txt::T5203, {SourceCompareCaption(texts, method)});

  if (checked.size() > 1) {
    for (std::size_t i = 0; i < checked.size(); ++i)
      for (std::size_t j = i + 1; j < checked.size(); ++j)
        if (FoldersOverlap(*checked[i], *checked[j]))
          return texts.Get(txt::T3628, {NormalizeSourcePath(checked[i]->path),
                                        NormalizeSourcePath(checked[j]->path)});
  }

  if (s.GetBool("DupVerz", "Suchkriterien3")) {
    int mode = static_cast<int>(s.GetInt("DupVerz", "ContentCompare"));
    std::string error;
    if (mode > 0 && !ChecksumAvailable(mode, &error)) return texts.Get(txt::T5140, {error});
  }
  return {};
}

}  // namespace kelvor
