#pragma once
// Reading pictures for the similar-pictures search, behind an interface that
// shows no type of the libraries doing it. Two readers stand behind it: Qt's
// image reader for the pictures read directly (jpg, png, gif, bmp, tif, ...)
// and FreeImage for the plug-in list (camera raw, psd, pcx, tga, ...).
// MakePictureDecoder picks by extension.
//
// Neither reader needs a QCoreApplication or a display: the Qt image plug-ins
// (tiff, webp, ...) are found through the library paths Qt knows without an
// application object.
//
// A decoder is used by one thread at a time. Files are opened through the
// data layer's xOpenFileForReading, so a FIFO or device in a picture's place
// fails at once instead of blocking.

#include <memory>
#include <string>
#include <string_view>

#include "compare/picture_hash.h"

namespace kelvor {

// PicFormat: 1 when the picture is wider than high, otherwise 2 (a square
// is 2).
int PicFormatOf(int width, int height);
// PicRatio: width / height cut down to one decimal place (1.33 and 1.34 are
// both 1.3). 0 for a height that is not positive.
double PicRatioOf(int width, int height);

// Pictures larger than this many pixels that a reader would have to decode at
// full size are refused, so that a file claiming 30000 x 30000 cannot take the
// machine's memory. Readers that scale while decoding (JPEG) are not limited
// by it, only by the memory of the scaled image.
inline constexpr long long kMaxPicturePixels = 128LL * 1024 * 1024;

class PictureDecoder {
 public:
  virtual ~PictureDecoder() = default;

  // Width and height from the file's header, without decoding the pixels
  // where the format allows. False with *errorText on failure.
  virtual bool GetPictureDimension(const std::string& path, int* width, int* height,
                                   std::string* errorText) = 0;

  // The picture stretched without regard to its aspect into an RGB image of
  // width x height, as stored (an Exif orientation is not applied);
  // transparency is laid over black. *origWidth / *origHeight (may be null)
  // receive the picture's own size. False with *errorText on failure.
  virtual bool LoadThumbnail(const std::string& path, int width, int height, RgbImage* out,
                             int* origWidth, int* origHeight, std::string* errorText) = 0;
};

// Qt's QImageReader; JPEG is decoded at a reduced scale.
std::unique_ptr<PictureDecoder> MakeQtPictureDecoder();
// FreeImage; camera raw files give their embedded preview where they have one.
std::unique_ptr<PictureDecoder> MakeFreeImagePictureDecoder();
// Chooses per file: extensions of the plug-in list go to FreeImage, all
// others to Qt.
std::unique_ptr<PictureDecoder> MakePictureDecoder();

// Lower-case extension (without dot) on the list read directly:
// bmp dib rle jpg jpeg jpe jfif gif emf wmf tif tiff png ico.
bool IsDirectPictureExtension(std::string_view ext);
// ... on the plug-in list: 3fr arw cr2 crw cut dcr dng erf hdp iff j2c j2k
// jp2 jpx kdc mdc mef mos mrw nef orf pbm pcx pef pgm ppm psd raf ras raw rw2
// srw tga wbmp x3f.
bool IsPluginPictureExtension(std::string_view ext);

}  // namespace kelvor
