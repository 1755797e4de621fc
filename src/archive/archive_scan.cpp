#include "archive/archive_scan.h"

#include "frame/formats.h"
#include "frame/log.h"
#include "frame/texts.h"
#include "frame/unicode.h"

namespace kelvor {

namespace {

// The lower-cased extension between slashes, "//" when there is none.
std::string SlashedExtension(std::string_view name) {
  std::size_t dot = name.rfind('.');
  std::string ext = dot == std::string_view::npos ? std::string() : LowerCase(name.substr(dot + 1));
  return "/" + ext + "/";
}

}  // namespace

ArchiveStatus Search_ScanArchive(const std::string& archivePath, int listType,
                                 const MemberRules& rules, const ArchiveScanHooks& hooks,
                                 const TextCatalog& texts, Logger& log, ArchiveScanCounts& counts) {
  std::int64_t seen = 0;
  auto visit = [&](const ArchiveMember& m) -> bool {
    if (!hooks.step(seen)) return false;
    if (m.isFolder) return true;
    ++seen;
    ++counts.membersChecked;
    auto leaveOut = [&] {
      ++counts.membersExcluded;
      counts.excludedSize += m.size;
      return true;
    };
    if (m.sizeOverCap) {
      // Its true size is unknown, and extracting it could fill the disk.
      log.LogProtokoll(
          texts.Get(txt::T9587, {m.path, archivePath, FormatNumber(rules.unstatedCap)}), true);
      return leaveOut();
    }
    if (rules.readsContent && rules.sizeFilter && m.size >= rules.sizeLimit) return leaveOut();
    const std::size_t slash = m.path.rfind('/');
    const std::string_view path(m.path);
    const std::string_view name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string_view folder =
        slash == std::string::npos ? std::string_view() : path.substr(0, slash);
    if (rules.onlyExtensions &&
        (m.size == 0 ||
         std::string_view(rules.onlyExtensions).find(SlashedExtension(name)) == std::string::npos))
      return leaveOut();
    if (rules.readsContent && m.encrypted) {
      if (rules.logEncrypted) log.LogProtokoll(texts.Get(txt::T5380, {m.path, archivePath}));
      return leaveOut();
    }
    if (hooks.leftOut(m.size, name, folder.empty() ? std::string_view() : path)) return leaveOut();
    return hooks.take(folder, name, m);
  };
  ArchiveOutcome out = ListArchive(archivePath, listType, visit, rules.unstatedCap);
  switch (out.status) {
    case ArchiveStatus::Ok:
      if (out.members == 0) log.LogProtokoll(texts.Get(txt::T5473, {archivePath}));
      break;
    case ArchiveStatus::Unreadable:
      log.LogProtokoll(texts.Get(txt::T5473, {archivePath}));
      break;
    case ArchiveStatus::Encrypted:
      log.LogProtokoll(texts.Get(txt::T9580, {archivePath}));
      break;
    case ArchiveStatus::OpenFailed:
      log.LogProtokoll(texts.Get(txt::T9581, {archivePath, out.error}), true);
      break;
    case ArchiveStatus::ReadFailed:
      log.LogProtokoll(texts.Get(txt::T9582, {out.error, archivePath}), true);
      break;
    case ArchiveStatus::Stopped:
    case ArchiveStatus::MemberMissing:
      break;
  }
  return out.status;
}

}  // namespace kelvor
