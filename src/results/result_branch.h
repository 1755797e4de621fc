#pragma once
// The branch record of a saved result (.ksr4a): one record per group row,
// written by ResultModel::SaveBranch and read by ResultModel::LoadBranch.
//
// A record is a fixed header of 16 bytes and a payload:
//
//   0  2  "KB"                 marks a branch record
//   2  1  layout version       kBranchLayout; a later Kelvor refuses or converts
//   3  1  reserved, 0
//   4  4  stamp                ties the record to its .ini4a (ResultStamp)
//   8  4  payload length       bytes that follow the header
//  12  4  CRC-32 of the payload
//
// All numbers little-endian. The payload (layout 1):
//
//   texts     varint count, then each text as varint length + UTF-8 bytes:
//             the folders, archive paths, owners, ... that no record before
//             this one brought; rows refer to every text of the file by its
//             number (1 the first text of the first record, 0 the empty
//             text), so a folder is written once per file
//   group     varint cell mask, flags (check state, expanded), back and text
//             colour, caption, then the cells the mask names, then the cells
//             under keys of no column
//   files     varint count, then per file: cell mask, flags, colours where
//             not the defaults, name, the cells the mask names, extra cells
//
// Integers are LEB128 varints (signed ones zig-zag), dates and other
// doubles 8 bytes, the match percent 4 bytes. The cell mask numbers the cells
// by kBranchCellNames, which is the order of layout 1 and stays fixed: a new
// cell gets a new bit at the end.
//
// A reader checks the header, the length and the CRC before it looks at the
// payload; a payload that reads past its end, leaves bytes over or names a
// text not brought yet is refused: a damaged file is never read as rows.
// Records are read in order from the first (the texts build up), and a file
// loads whole or not at all.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kelvor {

class TextCatalog;

inline constexpr std::size_t kBranchHeaderSize = 16;

// The texts the records of one file have brought so far, for writing (by
// the model's text id) and for reading (by their number in the file).
struct BranchTexts {
  std::vector<std::uint32_t> numberOf;  // writing: text id -> number, 0 = not yet
  std::uint32_t written = 0;
  std::vector<std::uint32_t> idOf{0};  // reading: number -> text id
};
inline constexpr std::uint8_t kBranchLayout = 1;
// No branch holds more: a length above it is damage, not a group.
inline constexpr std::uint32_t kMaxBranchPayload = 1u << 30;

struct BranchHeader {
  std::uint8_t layout = 0;
  std::uint32_t stamp = 0;
  std::uint32_t length = 0;
  std::uint32_t crc = 0;
};

// The stamp every record of a result carries: made from the counters and the
// group count the .ini4a holds, so that rows and counters of two different
// saves are never taken together.
std::uint32_t ResultStamp(std::int32_t dupCount, std::int32_t dupCountSelected,
                          std::int64_t filesizeAll, std::int64_t filesizeSelected,
                          std::int64_t listCount, std::int32_t groupId);

// The names the texts of a refusal show.
struct BranchFiles {
  std::string_view rows;  // the .ksr4a
  std::string_view ini;   // its .ini4a
};

// Reads the header of record number `n` (1-based, for the texts). False with
// *why when it is no branch record, of another layout, or of another result
// (stamp differs from `stamp`).
bool ReadBranchHeader(std::string_view header, std::uint32_t stamp, std::int64_t n,
                      const BranchFiles& files, const TextCatalog& texts, BranchHeader* h,
                      std::string* why);
// The CRC of a payload against its header. False with *why.
bool CheckBranchPayload(const BranchHeader& h, std::string_view payload, std::int64_t n,
                        const BranchFiles& files, const TextCatalog& texts, std::string* why);

std::uint32_t BranchCrc(std::string_view bytes);

}  // namespace kelvor
