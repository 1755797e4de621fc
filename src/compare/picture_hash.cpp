#include "compare/picture_hash.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "compare/picture_decoder.h"

namespace kelvor {

int PicThumbSide(int sizeIndex) {
  switch (sizeIndex) {
    case 0:
      return 8;
    case 1:
      return 16;
    case 2:
      return 24;
    default:
      return -1;
  }
}

bool PicSizeOffered(PicHashAlgo algo, int sizeIndex) {
  if (sizeIndex == 0 || sizeIndex == 1) return true;
  return sizeIndex == 2 && algo == PicHashAlgo::kPerceptual;
}

int PicHashLength(PicHashAlgo algo, int side) {
  if (algo == PicHashAlgo::kPerceptual) return 64;
  return side * side;
}

void PicThumbSize(PicHashAlgo algo, int side, int form, int* width, int* height) {
  *width = side;
  *height = side;
  if (algo != PicHashAlgo::kDifference) return;
  bool quarterTurn = (form % 2) == 1;
  if (quarterTurn) {
    *height = side + 1;
  } else {
    *width = side + 1;
  }
}

namespace {

// One pixel copy from (sx, sy) of `src` to (dx, dy) of `dst`.
inline void CopyPixel(const RgbImage& src, int sx, int sy, RgbImage& dst, int dx, int dy) {
  const std::uint8_t* s = &src.rgb[(static_cast<std::size_t>(sy) * src.width + sx) * 3];
  std::uint8_t* d = &dst.rgb[(static_cast<std::size_t>(dy) * dst.width + dx) * 3];
  d[0] = s[0];
  d[1] = s[1];
  d[2] = s[2];
}

// Turns clockwise by quarter turns (0..3).
RgbImage Turn(const RgbImage& src, int quarters) {
  const int w = src.width, h = src.height;
  RgbImage dst;
  bool swap = quarters % 2 == 1;
  dst.width = swap ? h : w;
  dst.height = swap ? w : h;
  dst.rgb.resize(static_cast<std::size_t>(dst.width) * dst.height * 3);
  for (int y = 0; y < dst.height; ++y) {
    for (int x = 0; x < dst.width; ++x) {
      switch (quarters) {
        case 1:  // the bottom-left corner comes to the top left
          CopyPixel(src, y, h - 1 - x, dst, x, y);
          break;
        case 2:
          CopyPixel(src, w - 1 - x, h - 1 - y, dst, x, y);
          break;
        case 3:  // the top-right corner comes to the top left
          CopyPixel(src, w - 1 - y, x, dst, x, y);
          break;
        default:
          CopyPixel(src, x, y, dst, x, y);
          break;
      }
    }
  }
  return dst;
}

RgbImage MirrorHorizontally(const RgbImage& src) {
  RgbImage dst;
  dst.width = src.width;
  dst.height = src.height;
  dst.rgb.resize(src.rgb.size());
  for (int y = 0; y < src.height; ++y) {
    for (int x = 0; x < src.width; ++x) CopyPixel(src, src.width - 1 - x, y, dst, x, y);
  }
  return dst;
}

}  // namespace

namespace {

// Overlap of [a0, a1) and [b0, b1).
inline std::int64_t Overlap(std::int64_t a0, std::int64_t a1, std::int64_t b0, std::int64_t b1) {
  std::int64_t lo = std::max(a0, b0), hi = std::min(a1, b1);
  return hi > lo ? hi - lo : 0;
}

}  // namespace

PicStretcher::PicStretcher(int srcWidth, int srcHeight, int width, int height)
    : srcWidth_(std::max(srcWidth, 1)),
      srcHeight_(std::max(srcHeight, 1)),
      width_(std::max(width, 1)),
      height_(std::max(height, 1)),
      columnSums_(static_cast<std::size_t>(srcHeight_) * width_ * 3, 0) {}

void PicStretcher::AddRow(const std::uint8_t* rgb) {
  if (rowsAdded_ >= srcHeight_) return;
  std::int64_t* out = &columnSums_[static_cast<std::size_t>(rowsAdded_) * width_ * 3];
  ++rowsAdded_;
  // Source pixel i spans [i w, (i + 1) w), thumbnail column X spans
  // [X W, (X + 1) W), both in units of 1/w source pixel.
  const std::int64_t W = srcWidth_, w = width_;
  for (int X = 0; X < width_; ++X) {
    const std::int64_t x0 = X * W, x1 = (X + 1) * W;
    std::int64_t first = x0 / w, last = (x1 - 1) / w;
    std::int64_t r = 0, g = 0, b = 0;
    for (std::int64_t i = first; i <= last && i < W; ++i) {
      std::int64_t k = Overlap(i * w, (i + 1) * w, x0, x1);
      r += k * rgb[i * 3];
      g += k * rgb[i * 3 + 1];
      b += k * rgb[i * 3 + 2];
    }
    out[X * 3] = r;
    out[X * 3 + 1] = g;
    out[X * 3 + 2] = b;
  }
}

RgbImage PicStretcher::Finish() const {
  RgbImage img;
  img.width = width_;
  img.height = height_;
  img.rgb.assign(static_cast<std::size_t>(width_) * height_ * 3, 0);
  const std::int64_t H = srcHeight_, h = height_;
  // Each thumbnail pixel covers W x H units of area.
  const std::int64_t area = static_cast<std::int64_t>(srcWidth_) * srcHeight_;
  for (int Y = 0; Y < height_; ++Y) {
    const std::int64_t y0 = Y * H, y1 = (Y + 1) * H;
    std::int64_t first = y0 / h, last = (y1 - 1) / h;
    for (int c = 0; c < width_ * 3; ++c) {
      std::int64_t sum = 0;
      for (std::int64_t j = first; j <= last && j < H; ++j) {
        std::int64_t k = Overlap(j * h, (j + 1) * h, y0, y1);
        sum += k * columnSums_[static_cast<std::size_t>(j) * width_ * 3 + c];
      }
      img.rgb[static_cast<std::size_t>(Y) * width_ * 3 + c] =
          static_cast<std::uint8_t>(std::min<std::int64_t>(255, (2 * sum + area) / (2 * area)));
    }
  }
  return img;
}

RgbImage PicStretch(const RgbImage& src, int width, int height) {
  PicStretcher s(src.width, src.height, width, height);
  for (int y = 0; y < src.height; ++y)
    s.AddRow(&src.rgb[static_cast<std::size_t>(y) * src.width * 3]);
  return s.Finish();
}

RgbImage PicTurnForm(const RgbImage& img, int form) {
  if (form <= 0 || form >= kPicFormCount) return img;
  // Forms 1..3 turn by 1..3 quarters; 4..7 turn by 0..3 quarters and mirror.
  RgbImage turned = Turn(img, form % 4);
  return form >= 4 ? MirrorHorizontally(turned) : turned;
}

std::vector<int> AverageGreys(const RgbImage& img) {
  std::vector<int> g(static_cast<std::size_t>(img.width) * img.height);
  for (std::size_t i = 0; i < g.size(); ++i) {
    int sum = img.rgb[i * 3] + img.rgb[i * 3 + 1] + img.rgb[i * 3 + 2];
    g[i] = (sum + 1) / 3;  // sum / 3 never ends in .5, so this is plain rounding
  }
  return g;
}

std::vector<double> DifferenceGreys(const RgbImage& img) {
  std::vector<double> g(static_cast<std::size_t>(img.width) * img.height);
  for (std::size_t i = 0; i < g.size(); ++i) {
    double v = img.rgb[i * 3] / 3.0 + img.rgb[i * 3 + 1] / 3.0 + img.rgb[i * 3 + 2] / 3.0;
    // Four decimal places, so that equal sums compare equal whatever the
    // rounding of the three divisions.
    g[i] = std::nearbyint(v * 10000.0) / 10000.0;
  }
  return g;
}

std::vector<int> PerceptualGreys(const RgbImage& img) {
  std::vector<int> g(static_cast<std::size_t>(img.width) * img.height);
  for (std::size_t i = 0; i < g.size(); ++i) {
    double v = 0.299 * img.rgb[i * 3] + 0.587 * img.rgb[i * 3 + 1] + 0.114 * img.rgb[i * 3 + 2];
    g[i] = static_cast<int>(v);
  }
  return g;
}

PicHash AverageHash(std::span<const int> greys, int n) {
  const std::size_t count = static_cast<std::size_t>(n) * n;
  PicHash bits(count, 0);
  if (n <= 0 || greys.size() < count) return bits;
  long long sum = 0;
  for (std::size_t i = 0; i < count; ++i) sum += greys[i];
  const double mean = std::nearbyint(static_cast<double>(sum) / static_cast<double>(count));
  for (std::size_t i = 0; i < count; ++i) bits[i] = greys[i] >= mean ? 1 : 0;
  return bits;
}

PicHash DifferenceHash(std::span<const double> greys, int n) {
  PicHash bits(static_cast<std::size_t>(n) * n, 0);
  if (n <= 0 || greys.size() < static_cast<std::size_t>(n + 1) * n) return bits;
  for (int y = 0; y < n; ++y) {
    const double* row = &greys[static_cast<std::size_t>(y) * (n + 1)];
    for (int x = 0; x < n; ++x) bits[static_cast<std::size_t>(y) * n + x] = row[x] > row[x + 1];
  }
  return bits;
}

std::vector<double> PicDct2d(std::span<const int> greys, int n) {
  const std::size_t count = static_cast<std::size_t>(n) * n;
  std::vector<double> out(count, 0.0);
  if (n <= 0 || greys.size() < count) return out;
  // cos(k pi (i + 0.5) / n), scaled so that the transform is orthonormal.
  std::vector<double> basis(count);
  const double scale = std::sqrt(2.0 / n);
  for (int k = 0; k < n; ++k) {
    for (int i = 0; i < n; ++i) {
      double c = std::cos(k * std::numbers::pi * (i + 0.5) / n) * scale;
      if (k == 0) c /= std::numbers::sqrt2;
      basis[static_cast<std::size_t>(k) * n + i] = c;
    }
  }
  std::vector<double> rows(count, 0.0);
  for (int y = 0; y < n; ++y) {
    for (int k = 0; k < n; ++k) {
      double s = 0;
      for (int i = 0; i < n; ++i)
        s +=
            greys[static_cast<std::size_t>(y) * n + i] * basis[static_cast<std::size_t>(k) * n + i];
      rows[static_cast<std::size_t>(y) * n + k] = s;
    }
  }
  for (int x = 0; x < n; ++x) {
    for (int k = 0; k < n; ++k) {
      double s = 0;
      for (int i = 0; i < n; ++i)
        s += rows[static_cast<std::size_t>(i) * n + x] * basis[static_cast<std::size_t>(k) * n + i];
      out[static_cast<std::size_t>(k) * n + x] = s;
    }
  }
  return out;
}

PicHash PerceptualHash(std::span<const int> greys, int n) {
  PicHash bits(64, 0);
  if (n < 8 || greys.size() < static_cast<std::size_t>(n) * n) return bits;
  std::vector<double> dct = PicDct2d(greys, n);
  std::vector<double> corner;
  corner.reserve(64);
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) corner.push_back(dct[static_cast<std::size_t>(y) * n + x]);
  }
  std::vector<double> sorted = corner;
  const double median = GetMedian(sorted);
  for (int i = 0; i < 64; ++i) bits[i] = corner[i] > median ? 1 : 0;
  return bits;
}

