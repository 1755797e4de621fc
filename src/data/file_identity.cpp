// File identity from stat: device, inode halves, link count.

#include "data/file_identity.h"

#include <fmt/format.h>

#include <sys/sysmacros.h>

#include <cerrno>
#include <climits>

#include "frame/error_text.h"
#include "frame/texts.h"

namespace kelvor {

namespace {

std::string Hex32(std::int32_t v) {
  return fmt::format("{:X}", static_cast<std::uint32_t>(v));
}

}  // namespace

FileIdentity IdentityOf(const struct stat& st) {
  FileIdentity id;
  id.device = static_cast<std::uint64_t>(st.st_dev);
  id.inode = static_cast<std::uint64_t>(st.st_ino);
  id.links = st.st_nlink > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(st.st_nlink);
  return id;
}

FileIdentity IdentityOf(const struct statx& sx) {
  FileIdentity id;
  // The same number stat reports as st_dev.
  id.device = static_cast<std::uint64_t>(makedev(sx.stx_dev_major, sx.stx_dev_minor));
  id.inode = sx.stx_ino;
  id.links = sx.stx_nlink;
  return id;
}

void SetHardlinkIdentity(const FileIdentity& id, FileRecord& rec) {
  const std::uint64_t links = id.links;
  if (links <= 1) {
    rec.NumberOfLinks = 1;
    rec.VolumeSerialNumber = 0;
    rec.FileIndexHigh = 0;
    rec.FileIndexLow = 0;
    return;
  }
  rec.NumberOfLinks = links > INT32_MAX ? INT32_MAX : static_cast<std::int32_t>(links);
  // Bits are kept as they are: the values are identities, not quantities.
  const std::uint64_t dev = id.device;
  const std::uint64_t ino = id.inode;
  rec.VolumeSerialNumber = static_cast<std::int32_t>(static_cast<std::uint32_t>(dev ^ (dev >> 32)));
  rec.FileIndexHigh = static_cast<std::int32_t>(static_cast<std::uint32_t>(ino >> 32));
  rec.FileIndexLow = static_cast<std::int32_t>(static_cast<std::uint32_t>(ino));
}

bool xGetHardlinkCount2(std::string_view path, FileRecord& rec, std::string* errorText,
                        const TextCatalog* texts) {
  struct stat st {};
  const std::string p(path);
  if (::stat(p.c_str(), &st) != 0) {
    const std::string why = ErrorText(errno);
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
