// The grid's columns: table, positions, headings and visibility.

#include "results/result_columns.h"

#include <algorithm>

#include "frame/settings_store.h"

namespace kelvor {

namespace {

constexpr ColumnDef kColumns[kColumnCount] = {
    {kColGroup, "", txt::T3833, "", true, 0, ColumnMask::None, false},
    {kColPath, "path", txt::T4005, "ColumnFilePath", true, 66, ColumnMask::None, false},
    {kColPathA, "pathA", txt::T4018, "ColumnZipPath", true, 67, ColumnMask::None, false},
    {kColAnz, "anz", txt::T3834, "", true, 0, ColumnMask::Count, true},
    {kColSize, "size", txt::T3835, "ColumnSize", true, 68, ColumnMask::Count, true},
    {kColDate, "date", txt::T3836, "ColumnDateM", false, 62, ColumnMask::None, true},
    {kColDateE, "dateE", txt::T3837, "ColumnDateC", false, 63, ColumnMask::None, true},
    {kColOwner, "owner", txt::T3884, "ColumnOwner", false, 65, ColumnMask::None, false},
    {kColAttr, "attr2", txt::T3838, "ColumnAttr", false, 64, ColumnMask::None, false},
    {kColHardlinks, "hardlinks", txt::T4070, "ColumnHardlinks", false, 69,
     ColumnMask::CountZeroDash, true},
    {kColSimilar, "similar", txt::T5055, "ColumnSimilar", false, 10, ColumnMask::Percent, true},
    {kColPicW, "picW", txt::T5264, "ColumnPicWidth", false, 17, ColumnMask::Count, true},
    {kColPicH, "picH", txt::T5265, "ColumnPicHeight", false, 19, ColumnMask::Count, true},
    {kColHardlinkID, "hardlinkID", txt::T5454, "ColumnHardlinkID", false, 413, ColumnMask::None,
     false},
    {kColAudioDuration, "AudioDuration", txt::T5467, "ColumnAudioDuration", false, 415,
     ColumnMask::None, true},
    {kColAudioBitRate, "AudioBitRate", txt::T9639, "ColumnAudioBitRate", false, 416,
     ColumnMask::Count, true},
    {kColAudioSamplingRate, "AudioSamplingRate", txt::T5469, "ColumnAudioSamplingRate", false, 417,
     ColumnMask::Count, true},
};

std::vector<ResultColumn> Build(const ColumnPositions& pos, const SettingsStore* s,
                                const ResultOptions& o, const ColumnContext& ctx,
                                const TextCatalog& texts) {
  std::vector<ResultColumn> out;
  out.reserve(kColumnCount);
  for (const ColumnDef& d : kColumns) {
    ResultColumn c;
    c.id = d.id;
    c.position = pos[d.id];
    c.mask = d.mask;
    if (d.id != kColGroup) CellKeyFromName(d.key, &c.key);
    c.heading = d.id == kColGroup ? texts.Get(d.heading, {GroupByName(o.GroupTitleMode, texts)})
                                  : texts.Get(d.heading);
    bool visible = d.defaultVisible;
    if (!d.visibilityKey.empty() && s) visible = s->GetBool("Optionen", d.visibilityKey);
    const bool datePrecision = o.IgnoreTime || o.IgnoreSeconds;
    switch (d.id) {
      case kColPathA:
        if (!ctx.searchedArchives) visible = false;
        break;
      case kColDate:
        if (o.GroupTitleMode == 4 && !datePrecision) visible = false;
        break;
      case kColDateE:
        if (o.GroupTitleMode == 5 && !datePrecision) visible = false;
        break;
      case kColAttr:
        if (o.GroupTitleMode == 6) visible = false;
        break;
      case kColSimilar:
        if (!ctx.similarity) visible = false;
        break;
      default:
        break;
    }
    c.visible = visible;
    out.push_back(std::move(c));
  }
  std::stable_sort(out.begin(), out.end(), [](const ResultColumn& a, const ResultColumn& b) {
    return a.position < b.position;
  });
  return out;
}

}  // namespace

const ColumnDef& DescribeColumn(int id) {
  if (id < 1 || id > kColumnCount) id = 1;
  return kColumns[id - 1];
}

ColumnPositions DefaultColumnPositions() {
  ColumnPositions p{};
  for (int id = 1; id <= kColumnCount; ++id) p[id] = id;
  return p;
}

ColumnPositions LoadColumnPositions(const SettingsStore& s) {
  const ColumnPositions defaults = DefaultColumnPositions();
  ColumnPositions p = defaults;
  std::array<bool, kColumnCount + 1> taken{};
  for (int id = 1; id <= kColumnCount; ++id) {
    const std::string key = std::to_string(id) + "FolderColumnIndex";
    if (!s.Has("Optionen", key)) return defaults;
    const long long v = s.GetInt("Optionen", key);
    if (v == -1 || v == 0) return defaults;
    // A position outside the grid, or one given twice, would lose a column.
    if (v < 1 || v > kColumnCount || taken[v]) return defaults;
    taken[v] = true;
    p[id] = static_cast<int>(v);
  }
  return p;
}

ColumnContext ColumnContextOfResult(const ResultModel& m) {
  ColumnContext ctx;
  m.ForEachGroup([&](RowRef g) {
    m.ForEachFile(g, [&](RowRef f) {
      if (!ctx.searchedArchives && m.HasCell(f, CellKey::pathA)) ctx.searchedArchives = true;
      if (!ctx.similarity && m.HasCell(f, CellKey::similar)) ctx.similarity = true;
      return !(ctx.searchedArchives && ctx.similarity);
    });
    return !(ctx.searchedArchives && ctx.similarity);
  });
  return ctx;
}

std::vector<ResultColumn> MakeResultColumns(const SettingsStore& s, const ResultOptions& o,
                                            const ColumnContext& ctx, const TextCatalog& texts) {
  return Build(LoadColumnPositions(s), &s, o, ctx, texts);
}

std::vector<ResultColumn> MakeResultColumns(const ResultOptions& o, const ColumnContext& ctx,
                                            const TextCatalog& texts) {
  return Build(DefaultColumnPositions(), nullptr, o, ctx, texts);
}

std::string GroupByName(std::int32_t groupBy, const TextCatalog& texts) {
  switch (groupBy) {
    case 0:
      return texts.Get(txt::T3825);
    case 1:
      return texts.Get(txt::T3826);
    case 2:
      return texts.Get(txt::T3827);
    case 3:
      return texts.Get(txt::T3828);
    case 4:
      return texts.Get(txt::T3829);
    case 5:
      return texts.Get(txt::T3830);
    case 6:
      return texts.Get(txt::T3831);
    case 7:
      return texts.Get(txt::T4070);
    case 8:
      return texts.Get(txt::T5054);
    case 9:
      return texts.Get(txt::T9637);
    default:
      return "???";
  }
}

}  // namespace kelvor
