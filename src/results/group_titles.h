#pragma once
// Group titles for every GroupTitleMode, and the record texts that file rows
// share with them. Internal to results/.

#include <string>
#include <string_view>

#include "data/file_record.h"
#include "results/result_model.h"

namespace kelvor::result_detail {

// The title of the group that `first` opens, for the title mode and the name,
// date and source options of `o`.
std::string MakeGroupTitle(const ResultOptions& o, const FileRecord& first,
                           const GroupContext& ctx);

// The hard link identity in hexadecimal volume-high-low form.
std::string DefaultHardlinkId(const FileRecord& r);
// Joins a source folder and a folder below it ("" or "/sub/dir").
std::string JoinFolder(std::string_view source, std::string_view rel);
// Name, and "." + Extension when there is one.
std::string NameWithExtension(const FileRecord& r);
// The source folder of source number `q` (1-based); "" when unknown.
std::string_view SourceFolder(const ResultOptions& o, int q);

}  // namespace kelvor::result_detail
