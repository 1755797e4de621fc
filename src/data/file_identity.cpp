// File identity from stat: device, inode halves, link count.

#include "data/file_identity.h"

#include <fmt/format.h>

#include <cerrno>
#include <climits>
#include <system_error>

#include "frame/texts.h"

namespace kelvor {

namespace {

std::string Hex32(std::int32_t v) {
  return fmt::format("{:X}", static_cast<std::uint32_t>(v));
}

}  // namespace

void SetHardlinkIdentity(const struct stat& st, FileRecord& rec) {
  const auto links = static_cast<std::uint64_t>(st.st_nlink);
  if (links <= 1) {
    rec.NumberOfLinks = 1;
    rec.VolumeSerialNumber = 0;
    rec.FileIndexHigh = 0;
    rec.FileIndexLow = 0;
    return;
  }
  rec.NumberOfLinks = links > INT32_MAX ? INT32_MAX : static_cast<std::int32_t>(links);
  // Bits are kept as they are: the values are identities, not quantities.
  const auto dev = static_cast<std::uint64_t>(st.st_dev);
  const auto ino = static_cast<std::uint64_t>(st.st_ino);
  rec.VolumeSerialNumber = static_cast<std::int32_t>(static_cast<std::uint32_t>(dev ^ (dev >> 32)));
  rec.FileIndexHigh = static_cast<std::int32_t>(static_cast<std::uint32_t>(ino >> 32));
  rec.FileIndexLow = static_cast<std::int32_t>(static_cast<std::uint32_t>(ino));
}

bool xGetHardlinkCount2(std::string_view path, FileRecord& rec, std::string* errorText,
                        const TextCatalog* texts) {
  struct stat st {};
  const std::string p(path);
  if (::stat(p.c_str(), &st) != 0) {
    const std::string why = std::error_code(errno, std::generic_category()).message();
    if (errorText) {
      const TextCatalog german;
      const TextCatalog& catalog = texts ? *texts : german;
      *errorText =
          "xGetHardlinkCount2\\GetFileInformationByHandle: " + catalog.Get(txt::T2746, {p, why});
    }
    return false;
  }
  SetHardlinkIdentity(st, rec);
  return true;
}

std::string cHardlinkID::GetHardlinkIDkey(bool withoutVolume) const {
  if (withoutVolume) return fmt::format("{}|{}", FileIndexHigh_, FileIndexLow_);
  return fmt::format("{}|{}|{}", VolumeSerialNumber_, FileIndexHigh_, FileIndexLow_);
}

std::string cHardlinkID::GetHardlinkIDkeyFormatted(bool withoutVolume) const {
  if (withoutVolume) return Hex32(FileIndexHigh_) + "|" + Hex32(FileIndexLow_);
  return Hex32(VolumeSerialNumber_) + "|" + Hex32(FileIndexHigh_) + "|" + Hex32(FileIndexLow_);
}

}  // namespace kelvor
