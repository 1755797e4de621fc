// Perceptual picture hashes: values worked out by hand on small pixel arrays,
// the turned and mirrored forms, and real files made with ImageMagick and read
// through the decoders, good and bad.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include "compare/picture_decoder.h"
#include "compare/picture_hash.h"
#include "support/hang_guard.h"
#include "support/png_header.h"
#include "support/temp_tree.h"

namespace kelvor {
namespace {

using test::TempDir;

RgbImage Grey(int w, int h, const std::vector<int>& greys) {
  RgbImage img;
  img.width = w;
  img.height = h;
  for (int g : greys) {
    img.rgb.push_back(static_cast<std::uint8_t>(g));
    img.rgb.push_back(static_cast<std::uint8_t>(g));
    img.rgb.push_back(static_cast<std::uint8_t>(g));
  }
  return img;
}

// A picture with no symmetry under any turn or mirror.
RgbImage Lopsided(int w, int h) {
  RgbImage img;
  img.width = w;
  img.height = h;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      img.rgb.push_back(static_cast<std::uint8_t>((x * 37 + y * 11 + x * y * 5) % 256));
      img.rgb.push_back(static_cast<std::uint8_t>((x * x * 3 + y * 29) % 256));
      img.rgb.push_back(static_cast<std::uint8_t>((y * y * 7 + x * 13 + 40) % 256));
    }
  }
  return img;
}

// First channel of each pixel, row by row.
std::vector<int> Reds(const RgbImage& img) {
  std::vector<int> r;
  for (std::size_t i = 0; i < img.rgb.size(); i += 3) r.push_back(img.rgb[i]);
  return r;
}

int Ones(const PicHash& h) {
  int n = 0;
  for (auto b : h) n += b;
  return n;
}

TEST(PictureHashTest, SizesLengthsAndPictureFacts) {
  EXPECT_EQ(PicThumbSide(0), 8);
  EXPECT_EQ(PicThumbSide(1), 16);
  EXPECT_EQ(PicThumbSide(2), 24);
  EXPECT_EQ(PicHashLength(PicHashAlgo::kAverage, 8), 64);
  EXPECT_EQ(PicHashLength(PicHashAlgo::kAverage, 16), 256);
  EXPECT_EQ(PicHashLength(PicHashAlgo::kDifference, 16), 256);
  EXPECT_EQ(PicHashLength(PicHashAlgo::kPerceptual, 16), 64);
  EXPECT_EQ(PicHashLength(PicHashAlgo::kPerceptual, 24), 64);
  // "24x24" only with pHash.
  EXPECT_FALSE(PicSizeOffered(PicHashAlgo::kAverage, 2));
  EXPECT_FALSE(PicSizeOffered(PicHashAlgo::kDifference, 2));
  EXPECT_TRUE(PicSizeOffered(PicHashAlgo::kPerceptual, 2));
  EXPECT_TRUE(PicSizeOffered(PicHashAlgo::kAverage, 1));

  int w = 0, h = 0;
  PicThumbSize(PicHashAlgo::kDifference, 8, 0, &w, &h);
  EXPECT_EQ(w, 9);
  EXPECT_EQ(h, 8);
  PicThumbSize(PicHashAlgo::kDifference, 8, 3, &w, &h);
  EXPECT_EQ(w, 8);
  EXPECT_EQ(h, 9);
  PicThumbSize(PicHashAlgo::kPerceptual, 24, 1, &w, &h);
  EXPECT_EQ(w, 24);
  EXPECT_EQ(h, 24);

  EXPECT_EQ(PicFormatOf(640, 480), 1);
  EXPECT_EQ(PicFormatOf(480, 640), 2);
  EXPECT_EQ(PicFormatOf(500, 500), 2);  // a square is 2
  EXPECT_DOUBLE_EQ(PicRatioOf(133, 100), 1.3);
  EXPECT_DOUBLE_EQ(PicRatioOf(134, 100), 1.3);
  EXPECT_DOUBLE_EQ(PicRatioOf(7, 10), 0.7);
  EXPECT_DOUBLE_EQ(PicRatioOf(1999, 1000), 1.9);  // cut, not rounded
  EXPECT_DOUBLE_EQ(PicRatioOf(10, 0), 0.0);
}

