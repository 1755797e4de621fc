#pragma once
// DigestIndex: which representative of a compare key holds a checksum. A
// content search over a million files keeps an entry for nearly every
// representative, so the table is flat: open addressing with linear probing
// over 16-byte slots. A key is a small number other than 0 (the caller
// numbers its keys from 1) and the digest bytes; entries are never removed.
//
// The index keeps no digest of its own: a slot names where the caller keeps
// it (`ref`, the representative's record), and `digestOf(ref)` reads it back
// when two slots' hashes agree. The digest under a ref must not change, and
// must be readable there before the next call that may probe its slot.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kelvor {

class DigestIndex {
 public:
  // The value stored for (key, digest), or null.
  template <class DigestOf>
  const int* Find(std::uint32_t key, std::string_view digest, const DigestOf& digestOf) const {
    if (slots_.empty()) return nullptr;
    const std::uint32_t h = Mix(key, digest);
    for (std::size_t i = h & mask_;; i = (i + 1) & mask_) {
      const Slot& s = slots_[i];
      if (s.key == 0) return nullptr;
      if (s.hash == h && s.key == key && std::string_view(digestOf(s.ref)) == digest)
        return &s.value;
    }
  }

  // Stores value under (key, digest), the digest being kept under `ref`,
  // unless that pair is there already; true when stored.
  template <class DigestOf>
  bool TryEmplace(std::uint32_t key, std::string_view digest, std::uint32_t ref, int value,
                  const DigestOf& digestOf) {
    if ((size_ + 1) * 4 > slots_.size() * 3) Grow();
    const std::uint32_t h = Mix(key, digest);
    std::size_t i = h & mask_;
    for (;; i = (i + 1) & mask_) {
      const Slot& s = slots_[i];
      if (s.key == 0) break;
      if (s.hash == h && s.key == key && std::string_view(digestOf(s.ref)) == digest) return false;
    }
    slots_[i] = Slot{key, h, ref, value};
    ++size_;
    return true;
  }

  std::size_t Size() const { return size_; }

 private:
  struct Slot {
    std::uint32_t key = 0;  // 0: free
    std::uint32_t hash = 0;
    std::uint32_t ref = 0;  // where the caller keeps the digest
    int value = 0;
  };

  static std::uint32_t Mix(std::uint32_t key, std::string_view digest) {
    std::uint64_t h = 1469598103934665603ULL ^ key;
    for (const char c : digest) {
      h ^= static_cast<unsigned char>(c);
      h *= 1099511628211ULL;
    }
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ULL;
    h ^= h >> 32;
    return static_cast<std::uint32_t>(h);
  }

  void Grow() {
    std::vector<Slot> old;
    old.swap(slots_);
    slots_.assign(old.empty() ? 64 : old.size() * 2, Slot{});
    mask_ = slots_.size() - 1;
    for (const Slot& s : old) {
      if (s.key == 0) continue;
      std::size_t i = s.hash & mask_;
      while (slots_[i].key != 0) i = (i + 1) & mask_;
      slots_[i] = s;
    }
  }

  std::vector<Slot> slots_;
  std::size_t mask_ = 0;
  std::size_t size_ = 0;
};

}  // namespace kelvor
