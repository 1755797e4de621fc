#include "compare/picture_decoder.h"

#include <array>

namespace kelvor {

int PicFormatOf(int width, int height) {
  return width > height ? 1 : 2;
}

double PicRatioOf(int width, int height) {
  if (height <= 0) return 0.0;
  // Whole part of width x 10 / height in integers, so that no rounding of a
  // division can move a ratio such as 0.7 below its tenth.
  long long tenths = static_cast<long long>(width) * 10 / height;
  return static_cast<double>(tenths) / 10.0;
}

namespace {

bool EqualsAsciiNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

template <std::size_t N>
bool OnList(std::string_view ext, const std::array<std::string_view, N>& list) {
  for (std::string_view e : list) {
    if (EqualsAsciiNoCase(ext, e)) return true;
  }
  return false;
}

constexpr std::array<std::string_view, 14> kDirect = {"bmp", "dib",  "rle", "jpg", "jpeg",
                                                      "jpe", "jfif", "gif", "emf", "wmf",
                                                      "tif", "tiff", "png", "ico"};
constexpr std::array<std::string_view, 35> kPlugin = {
    "3fr", "arw", "cr2", "crw", "cut", "dcr", "dng", "erf", "hdp", "iff",  "j2c", "j2k",
    "jp2", "jpx", "kdc", "mdc", "mef", "mos", "mrw", "nef", "orf", "pbm",  "pcx", "pef",
    "pgm", "ppm", "psd", "raf", "ras", "raw", "rw2", "srw", "tga", "wbmp", "x3f"};

std::string_view ExtensionOf(std::string_view path) {
  std::size_t slash = path.rfind('/');
  std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return {};
  return path.substr(dot + 1);
}

// Hands each file to the reader of its extension's list.
class ChoosingPictureDecoder : public PictureDecoder {
 public:
  ChoosingPictureDecoder()
      : qt_(MakeQtPictureDecoder()), freeImage_(MakeFreeImagePictureDecoder()) {}

  bool GetPictureDimension(const std::string& path, int* width, int* height,
                           std::string* errorText) override {
    return For(path).GetPictureDimension(path, width, height, errorText);
  }
  bool LoadThumbnail(const std::string& path, int width, int height, RgbImage* out, int* origWidth,
                     int* origHeight, std::string* errorText) override {
    return For(path).LoadThumbnail(path, width, height, out, origWidth, origHeight, errorText);
  }

 private:
  PictureDecoder& For(const std::string& path) {
    return IsPluginPictureExtension(ExtensionOf(path)) ? *freeImage_ : *qt_;
  }
  std::unique_ptr<PictureDecoder> qt_;
  std::unique_ptr<PictureDecoder> freeImage_;
};

}  // namespace

bool IsDirectPictureExtension(std::string_view ext) {
  return OnList(ext, kDirect);
}
bool IsPluginPictureExtension(std::string_view ext) {
  return OnList(ext, kPlugin);
}

std::unique_ptr<PictureDecoder> MakePictureDecoder() {
  return std::make_unique<ChoosingPictureDecoder>();
}

}  // namespace kelvor