TEST(PictureHashTest, MatchPercentHammingAndMedian) {
  EXPECT_EQ(PicMatchPercent(1, 256), 100);  // 99.6: a hit at threshold 100
  EXPECT_EQ(PicMatchPercent(2, 256), 99);   // 99.22
  EXPECT_EQ(PicMatchPercent(8, 64), 88);    // 87.5, halves go to the even side
  EXPECT_EQ(PicMatchPercent(24, 64), 62);   // 62.5
  EXPECT_EQ(PicMatchPercent(96, 256), 62);  // 62.5
  EXPECT_EQ(PicMatchPercent(6, 64), 91);    // 90.625
  EXPECT_EQ(PicMatchPercent(7, 64), 89);    // 89.06
  EXPECT_EQ(PicMatchPercent(0, 64), 100);
  EXPECT_EQ(PicMatchPercent(64, 64), 0);
  EXPECT_EQ(PicMatchPercent(-5, 64), 100);  // a negative distance counts as 0

  EXPECT_EQ(GetHammingDistanceFromArray(PicHash{0, 1, 1, 0}, PicHash{1, 1, 0, 0}), 2);
  EXPECT_EQ(GetHammingDistanceFromArray(PicHash{0, 1}, PicHash{0, 1, 1, 1}), 2);
  EXPECT_EQ(GetHammingDistanceFromArray(PicHash{}, PicHash{}), 0);

  std::vector<double> odd{5, 1, 4};
  EXPECT_DOUBLE_EQ(GetMedian(odd), 4);
  EXPECT_EQ(odd, (std::vector<double>{1, 4, 5}));  // sorted in place
  std::vector<double> even{5, 1, 4, 2};
  EXPECT_DOUBLE_EQ(GetMedian(even), 3);
  std::vector<double> none;
  EXPECT_DOUBLE_EQ(GetMedian(none), 0);
}

TEST(PictureHashTest, AverageHashByHand) {
  // Greys (R + G + B) / 3 rounded: 4/3 is 1, 5/3 is 2, 767/3 is 256 - 0.33.
  RgbImage px;
  px.width = 3;
  px.height = 1;
  px.rgb = {1, 1, 2, 1, 2, 2, 255, 255, 255};
  EXPECT_EQ(AverageGreys(px), (std::vector<int>{1, 2, 255}));

  // Greys 1..64: the mean 2080 / 64 = 32.5 rounds to 32 (half to even), so
  // the 33 greys 32..64 give 1: the bits are 31 zeros, then 33 ones.
  std::vector<int> g(64);
  for (int i = 0; i < 64; ++i) g[i] = i + 1;
  PicHash h = AverageHash(g, 8);
  ASSERT_EQ(h.size(), 64u);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(h[i], i >= 31 ? 1 : 0) << i;

  // Greys 0..63: mean 31.5 rounds to 32: 32 zeros then 32 ones.
  for (int i = 0; i < 64; ++i) g[i] = i;
  EXPECT_EQ(Ones(AverageHash(g, 8)), 32);
  // A flat picture: every grey equals the mean, all bits 1.
  EXPECT_EQ(Ones(AverageHash(std::vector<int>(256, 77), 16)), 256);
  EXPECT_EQ(AverageHash(std::vector<int>(256, 77), 16).size(), 256u);
}

