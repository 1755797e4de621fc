// Compact string storage: chunked append-only arena and an interner on it.

#include "data/string_arena.h"

#include <cstring>
#include <stdexcept>

namespace kelvor {

std::uint32_t StringArena::Put(std::string_view s) {
  if (s.empty()) return 0;
  unsigned char head[10];
  std::size_t headLen = 0;
  for (std::size_t v = s.size();; v >>= 7) {
    const auto low = static_cast<unsigned char>(v & 0x7F);
    if (v < 0x80) {
      head[headLen++] = low;
      break;
    }
    head[headLen++] = static_cast<unsigned char>(low | 0x80);
  }
  const std::uint64_t need = headLen + s.size();
  const std::uint64_t unit = std::uint64_t{1} << kUnitShift;

  std::uint64_t start = (used_ + unit - 1) & ~(unit - 1);
  if (chunks_.empty() || start + need > kChunkSize) {
    // A new chunk; a text larger than a chunk gets a block of its own that
    // spans as many chunk numbers as it needs.
    const std::uint64_t spans =
        need <= kChunkSize - unit ? 1 : (need + unit + kChunkSize - 1) >> kChunkBits;
    const std::uint64_t maxChunks = (std::uint64_t{1} << (32 + kUnitShift)) >> kChunkBits;
    if (chunks_.size() + spans > maxChunks) throw std::length_error("StringArena: full");
    const std::size_t bytes = static_cast<std::size_t>(spans * kChunkSize);
    chunks_.emplace_back(new char[bytes]);
    for (std::uint64_t k = 1; k < spans; ++k) chunks_.emplace_back(nullptr);
    chunkBytes_ += bytes;
    // The very first unit stays unused so that reference 0 means "empty".
    start = chunks_.size() == spans ? unit : 0;
    used_ = spans == 1 ? 0 : kChunkSize;  // an oversized block is never appended to
    if (spans > 1) {
      const std::uint64_t first = chunks_.size() - spans;
      char* p = chunks_[first].get() + start;
      std::memcpy(p, head, headLen);
      std::memcpy(p + headLen, s.data(), s.size());
      return static_cast<std::uint32_t>(((first << kChunkBits) + start) >> kUnitShift);
    }
  }
  const std::uint64_t chunk = chunks_.size() - 1;
  char* p = chunks_[chunk].get() + start;
  std::memcpy(p, head, headLen);
  std::memcpy(p + headLen, s.data(), s.size());
  used_ = start + need;
  return static_cast<std::uint32_t>(((chunk << kChunkBits) + start) >> kUnitShift);
}

void StringArena::Clear() {
  chunks_.clear();
  chunks_.shrink_to_fit();
  used_ = kChunkSize;
  chunkBytes_ = 0;
}

std::uint32_t StringInterner::Intern(std::string_view s) {
  if (s.empty()) return 0;
  if (lastId_ != 0 && texts_[lastId_] == s) return lastId_;
  auto it = ids_.find(s);
  if (it != ids_.end()) {
    lastId_ = it->second;
    return lastId_;
  }
  const std::string_view stored = arena_->Get(arena_->Put(s));
  const auto id = static_cast<std::uint32_t>(texts_.size());
  texts_.push_back(stored);
  ids_.emplace(stored, id);
  lastId_ = id;
  return id;
}

void StringInterner::Clear() {
  texts_.assign(1, std::string_view{});
  texts_.shrink_to_fit();
  ids_.clear();
  ids_.rehash(0);
  lastId_ = 0;
}

}  // namespace kelvor
