#pragma once
// Compact string storage for the file record collection.
//
// StringArena: append-only texts addressed by 32-bit references. Texts are
// kept in 1 MiB chunks that never move, so a std::string_view of a stored
// text stays valid until Clear. Each text is stored as a varint length and
// its bytes, starting on a 4-byte boundary; the reference counts 4-byte
// units, so 32 bits address 16 GiB. Reference 0 is the empty text.
//
// StringInterner: stores each distinct text once (folders and extensions,
// which many files share) and gives it a small number; number 0 is "".

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kelvor {

class StringArena {
 public:
  StringArena() = default;
  StringArena(const StringArena&) = delete;
  StringArena& operator=(const StringArena&) = delete;
  StringArena(StringArena&&) = default;
  StringArena& operator=(StringArena&&) = default;

  // Stores s and returns its reference (0 for an empty text). Throws
  // std::length_error when the 16 GiB address room is used up.
  std::uint32_t Put(std::string_view s);

  std::string_view Get(std::uint32_t ref) const {
    if (ref == 0) return {};
    const std::uint64_t byte = static_cast<std::uint64_t>(ref) << kUnitShift;
    const char* p = chunks_[byte >> kChunkBits].get() + (byte & (kChunkSize - 1));
    std::size_t len = 0;
    int shift = 0;
    for (;;) {
      const auto b = static_cast<unsigned char>(*p++);
      len |= static_cast<std::size_t>(b & 0x7F) << shift;
      if ((b & 0x80) == 0) break;
      shift += 7;
    }
    return {p, len};
  }

  // Bytes held by the chunks.
  std::size_t BytesReserved() const { return chunkBytes_; }
  void Clear();

 private:
  static constexpr int kChunkBits = 20;
  static constexpr std::uint64_t kChunkSize = std::uint64_t{1} << kChunkBits;
  static constexpr int kUnitShift = 2;

  std::vector<std::unique_ptr<char[]>> chunks_;  // null entries follow an oversized chunk
  std::uint64_t used_ = kChunkSize;              // bytes used in the last chunk
  std::size_t chunkBytes_ = 0;
};

class StringInterner {
 public:
  explicit StringInterner(StringArena* arena) : arena_(arena) {}

  // Number of s, storing it on first sight.
  std::uint32_t Intern(std::string_view s);
  std::string_view Get(std::uint32_t id) const { return id == 0 ? std::string_view{} : texts_[id]; }
  std::size_t Size() const { return texts_.size(); }
  void Clear();

 private:
  StringArena* arena_;
  std::vector<std::string_view> texts_{std::string_view{}};  // id -> text (views into the arena)
  std::unordered_map<std::string_view, std::uint32_t> ids_;
  std::uint32_t lastId_ = 0;  // consecutive files of one folder hit this at once
};

}  // namespace kelvor