TEST(PictureHashTest, DifferenceHashByHand) {
  // Two rows of three greys, n = 2: row 0 "5 3 3" gives 1 0 (3 is not
  // brighter than 3), row 1 "1 2 0" gives 0 1.
  EXPECT_EQ(DifferenceHash(std::vector<double>{5, 3, 3, 1, 2, 0}, 2), (PicHash{1, 0, 0, 1}));
  // Greys R/3 + G/3 + B/3 to four places: equal sums are equal greys,
  // however they are made up, so neither is brighter.
  RgbImage px;
  px.width = 3;
  px.height = 2;
  px.rgb = {1, 2, 0, 0, 0, 3, 3, 0, 0, 10, 20, 40, 0, 0, 70, 100, 0, 0};
  std::vector<double> g = DifferenceGreys(px);
  EXPECT_EQ(g[0], g[1]);
  EXPECT_EQ(g[1], g[2]);
  EXPECT_DOUBLE_EQ(g[3], 23.3333);
  EXPECT_EQ(DifferenceHash(g, 2), (PicHash{0, 0, 0, 0}));
  // A 9 x 8 picture getting darker to the right: every bit 1; lighter: 0.
  std::vector<double> ramp;
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 9; ++x) ramp.push_back(200 - x * 10);
  EXPECT_EQ(Ones(DifferenceHash(ramp, 8)), 64);
  for (auto& v : ramp) v = 300 - v;
  EXPECT_EQ(Ones(DifferenceHash(ramp, 8)), 0);
}

// The 2-D transform written out as its double sum, to check the row-then-
// column computation against.
double DirectDct(const std::vector<int>& g, int n, int u, int v) {
  double s = 0;
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x)
      s += g[y * n + x] * std::cos(u * std::numbers::pi * (y + 0.5) / n) *
           std::cos(v * std::numbers::pi * (x + 0.5) / n);
  double au = u == 0 ? std::sqrt(1.0 / n) : std::sqrt(2.0 / n);
  double av = v == 0 ? std::sqrt(1.0 / n) : std::sqrt(2.0 / n);
  return s * au * av;
}

TEST(PictureHashTest, PerceptualHashByHand) {
  // Greys: whole part of 0.299 R + 0.587 G + 0.114 B.
  RgbImage px;
  px.width = 3;
  px.height = 1;
  px.rgb = {255, 0, 0, 0, 255, 0, 10, 20, 30};
  EXPECT_EQ(PerceptualGreys(px), (std::vector<int>{76, 149, 18}));  // 76.245, 149.685, 18.15

  // A flat 8 x 8 picture of grey 10 has only its DC term, 8 x 10.
  std::vector<double> flat = PicDct2d(std::vector<int>(64, 10), 8);
  EXPECT_NEAR(flat[0], 80.0, 1e-9);
  for (int i = 1; i < 64; ++i) EXPECT_NEAR(flat[i], 0.0, 1e-9) << i;

  // Left half bright, right half dark: the first horizontal frequency (row 0,
  // column 1) is positive, the first vertical one (row 1, column 0) zero.
  std::vector<int> step(64);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) step[y * 8 + x] = x < 4 ? 200 : 50;
  std::vector<double> c = PicDct2d(step, 8);
  EXPECT_NEAR(c[1], DirectDct(step, 8, 0, 1), 1e-9);
  EXPECT_GT(c[1], 100.0);
  EXPECT_NEAR(c[8], 0.0, 1e-9);

  // A 16 x 16 picture: the hash takes the 8 x 8 low-frequency corner in
  // row order and sets the bits above the median of those 64.
  std::vector<int> g = Reds(Lopsided(16, 16));
  std::vector<double> dct = PicDct2d(g, 16);
  std::vector<double> corner;
  for (int u = 0; u < 8; ++u) {
    for (int v = 0; v < 8; ++v) {
      EXPECT_NEAR(dct[u * 16 + v], DirectDct(g, 16, u, v), 1e-6);
      corner.push_back(DirectDct(g, 16, u, v));
    }
  }
  std::vector<double> sorted = corner;
  std::sort(sorted.begin(), sorted.end());
  double median = (sorted[31] + sorted[32]) / 2;
  PicHash h = PerceptualHash(g, 16);
  ASSERT_EQ(h.size(), 64u);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(h[i], corner[i] > median ? 1 : 0) << i;
  EXPECT_EQ(Ones(h), 32);  // distinct coefficients: half above the median
  EXPECT_EQ(h[0], 1);      // the DC term is the largest
  EXPECT_EQ(PerceptualHash(std::vector<int>(576, 3), 24).size(), 64u);
}

