#pragma once
// Fenwick tree (binary indexed tree) over non-negative weights: prefix sums,
// point updates, appends and the search by prefix, each in O(log n).
//
// The result rows use two levels of it (see result_rows.h): over the row
// count of every group slot, and inside a group with holes over the live
// flags of its file slots. A removal then costs O(log n) instead of moving
// the rows behind it, so a walk removing rows from the last to the first
// costs O(n log n) in all.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelvor::result_detail {

class Fenwick {
 public:
  void Clear() { t_.clear(); }
  void Reserve(std::size_t n) { t_.reserve(n); }
  std::size_t Size() const { return t_.size(); }
  bool Empty() const { return t_.empty(); }
  std::int64_t Weight(std::size_t i) const { return Prefix(i + 1) - Prefix(i); }
  std::int64_t Total() const { return Prefix(t_.size()); }

  // Builds the tree over the weights `w` in O(n).
  void Build(std::vector<std::int64_t> w) {
    t_ = std::move(w);
    const std::size_t n = t_.size();
    for (std::size_t i = 1; i <= n; ++i) {
      const std::size_t j = i + (i & (~i + 1));
      if (j <= n) t_[j - 1] += t_[i - 1];
    }
  }

  void Append(std::int64_t v) {
    const std::size_t m = t_.size() + 1;  // 1-based position of the new entry
    const std::size_t low = m & (~m + 1);
    t_.push_back(v + Prefix(m - 1) - Prefix(m - low));
  }

  // Cutting the tail keeps the tree valid: an entry only covers positions at
  // or before its own.
  void PopBack() { t_.pop_back(); }

  void Add(std::size_t i, std::int64_t d) {
    for (std::size_t j = i + 1; j <= t_.size(); j += j & (~j + 1)) t_[j - 1] += d;
  }

  // Sum of the weights of positions [0, n).
  std::int64_t Prefix(std::size_t n) const {
    std::int64_t s = 0;
    for (std::size_t j = n; j > 0; j -= j & (~j + 1)) s += t_[j - 1];
    return s;
  }

  // The position p whose range holds k (Prefix(p) <= k < Prefix(p + 1)), and
  // Prefix(p) in *before. Size() when k is beyond the total.
  std::size_t Find(std::int64_t k, std::int64_t* before) const {
    std::size_t pos = 0;
    std::int64_t acc = 0;
    std::size_t step = 1;
    while (step * 2 <= t_.size()) step *= 2;
    for (; step > 0; step /= 2) {
      const std::size_t next = pos + step;
      if (next <= t_.size() && acc + t_[next - 1] <= k) {
        pos = next;
        acc += t_[next - 1];
      }
    }
    if (before) *before = acc;
    return pos;
  }

 private:
  std::vector<std::int64_t> t_;
};

}  // namespace kelvor::result_detail
