#pragma once
// Red-black tree repair steps shared by the two keyed collections. The trees
// live in flat arrays with 32-bit node numbers; node 0 is the nil node, a real
// slot that is always black and whose Parent the delete step may write.
//
// A tree type T provides: int32_t& L(n), int32_t& R(n), int32_t& P(n),
// bool Red(n), void SetRed(n, bool), int32_t& RootRef().

#include <cstdint>

namespace kelvor::rb {

template <class T>
void RotateLeft(T& t, std::int32_t x) {
  const std::int32_t y = t.R(x);
  t.R(x) = t.L(y);
  if (t.L(y) != 0) t.P(t.L(y)) = x;
  t.P(y) = t.P(x);
  const std::int32_t px = t.P(x);
  if (px == 0) {
    t.RootRef() = y;
  } else if (x == t.L(px)) {
    t.L(px) = y;
  } else {
    t.R(px) = y;
  }
  t.L(y) = x;
  t.P(x) = y;
}

template <class T>
void RotateRight(T& t, std::int32_t x) {
  const std::int32_t y = t.L(x);
  t.L(x) = t.R(y);
  if (t.R(y) != 0) t.P(t.R(y)) = x;
  t.P(y) = t.P(x);
  const std::int32_t px = t.P(x);
  if (px == 0) {
    t.RootRef() = y;
  } else if (x == t.R(px)) {
    t.R(px) = y;
  } else {
    t.L(px) = y;
  }
  t.R(y) = x;
  t.P(x) = y;
}

template <class T>
void InsertFixup(T& t, std::int32_t z) {
  while (z != t.RootRef() && t.Red(t.P(z))) {
    const std::int32_t p = t.P(z);
    const std::int32_t g = t.P(p);
    if (p == t.L(g)) {
      const std::int32_t u = t.R(g);
      if (t.Red(u)) {
        t.SetRed(p, false);
        t.SetRed(u, false);
        t.SetRed(g, true);
        z = g;
      } else {
        if (z == t.R(p)) {
          z = p;
          RotateLeft(t, z);
        }
        t.SetRed(t.P(z), false);
        t.SetRed(t.P(t.P(z)), true);
        RotateRight(t, t.P(t.P(z)));
      }
    } else {
      const std::int32_t u = t.L(g);
      if (t.Red(u)) {
        t.SetRed(p, false);
        t.SetRed(u, false);
        t.SetRed(g, true);
        z = g;
      } else {
        if (z == t.L(p)) {
          z = p;
          RotateRight(t, z);
        }
        t.SetRed(t.P(z), false);
        t.SetRed(t.P(t.P(z)), true);
        RotateLeft(t, t.P(t.P(z)));
      }
    }
  }
  t.SetRed(t.RootRef(), false);
}

template <class T>
void DeleteFixup(T& t, std::int32_t x) {
  while (x != t.RootRef() && !t.Red(x)) {
    if (x == t.L(t.P(x))) {
      std::int32_t w = t.R(t.P(x));
      if (t.Red(w)) {
        t.SetRed(w, false);
        t.SetRed(t.P(x), true);
        RotateLeft(t, t.P(x));
        w = t.R(t.P(x));
      }
      if (!t.Red(t.L(w)) && !t.Red(t.R(w))) {
        t.SetRed(w, true);
        x = t.P(x);
      } else {
        if (!t.Red(t.R(w))) {
          t.SetRed(t.L(w), false);
          t.SetRed(w, true);
          RotateRight(t, w);
          w = t.R(t.P(x));
        }
        t.SetRed(w, t.Red(t.P(x)));
        t.SetRed(t.P(x), false);
        t.SetRed(t.R(w), false);
        RotateLeft(t, t.P(x));
        x = t.RootRef();
      }
    } else {
      std::int32_t w = t.L(t.P(x));
      if (t.Red(w)) {
        t.SetRed(w, false);
        t.SetRed(t.P(x), true);
        RotateRight(t, t.P(x));
        w = t.L(t.P(x));
      }
      if (!t.Red(t.R(w)) && !t.Red(t.L(w))) {
        t.SetRed(w, true);
        x = t.P(x);
      } else {
        if (!t.Red(t.L(w))) {
          t.SetRed(t.R(w), false);
          t.SetRed(w, true);
          RotateLeft(t, w);
          w = t.L(t.P(x));
        }
        t.SetRed(w, t.Red(t.P(x)));
        t.SetRed(t.P(x), false);
        t.SetRed(t.L(w), false);
        RotateRight(t, t.P(x));
        x = t.RootRef();
      }
    }
  }
  t.SetRed(x, false);
}

// Leftmost node of the subtree below n.
template <class T>
std::int32_t Minimum(T& t, std::int32_t n) {
  while (t.L(n) != 0) n = t.L(n);
  return n;
}

// The first half of a removal: y is the node that leaves the tree (z itself,
// or z's successor when z has two children), x is the child that takes y's
// place (0 for none; the nil slot then carries y's parent for DeleteFixup).
struct Unlinked {
  std::int32_t y;
  std::int32_t x;
};
template <class T>
Unlinked Unlink(T& t, std::int32_t z) {
  const std::int32_t y = (t.L(z) != 0 && t.R(z) != 0) ? Minimum(t, t.R(z)) : z;
  const std::int32_t x = t.L(y) != 0 ? t.L(y) : t.R(y);
  const std::int32_t py = t.P(y);
  t.P(x) = py;
  if (py == 0) {
    t.RootRef() = x;
  } else if (y == t.L(py)) {
    t.L(py) = x;
  } else {
    t.R(py) = x;
  }
  return {y, x};
}

}  // namespace kelvor::rb