TEST(PictureHashTest, FormsTurnAndMirrorAsNumbered) {
  // 3 x 2:   a b c
  //          d e f
  RgbImage img = Grey(3, 2, {1, 2, 3, 4, 5, 6});
  auto formed = [&](int form) { return PicTurnForm(img, form); };
  EXPECT_EQ(Reds(formed(0)), (std::vector<int>{1, 2, 3, 4, 5, 6}));
  // 90 to the right: d a / e b / f c.
  EXPECT_EQ(formed(1).width, 2);
  EXPECT_EQ(Reds(formed(1)), (std::vector<int>{4, 1, 5, 2, 6, 3}));
  EXPECT_EQ(Reds(formed(2)), (std::vector<int>{6, 5, 4, 3, 2, 1}));
  // 90 to the left: c f / b e / a d.
  EXPECT_EQ(Reds(formed(3)), (std::vector<int>{3, 6, 2, 5, 1, 4}));
  // Mirrored horizontally: c b a / f e d.
  EXPECT_EQ(Reds(formed(4)), (std::vector<int>{3, 2, 1, 6, 5, 4}));
  // 90 right, then mirrored: a d / b e / c f.
  EXPECT_EQ(Reds(formed(5)), (std::vector<int>{1, 4, 2, 5, 3, 6}));
  // Mirrored vertically: d e f / a b c.
  EXPECT_EQ(Reds(formed(6)), (std::vector<int>{4, 5, 6, 1, 2, 3}));
  // 90 left, then mirrored: f c / e b / d a.
  EXPECT_EQ(Reds(formed(7)), (std::vector<int>{6, 3, 5, 2, 4, 1}));
}

TEST(PictureHashTest, StretchAveragesTheCoveredArea) {
  // 4 x 2 into 2 x 1: the mean of each 2 x 2 block, rounded half up.
  RgbImage a = Grey(4, 2, {10, 20, 30, 40, 11, 21, 31, 42});
  EXPECT_EQ(Reds(PicStretch(a, 2, 1)), (std::vector<int>{16, 36}));  // 15.5, 35.75
  // 3 x 1 into 2 x 1: each covers one and a half pixels, (0 + 45) / 1.5
  // and (45 + 180) / 1.5.
  EXPECT_EQ(Reds(PicStretch(Grey(3, 1, {0, 90, 180}), 2, 1)), (std::vector<int>{30, 150}));
  // 1 x 1 into 2 x 2: every pixel the same.
  EXPECT_EQ(Reds(PicStretch(Grey(1, 1, {77}), 2, 2)), (std::vector<int>{77, 77, 77, 77}));
  // Stretching commutes with every form, also into the shapes of dHash.
  RgbImage big = Lopsided(53, 37);
  for (int k = 0; k < kPicFormCount; ++k) {
    for (auto [w, h] : {std::pair{16, 16}, std::pair{9, 8}, std::pair{8, 9}}) {
      RgbImage turnedThenStretched = PicStretch(PicTurnForm(big, k), k % 2 ? h : w, k % 2 ? w : h);
      RgbImage stretchedThenTurned = PicTurnForm(PicStretch(big, w, h), k);
      EXPECT_EQ(turnedThenStretched.rgb, stretchedThenTurned.rgb) << "form " << k;
    }
  }
}

TEST(PictureHashTest, TurnedPictureMatchesOnlyItsForm) {
  // A later picture that is form k of an earlier one meets the earlier
  // picture's form k at 100 %, and its form 0 at less.
  const RgbImage earlier = Lopsided(61, 43);
  const int n = 16;
  for (PicHashAlgo algo :
       {PicHashAlgo::kAverage, PicHashAlgo::kDifference, PicHashAlgo::kPerceptual}) {
    const int len = PicHashLength(algo, n);
    int w = 0, h = 0;
    PicThumbSize(algo, n, 0, &w, &h);
    const PicHash form0 = PicHashOfThumb(algo, PicStretch(earlier, w, h), n);
    for (int k = 1; k < kPicFormCount; ++k) {
      SCOPED_TRACE("algo " + std::to_string(static_cast<int>(algo)) + " form " + std::to_string(k));
      PicThumbSize(algo, n, k, &w, &h);
      PicHash formK = PicHashOfThumb(algo, PicTurnForm(PicStretch(earlier, w, h), k), n);
      PicThumbSize(algo, n, 0, &w, &h);
      PicHash later = PicHashOfThumb(algo, PicStretch(PicTurnForm(earlier, k), w, h), n);
      ASSERT_EQ(static_cast<int>(later.size()), len);
      EXPECT_EQ(PicMatchPercent(GetHammingDistanceFromArray(later, formK), len), 100);
      EXPECT_LT(PicMatchPercent(GetHammingDistanceFromArray(later, form0), len), 91);
    }
  }
}

