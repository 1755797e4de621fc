#pragma once
// The archive scan: the members of one archive, listed from its headers, go
// one by one through the rules that decide whether a member takes part in
// the search (folders, the archive size filter, the picture and audio lists,
// encrypted members, the file filters) and on to the caller, which hands
// them to the comparison like files. Nothing is extracted here.
//
// The scan stands below the search: it is told the rules as a plain record
// and reaches the filters, the cascade and the pacing through hooks.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "archive/archive_reader.h"

namespace kelvor {

class Logger;
class TextCatalog;

struct MemberRules {
  // The criteria read member data (content, similar pictures or audio):
  // then the archive size filter applies and encrypted members are left out.
  bool readsContent = false;
  bool sizeFilter = false;
  std::int64_t sizeLimit = 0;  // members of this size or larger are left out
  // The extension list of a single-purpose search ("/jpg/png/"), or null.
  // Members of size 0 are left out by it too.
  const char* onlyExtensions = nullptr;
  bool logEncrypted = false;  // log the members left out for a password
  // Members without a stated size are measured up to this many bytes; one
  // that runs on past it is left out and logged.
  std::int64_t unstatedCap = kUnstatedSizeCap;
};

struct ArchiveScanHooks {
  // The pause/stop/refresh of the loop, once per member with the members
  // seen so far; false stops the scan.
  std::function<bool(std::int64_t seen)> step;
  // The file filters: true when the member is left out. `memberPath` is the
  // member's path inside the archive, "" when that is the file name alone.
  std::function<bool(std::int64_t size, std::string_view name, std::string_view memberPath)>
      leftOut;
  // A member that takes part: its folder inside the archive ("" at the
  // root), its file name and header. False stops the scan.
  std::function<bool(std::string_view innerFolder, std::string_view name,
                     const ArchiveMember& member)>
      take;
};

struct ArchiveScanCounts {
  std::int32_t membersChecked = 0;   // members (not folders) the scan saw
  std::int32_t membersExcluded = 0;  // members left out by a rule or filter
  std::int64_t excludedSize = 0;     // their bytes
};

// Scans `archivePath` (the archive list's type `listType`), logging what
// cannot be read. Adds to `counts`. Returns Stopped when a hook stopped it.
ArchiveStatus Search_ScanArchive(const std::string& archivePath, int listType,
                                 const MemberRules& rules, const ArchiveScanHooks& hooks,
                                 const TextCatalog& texts, Logger& log, ArchiveScanCounts& counts);

}  // namespace kelvor
