#pragma once
// Perceptual hashes of pictures for the similar-pictures search: average
// (aHash), difference (dHash) and perceptual (pHash) hash of a small
// thumbnail, its seven turned and mirrored forms, and the share of equal bits
// of two hashes. Everything here is a pure function of pixels, so that it can
// be tested with hand-made images; decoding a file is picture_decoder.h's job.
//
// A hash is an array of bits, one byte (0 or 1) per bit. Hash values depend on
// the library that scaled the thumbnail, so they are compared only within one
// run and never stored.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kelvor {

class PictureDecoder;

// SimiliarImagesAlgo.
enum class PicHashAlgo : int { kAverage = 0, kDifference = 1, kPerceptual = 2 };

// The forms by number: 0 as it is, 1 turned 90 degrees to the right, 2 turned
// 180, 3 turned 90 to the left, 4 mirrored horizontally, 5 turned 90 right and
// mirrored, 6 mirrored vertically (turned 180 and mirrored), 7 turned 90 left
// and mirrored. Turns are applied first, then the mirror.
inline constexpr int kPicFormCount = 8;

// An RGB image, 3 bytes a pixel in the order red, green, blue, top row first.
struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

using PicHash = std::vector<std::uint8_t>;

// Thumbnail side of SimilarPicsThumbSizeIndex 0, 1, 2: 8, 16, 24; -1 else.
int PicThumbSide(int sizeIndex);
// Whether a size index is offered for an algorithm: 24x24 only with pHash.
bool PicSizeOffered(PicHashAlgo algo, int sizeIndex);
// Bits of a hash: n x n for aHash and dHash, always 64 for pHash.
int PicHashLength(PicHashAlgo algo, int side);
// The thumbnail the decoder is asked for, before the form is applied: n x n,
// for dHash (n + 1) x n, and for dHash forms that turn by a quarter n x (n + 1),
// so that every form ends as (n + 1) x n and a turned picture stretched to that
// shape meets the turned stretch of the original.
void PicThumbSize(PicHashAlgo algo, int side, int form, int* width, int* height);

// Stretches a picture, without regard to its aspect, into a thumbnail of
// width x height by exact area averages: each thumbnail pixel is the mean of
// the source area it covers, in integers, rounded half up. Being exact, it
// commutes with turning and mirroring, so a turned picture's thumbnail is
// the turned thumbnail of the original. Rows are given top first, one at a
// time, as RGB (3 bytes a pixel), so that a decoder never has to hold the
// whole picture in this form.
class PicStretcher {
 public:
  PicStretcher(int srcWidth, int srcHeight, int width, int height);
  // The next source row, srcWidth x 3 bytes.
  void AddRow(const std::uint8_t* rgb);
  int RowsAdded() const { return rowsAdded_; }
  // The thumbnail; rows not given count as black.
  RgbImage Finish() const;

 private:
  int srcWidth_, srcHeight_, width_, height_;
  int rowsAdded_ = 0;
  // Per source row and thumbnail column: the weighted sums of the row's
  // pixels under that column (weights in units of 1/width of a pixel).
  std::vector<std::int64_t> columnSums_;
};
// The same on a whole image.
RgbImage PicStretch(const RgbImage& src, int width, int height);

// The image in form 0..7 (see above). A quarter turn swaps width and height.
RgbImage PicTurnForm(const RgbImage& img, int form);

// Greys, each the hash's own: aHash (R + G + B) / 3 rounded; dHash
// R/3 + G/3 + B/3 to four decimal places; pHash the whole part of
// 0.299 R + 0.587 G + 0.114 B.
std::vector<int> AverageGreys(const RgbImage& img);
std::vector<double> DifferenceGreys(const RgbImage& img);
std::vector<int> PerceptualGreys(const RgbImage& img);

// aHash of n x n greys (row order): 1 where a grey is not below the mean
// (sum / n², rounded half to even); n² bits.
PicHash AverageHash(std::span<const int> greys, int n);
// dHash of (n + 1) x n greys: per row, for each of the n neighbouring pairs
// from the left, 1 when the left pixel is brighter; n² bits.
PicHash DifferenceHash(std::span<const double> greys, int n);
// pHash of n x n greys (n >= 8): orthonormal DCT-II of the rows, then of the
// columns; of the 8 x 8 low-frequency corner (DC included), in row order,
// 1 where a coefficient is above the median of the 64; 64 bits.
PicHash PerceptualHash(std::span<const int> greys, int n);
// The 2-D transform used by PerceptualHash, n x n in row order (for tests).
std::vector<double> PicDct2d(std::span<const int> greys, int n);

// The chosen hash of a thumbnail already in its form (as PicThumbSize and
// PicTurnForm made it).
PicHash PicHashOfThumb(PicHashAlgo algo, const RgbImage& formed, int side);

// Sorts `values` in place (selection sort) and returns the middle value, or
// the mean of the two middle ones for an even count; 0 for none.
double GetMedian(std::vector<double>& values);
// Positions at which two hashes differ; where one is longer, its extra
// positions count as differing.
int GetHammingDistanceFromArray(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b);
// 100 - d x 100 / length, rounded half to even; a negative d counts as 0.
int PicMatchPercent(int distance, int hashLength);

// Decodes `path` once per thumbnail shape and fills (*hashes)[k] for every
// form k whose bit is set in `formMask` (bit 0 is form 0). Returns false with
// *errorText set (and no hash filled) when the picture cannot be read.
// *origWidth / *origHeight (may be null) receive the picture's own size as
// the decoder reported it (-1 when it did not).
bool CreatePictureHashes(PictureDecoder& decoder, const std::string& path, PicHashAlgo algo,
                         int side, unsigned formMask, std::array<PicHash, kPicFormCount>* hashes,
                         std::string* errorText, int* origWidth = nullptr,
                         int* origHeight = nullptr);

}  // namespace kelvor