// --- real files ---

class PictureFileTest : public ::testing::Test {
 protected:
  // Runs ImageMagick's convert with `args`; the test fails if it cannot.
  void Convert(const std::string& args) {
    std::string cmd = "convert " + args + " 2>&1";
    int status = std::system(cmd.c_str());
    ASSERT_EQ(status, 0) << "convert failed (package imagemagick): " << cmd;
  }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  PicHash Hash(PictureDecoder& dec, const std::string& name, PicHashAlgo algo, int side,
               int form = 0) {
    std::array<PicHash, kPicFormCount> hashes;
    std::string err;
    EXPECT_TRUE(CreatePictureHashes(dec, P(name), algo, side, 1u << form, &hashes, &err))
        << name << ": " << err;
    return hashes[form];
  }
  int Percent(const PicHash& a, const PicHash& b) {
    return PicMatchPercent(GetHammingDistanceFromArray(a, b), static_cast<int>(a.size()));
  }

  TempDir dir_;
};

TEST_F(PictureFileTest, ResavedHalfSizeCopyMatchesAndUnrelatedDoesNot) {
  Convert("-size 800x600 -seed 7 plasma:fractal " + P("orig.png"));
  Convert(P("orig.png") + " -resize 50% -quality 60 " + P("half.jpg"));
  Convert("-size 800x600 -seed 12345 plasma:fractal " + P("other.png"));
  std::unique_ptr<PictureDecoder> dec = MakeQtPictureDecoder();

  int w = 0, h = 0;
  std::string err;
  ASSERT_TRUE(dec->GetPictureDimension(P("half.jpg"), &w, &h, &err)) << err;
  EXPECT_EQ(w, 400);
  EXPECT_EQ(h, 300);
  EXPECT_EQ(PicFormatOf(w, h), 1);
  EXPECT_DOUBLE_EQ(PicRatioOf(w, h), 1.3);

  for (int side : {8, 16, 24}) {
    PicHash orig = Hash(*dec, "orig.png", PicHashAlgo::kPerceptual, side);
    PicHash half = Hash(*dec, "half.jpg", PicHashAlgo::kPerceptual, side);
    PicHash other = Hash(*dec, "other.png", PicHashAlgo::kPerceptual, side);
    EXPECT_GE(Percent(orig, half), 91) << side;
    EXPECT_LT(Percent(orig, other), 91) << side;
  }
  for (PicHashAlgo algo : {PicHashAlgo::kAverage, PicHashAlgo::kDifference}) {
    PicHash orig = Hash(*dec, "orig.png", algo, 16);
    EXPECT_EQ(orig.size(), 256u);
    EXPECT_GE(Percent(orig, Hash(*dec, "half.jpg", algo, 16)), 91);
    EXPECT_LT(Percent(orig, Hash(*dec, "other.png", algo, 16)), 91);
  }
}