PicHash PicHashOfThumb(PicHashAlgo algo, const RgbImage& formed, int side) {
  switch (algo) {
    case PicHashAlgo::kAverage:
      return AverageHash(AverageGreys(formed), side);
    case PicHashAlgo::kDifference:
      return DifferenceHash(DifferenceGreys(formed), side);
    case PicHashAlgo::kPerceptual:
      return PerceptualHash(PerceptualGreys(formed), side);
  }
  return {};
}

double GetMedian(std::vector<double>& values) {
  const std::size_t n = values.size();
  if (n == 0) return 0.0;
  for (std::size_t i = 0; i + 1 < n; ++i) {
    std::size_t least = i;
    for (std::size_t j = i + 1; j < n; ++j) {
      if (values[j] < values[least]) least = j;
    }
    if (least != i) std::swap(values[i], values[least]);
  }
  if (n % 2 == 1) return values[n / 2];
  return (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

int GetHammingDistanceFromArray(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
  const std::size_t common = std::min(a.size(), b.size());
  int d = 0;
  for (std::size_t i = 0; i < common; ++i) d += a[i] != b[i];
  d += static_cast<int>(std::max(a.size(), b.size()) - common);
  return d;
}

int PicMatchPercent(int distance, int hashLength) {
  if (hashLength <= 0) return 0;
  if (distance < 0) distance = 0;
  // Exact in double for the lengths in use (64, 256, 576); halves go to the
  // even neighbour (99.6 is 100, 87.5 is 88, 62.5 is 62).
  double p = 100.0 - static_cast<double>(distance) * 100.0 / hashLength;
  return static_cast<int>(std::nearbyint(p));
}

bool CreatePictureHashes(PictureDecoder& decoder, const std::string& path, PicHashAlgo algo,
                         int side, unsigned formMask, std::array<PicHash, kPicFormCount>* hashes,
                         std::string* errorText, int* origWidth, int* origHeight) {
  int ow = -1, oh = -1;
  if (origWidth) *origWidth = -1;
  if (origHeight) *origHeight = -1;
  // Each thumbnail shape is decoded once; all forms of that shape share it.
  std::array<PicHash, kPicFormCount> made;
  RgbImage shapes[2];
  bool loaded[2] = {false, false};
  for (int form = 0; form < kPicFormCount; ++form) {
    if ((formMask & (1u << form)) == 0) continue;
    int w = 0, h = 0;
    PicThumbSize(algo, side, form, &w, &h);
    int shape = (algo == PicHashAlgo::kDifference && form % 2 == 1) ? 1 : 0;
    if (!loaded[shape]) {
      if (!decoder.LoadThumbnail(path, w, h, &shapes[shape], &ow, &oh, errorText)) return false;
      loaded[shape] = true;
    }
    made[form] = PicHashOfThumb(algo, PicTurnForm(shapes[shape], form), side);
  }
  for (int form = 0; form < kPicFormCount; ++form) {
    if (formMask & (1u << form)) (*hashes)[form] = std::move(made[form]);
  }
  if (origWidth) *origWidth = ow;
  if (origHeight) *origHeight = oh;
  return true;
}

}  // namespace kelvor
