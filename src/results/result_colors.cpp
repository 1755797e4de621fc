// Colours of the result rows, from section "Optionen" of the settings.

#include "frame/settings_store.h"
#include "results/result_model.h"

namespace kelvor {

ResultColors LoadResultColors(const SettingsStore& s) {
  ResultColors c;
  auto read = [&s](std::string_view key, std::int32_t deflt) {
    if (!s.Has("Optionen", key)) return deflt;
    const long long v = s.GetInt("Optionen", key);
    // An RGB value outside 0..0xFFFFFF is a broken setting: keep the default.
    return v >= 0 && v <= 0xFFFFFF ? static_cast<std::int32_t>(v) : deflt;
  };
  c.SelectedFilesBackgroundColor =
      read("SelectedFilesBackgroundColor", c.SelectedFilesBackgroundColor);
  c.UserSelectedFilesBackgroundColor =
      read("UserSelectedFilesBackgroundColor", c.UserSelectedFilesBackgroundColor);
  c.ArchiveFileTextColor = read("ArchiveFileTextColor", c.ArchiveFileTextColor);
  c.ReferenceFileTextColor = read("ReferenceFileTextColor", c.ReferenceFileTextColor);
  c.HardlinkTextColor = read("HardlinkTextColor", c.HardlinkTextColor);
  c.GroupBackColor = read("GroupBackColor", c.GroupBackColor);
  c.GroupTextColor = read("GroupTextColor", c.GroupTextColor);
  return c;
}

}  // namespace kelvor