TEST_F(PictureFileTest, TurnedAndMirroredFilesMeetTheirForm) {
  Convert("-size 320x240 -seed 3 plasma:fractal " + P("a.png"));
  // The later files, by the form of the earlier one each should meet.
  const std::array<std::pair<int, std::string>, 5> later = {
      {{1, "-rotate 90"}, {2, "-rotate 180"}, {3, "-rotate 270"}, {4, "-flop"}, {6, "-flip"}}};
  std::unique_ptr<PictureDecoder> dec = MakeQtPictureDecoder();
  for (PicHashAlgo algo :
       {PicHashAlgo::kAverage, PicHashAlgo::kDifference, PicHashAlgo::kPerceptual}) {
    std::array<PicHash, kPicFormCount> forms;
    std::string err;
    ASSERT_TRUE(CreatePictureHashes(*dec, P("a.png"), algo, 16, 0xFF, &forms, &err)) << err;
    for (const auto& [form, op] : later) {
      std::string name = "b" + std::to_string(form) + ".png";
      Convert(P("a.png") + " " + op + " " + P(name));
      PicHash b = Hash(*dec, name, algo, 16);
      SCOPED_TRACE(name + " algo " + std::to_string(static_cast<int>(algo)));
      EXPECT_EQ(Percent(b, forms[form]), 100);
      EXPECT_LT(Percent(b, forms[0]), 91);
    }
  }
}

TEST_F(PictureFileTest, DirectFormatsReadWithoutAnApplication) {
  // No QCoreApplication exists in this test program: the Qt image plug-ins
  // (jpeg, gif, tiff, ico) must load all the same.
  Convert("-size 160x120 -seed 2 plasma:fractal " + P("d.png"));
  for (std::string ext : {"bmp", "tif", "jpg", "gif", "ico"})
    Convert(P("d.png") + " " + P("d." + ext));
  std::unique_ptr<PictureDecoder> dec = MakePictureDecoder();
  PicHash png = Hash(*dec, "d.png", PicHashAlgo::kAverage, 16);
  for (std::string ext : {"bmp", "tif", "jpg", "gif", "ico"}) {
    SCOPED_TRACE(ext);
    int w = 0, h = 0;
    std::string err;
    ASSERT_TRUE(dec->GetPictureDimension(P("d." + ext), &w, &h, &err)) << err;
    EXPECT_EQ(w, 160);
    EXPECT_EQ(h, 120);
    int percent = Percent(png, Hash(*dec, "d." + ext, PicHashAlgo::kAverage, 16));
    if (ext == "bmp" || ext == "tif") {
      EXPECT_EQ(percent, 100);  // lossless
    } else {
      EXPECT_GE(percent, 91);
    }
  }
}

TEST_F(PictureFileTest, ExifOrientationIsNotApplied) {
  Convert("-size 320x240 -seed 5 plasma:fractal -quality 90 " + P("plain.jpg"));
  // Same pixels, with an Exif orientation of "turned 90 to the right".
  Convert(P("plain.jpg") + " -orient RightTop -quality 90 " + P("oriented.jpg"));
  std::unique_ptr<PictureDecoder> dec = MakeQtPictureDecoder();
  int w = 0, h = 0;
  std::string err;
  ASSERT_TRUE(dec->GetPictureDimension(P("oriented.jpg"), &w, &h, &err)) << err;
  EXPECT_EQ(w, 320);
  EXPECT_EQ(h, 240);
  RgbImage img;
  ASSERT_TRUE(dec->LoadThumbnail(P("oriented.jpg"), 16, 16, &img, &w, &h, &err)) << err;
  EXPECT_EQ(w, 320);
  EXPECT_EQ(h, 240);
  EXPECT_GE(Percent(Hash(*dec, "plain.jpg", PicHashAlgo::kPerceptual, 16),
                    Hash(*dec, "oriented.jpg", PicHashAlgo::kPerceptual, 16)),
            97);
}

