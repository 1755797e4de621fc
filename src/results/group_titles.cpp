// Group titles: what a new group is called, for each GroupTitleMode.

#include "results/group_titles.h"

#include <fmt/format.h>

#include <cstdlib>

#include "frame/formats.h"
#include "frame/unicode.h"

namespace kelvor::result_detail {

std::string DefaultHardlinkId(const FileRecord& r) {
  const std::int64_t vol = std::llabs(static_cast<long long>(r.VolumeSerialNumber));
  return fmt::format("{:X}-{:X}-{:X}", vol, static_cast<std::uint32_t>(r.FileIndexHigh),
                     static_cast<std::uint32_t>(r.FileIndexLow));
}

std::string JoinFolder(std::string_view source, std::string_view rel) {
  std::string out(source);
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  if (!rel.empty()) {
    if (!out.empty() && out.back() == '/' && rel.front() == '/') rel.remove_prefix(1);
    if (!out.empty() && out.back() != '/' && rel.front() != '/') out += '/';
    out += rel;
  }
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

std::string NameWithExtension(const FileRecord& r) {
  return r.Extension.empty() ? r.Name : r.Name + "." + r.Extension;
}

std::string_view SourceFolder(const ResultOptions& o, int q) {
  if (q < 1 || static_cast<std::size_t>(q) > o.SourceFolders.size()) return {};
  return o.SourceFolders[static_cast<std::size_t>(q - 1)];
}

namespace {

// Title mode 1: the name after the ignore rules, cut by the file name method
// (the first or the last n characters; the third method does not cut).
std::string NameTitle(const ResultOptions& o, const FileRecord& first, const GroupContext& ctx) {
  std::string name(ctx.NameAfterIgnore.empty() ? std::string_view(first.Name)
                                               : ctx.NameAfterIgnore);
  const int n = o.FileNameChars;
  if ((o.FileNameMethod == 1 || o.FileNameMethod == 2) && n > 0) {
    std::u32string cps = ToCodePoints(name);
    if (cps.size() > static_cast<std::size_t>(n)) {
      cps = o.FileNameMethod == 1 ? cps.substr(0, static_cast<std::size_t>(n))
                                  : cps.substr(cps.size() - static_cast<std::size_t>(n));
      name = FromCodePoints(cps);
    }
  }
  if (!first.Extension.empty()) name += "." + first.Extension;
  return name;
}

}  // namespace

std::string MakeGroupTitle(const ResultOptions& o, const FileRecord& first,
                           const GroupContext& ctx) {
  switch (o.GroupTitleMode) {
    case 0:
      if (!first.NameKey.empty()) return first.NameKey;
      return "." + first.Extension;
    case 1:
      return NameTitle(o, first, ctx);
    case 2:
      if (first.Extension.empty()) return "[Ohne Dateiendung]";
      return UpperCase(first.Extension);
    case 3:
      return std::to_string(first.SIZE);
    case 4:
      return FormatDate(GroupDateValue(first.DateLastModified, o), GroupDateMask(o));
    case 5:
      return FormatDate(GroupDateValue(first.DateCreated, o), GroupDateMask(o));
    case 6: {
      std::string a = FormatAttributeLetters(first.Attributes);
      return a.empty() ? std::string("[Keine Attribute]") : a;
    }
    case 7: {
      std::string id =
          ctx.HardlinkId.empty() ? DefaultHardlinkId(first) : std::string(ctx.HardlinkId);
      return fmt::format("{} ({})", id, first.NumberOfLinks);
    }
    case 8:
    case 9: {
      std::string folder = JoinFolder(SourceFolder(o, first.SourceNr), first.Path);
      if (folder.empty() || folder.back() != '/') folder += '/';
      return folder + NameWithExtension(first);
    }
    default:
      return first.NameKey;
  }
}

}  // namespace kelvor::result_detail
