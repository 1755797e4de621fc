#pragma once
// ChunkedArray: an array of values in fixed chunks that never move, for the
// per-node arrays of the file record collection. Growing it never copies the
// values already held (a std::vector growing by half again holds the old and
// the new block at once: two and a half times the data at that moment), and
// a chunk is only made when an element in it is first written, so the room
// the array keeps ahead of its use stays untouched. Reading an element of a
// chunk not yet made gives a default value.

#include <cstddef>
#include <memory>
#include <vector>

namespace kelvor {

template <class T, int kChunkBits = 14>
class ChunkedArray {
 public:
  static constexpr std::size_t kChunk = std::size_t{1} << kChunkBits;

  std::size_t size() const { return size_; }

  // Grows or shrinks to n elements; elements past the old size read as T{}.
  void resize(std::size_t n) {
    if (n < size_) {
      // Elements beyond n in the last kept chunk read as new again.
      const std::size_t keep = (n + kChunk - 1) >> kChunkBits;
      if (keep > 0 && chunks_[keep - 1]) {
        for (std::size_t i = n; i < keep * kChunk; ++i) chunks_[keep - 1][i & (kChunk - 1)] = T{};
      }
      chunks_.resize(keep);
    } else {
      chunks_.resize((n + kChunk - 1) >> kChunkBits);
    }
    size_ = n;
  }

  // Drops every element and chunk.
  void clear() {
    std::vector<std::unique_ptr<T[]>>().swap(chunks_);
    size_ = 0;
  }

  T& operator[](std::size_t i) {
    std::unique_ptr<T[]>& c = chunks_[i >> kChunkBits];
    if (!c) c = std::make_unique<T[]>(kChunk);
    return c[i & (kChunk - 1)];
  }
  const T& operator[](std::size_t i) const {
    static const T kNew{};
    const std::unique_ptr<T[]>& c = chunks_[i >> kChunkBits];
    return c ? c[i & (kChunk - 1)] : kNew;
  }

  // Bytes of the chunks made so far and of the chunk table.
  std::size_t BytesHeld() const {
    std::size_t made = 0;
    for (const auto& c : chunks_) made += c ? 1 : 0;
    return made * kChunk * sizeof(T) + chunks_.capacity() * sizeof(void*);
  }

 private:
  std::vector<std::unique_ptr<T[]>> chunks_;
  std::size_t size_ = 0;
};

}  // namespace kelvor