TEST_F(PictureFileTest, PluginFormatsGoThroughFreeImage) {
  Convert("-size 320x240 -seed 9 plasma:fractal " + P("p.png"));
  Convert(P("p.png") + " " + P("p.pcx"));
  Convert(P("p.png") + " " + P("p.psd"));
  Convert(P("p.png") + " " + P("p.ppm"));  // 16 bits a channel
  Convert(P("p.png") + " " + P("p.tga"));
  std::unique_ptr<PictureDecoder> dec = MakePictureDecoder();
  PicHash png = Hash(*dec, "p.png", PicHashAlgo::kPerceptual, 16);
  for (std::string name : {"p.pcx", "p.psd", "p.ppm", "p.tga"}) {
    SCOPED_TRACE(name);
    int w = 0, h = 0;
    std::string err;
    ASSERT_TRUE(dec->GetPictureDimension(P(name), &w, &h, &err)) << err;
    EXPECT_EQ(w, 320);
    EXPECT_EQ(h, 240);
    // ImageMagick writes its targa files top row first while their header
    // says bottom row first; FreeImage believes the header, so only the
    // size of that one is compared.
    if (name != "p.tga") {
      EXPECT_EQ(Percent(png, Hash(*dec, name, PicHashAlgo::kPerceptual, 16)), 100);
    }
  }
  EXPECT_TRUE(IsPluginPictureExtension("PCX"));
  EXPECT_TRUE(IsPluginPictureExtension("cr2"));
  EXPECT_FALSE(IsPluginPictureExtension("png"));
  EXPECT_TRUE(IsDirectPictureExtension("jfif"));
  EXPECT_FALSE(IsDirectPictureExtension("psd"));

  // A text file with a plug-in extension.
  dir_.Write("fake.psd", "not a picture at all\n");
  RgbImage img;
  std::string err;
  EXPECT_FALSE(dec->LoadThumbnail(P("fake.psd"), 16, 16, &img, nullptr, nullptr, &err));
  EXPECT_NE(err.find("FreeImage"), std::string::npos) << err;
}

using test::PngHeaderOnly;

TEST_F(PictureFileTest, BadFilesGiveClearErrors) {
  test::HangGuard guard(std::chrono::seconds(120), "bad pictures");
  Convert("-size 640x480 -seed 4 plasma:fractal -quality 85 " + P("good.jpg"));
  std::string good = test::ReadBytes(dir_ / "good.jpg");
  dir_.Write("cut.jpg", good.substr(0, good.size() / 2));
  dir_.Write("empty.jpg", "");
  dir_.Write("text.jpg", "This is a text file, not a picture.\n");
  dir_.Write("huge.png", PngHeaderOnly(30000, 30000));
  std::unique_ptr<PictureDecoder> dec = MakePictureDecoder();

  struct Case {
    std::string name, expected;
  };
  for (const Case& c :
       {Case{"cut.jpg", "cut short"}, Case{"empty.jpg", "the file is empty"},
        Case{"text.jpg", "QImageReader: "}, Case{"huge.png", "30000 x 30000 pixels is too large"},
        Case{"missing.jpg", "OpenPicture: "}}) {
    SCOPED_TRACE(c.name);
    RgbImage img;
    std::string err;
    EXPECT_FALSE(dec->LoadThumbnail(P(c.name), 16, 16, &img, nullptr, nullptr, &err));
    EXPECT_NE(err.find(c.expected), std::string::npos) << err;
    std::array<PicHash, kPicFormCount> hashes;
    err.clear();
    EXPECT_FALSE(
        CreatePictureHashes(*dec, P(c.name), PicHashAlgo::kPerceptual, 16, 1, &hashes, &err));
    EXPECT_FALSE(err.empty());
    EXPECT_TRUE(hashes[0].empty());
  }
  // The header alone is enough for the size of the huge one.
  int w = 0, h = 0;
  std::string err;
  ASSERT_TRUE(dec->GetPictureDimension(P("huge.png"), &w, &h, &err)) << err;
  EXPECT_EQ(w, 30000);
  EXPECT_EQ(h, 30000);
  EXPECT_FALSE(dec->GetPictureDimension(P("text.jpg"), &w, &h, &err));
  // The good file still reads, and nothing above took gigabytes.
  RgbImage img;
  ASSERT_TRUE(dec->LoadThumbnail(P("good.jpg"), 8, 8, &img, &w, &h, &err)) << err;
  EXPECT_EQ(w, 640);
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  EXPECT_LT(ru.ru_maxrss, 1024L * 1024);  // kilobytes: under 1 GiB
}

}  // namespace
}  // namespace kelvor
