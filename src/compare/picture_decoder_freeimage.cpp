// The reader of the plug-in picture list (camera raw, psd, pcx, tga, ...),
// on FreeImage.

#include <FreeImage.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "compare/picture_decoder.h"
#include "data/file_system.h"

namespace kelvor {
namespace {

unsigned DLL_CALLCONV ReadProc(void* buffer, unsigned size, unsigned count, fi_handle handle) {
  return static_cast<unsigned>(std::fread(buffer, size, count, static_cast<std::FILE*>(handle)));
}
unsigned DLL_CALLCONV WriteProc(void*, unsigned, unsigned, fi_handle) {
  return 0;
}
int DLL_CALLCONV SeekProc(fi_handle handle, long offset, int origin) {
  return std::fseek(static_cast<std::FILE*>(handle), offset, origin);
}
long DLL_CALLCONV TellProc(fi_handle handle) {
  return std::ftell(static_cast<std::FILE*>(handle));
}

// Owns a bitmap.
struct Dib {
  FIBITMAP* p = nullptr;
  Dib() = default;
  explicit Dib(FIBITMAP* b) : p(b) {}
  ~Dib() {
    if (p) FreeImage_Unload(p);
  }
  Dib(const Dib&) = delete;
  Dib& operator=(const Dib&) = delete;
  void Reset(FIBITMAP* b) {
    if (p && p != b) FreeImage_Unload(p);
    p = b;
  }
};

// An open picture file with the format FreeImage recognises in it.
class OpenPicture {
 public:
  ~OpenPicture() {
    if (file_) std::fclose(file_);
  }
  bool Open(const std::string& path, std::string* errorText) {
    std::string err;
    int fd = xOpenFileForReading(path, nullptr, &err);
    if (fd < 0) {
      *errorText = "OpenPicture: " + err;
      return false;
    }
    file_ = fdopen(fd, "rb");
    if (!file_) {
      xCloseFd(fd);
      *errorText = "OpenPicture: cannot read the file";
      return false;
    }
    io_.read_proc = ReadProc;
    io_.write_proc = WriteProc;
    io_.seek_proc = SeekProc;
    io_.tell_proc = TellProc;
    fif_ = FreeImage_GetFileTypeFromHandle(&io_, file_, 0);
    // Some formats (tga, raw without a signature) are known only by name.
    if (fif_ == FIF_UNKNOWN) fif_ = FreeImage_GetFIFFromFilename(path.c_str());
    if (fif_ == FIF_UNKNOWN || !FreeImage_FIFSupportsReading(fif_)) {
      *errorText = "FreeImage_GetFileType: unknown picture format";
      return false;
    }
    return true;
  }
  // Loads with `flags`; null with *errorText on failure.
  FIBITMAP* Load(int flags, std::string* errorText) {
    std::fseek(file_, 0, SEEK_SET);
    FIBITMAP* dib = FreeImage_LoadFromHandle(fif_, &io_, file_, flags);
    if (!dib) {
      const char* name = FreeImage_GetFormatFromFIF(fif_);
      *errorText =
          std::string("FreeImage_Load: cannot read the picture (") + (name ? name : "?") + ")";
    }
    return dib;
  }
  FREE_IMAGE_FORMAT format() const { return fif_; }

 private:
  std::FILE* file_ = nullptr;
  FreeImageIO io_{};
  FREE_IMAGE_FORMAT fif_ = FIF_UNKNOWN;
};

std::string TooLargeText(unsigned w, unsigned h) {
  return "FreeImage_Load: picture of " + std::to_string(w) + " x " + std::to_string(h) +
         " pixels is too large to decode";
}

class FreeImagePictureDecoder : public PictureDecoder {
 public:
  bool GetPictureDimension(const std::string& path, int* width, int* height,
                           std::string* errorText) override {
    OpenPicture pic;
    if (!pic.Open(path, errorText)) return false;
    int flags = FreeImage_FIFSupportsNoPixels(pic.format()) ? FIF_LOAD_NOPIXELS : 0;
    Dib dib(pic.Load(flags, errorText));
    if (!dib.p) return false;
    *width = static_cast<int>(FreeImage_GetWidth(dib.p));
    *height = static_cast<int>(FreeImage_GetHeight(dib.p));
    if (*width <= 0 || *height <= 0) {
      *errorText = "FreeImage_GetWidth: the picture has no size";
      return false;
    }
    return true;
  }

  bool LoadThumbnail(const std::string& path, int width, int height, RgbImage* out, int* origWidth,
                     int* origHeight, std::string* errorText) override {
    if (width <= 0 || height <= 0) {
      *errorText = "FreeImage_Rescale: invalid thumbnail size";
      return false;
    }
    OpenPicture pic;
    if (!pic.Open(path, errorText)) return false;
    const FREE_IMAGE_FORMAT fif = pic.format();
    int ow = -1, oh = -1;
    if (FreeImage_FIFSupportsNoPixels(fif)) {
      Dib head(pic.Load(FIF_LOAD_NOPIXELS, errorText));
      if (!head.p) return false;
      ow = static_cast<int>(FreeImage_GetWidth(head.p));
      oh = static_cast<int>(FreeImage_GetHeight(head.p));
      // A camera raw file gives its embedded preview, not the full sensor.
      if (fif != FIF_RAW && static_cast<long long>(ow) * oh > kMaxPicturePixels) {
        *errorText = TooLargeText(static_cast<unsigned>(ow), static_cast<unsigned>(oh));
        return false;
      }
    }
    int flags = 0;
    if (fif == FIF_RAW) flags = RAW_PREVIEW;
    // JPEG inside the plug-in list (jpx is not JPEG; this is for safety only):
    // decode at the smallest scale that still covers the thumbnail.
    if (fif == FIF_JPEG) flags = JPEG_FAST | ((width > height ? width : height) << 16);
    Dib dib(pic.Load(flags, errorText));
    if (!dib.p) return false;
    if (ow <= 0 || oh <= 0) {
      ow = static_cast<int>(FreeImage_GetWidth(dib.p));
      oh = static_cast<int>(FreeImage_GetHeight(dib.p));
    }
    switch (FreeImage_GetImageType(dib.p)) {
      case FIT_BITMAP:
        break;
      case FIT_RGB16:  // 16 bits a channel (ppm, png, tiff)
      case FIT_RGBA16:
        dib.Reset(FreeImage_ConvertTo24Bits(dib.p));
        break;
      case FIT_RGBF:  // floating point colour (hdr, exr, some tiff)
      case FIT_RGBAF:
        dib.Reset(FreeImage_ToneMapping(dib.p, FITMO_DRAGO03));
        break;
      default:  // one channel of 16 bits, integers, floats
        dib.Reset(FreeImage_ConvertToStandardType(dib.p, TRUE));
        break;
    }
    if (dib.p && FreeImage_GetBPP(dib.p) == 32) {
      RGBQUAD black{};
      dib.Reset(FreeImage_Composite(dib.p, FALSE, &black, nullptr));
    }
    if (dib.p && FreeImage_GetBPP(dib.p) != 24) dib.Reset(FreeImage_ConvertTo24Bits(dib.p));
    if (!dib.p) {
      *errorText = "FreeImage_ConvertTo24Bits: the picture could not be converted";
      return false;
    }
    // FreeImage keeps the bottom row first.
    const int w = static_cast<int>(FreeImage_GetWidth(dib.p));
    const int h = static_cast<int>(FreeImage_GetHeight(dib.p));
    PicStretcher stretcher(w, h, width, height);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(w) * 3);
    for (int y = 0; y < h; ++y) {
      const BYTE* line = FreeImage_GetScanLine(dib.p, h - 1 - y);
      std::uint8_t* d = row.data();
      for (int x = 0; x < w; ++x, line += 3) {
        *d++ = line[FI_RGBA_RED];
        *d++ = line[FI_RGBA_GREEN];
        *d++ = line[FI_RGBA_BLUE];
      }
      stretcher.AddRow(row.data());
    }
    *out = stretcher.Finish();
    if (origWidth) *origWidth = ow;
    if (origHeight) *origHeight = oh;
    return true;
  }
};

}  // namespace

std::unique_ptr<PictureDecoder> MakeFreeImagePictureDecoder() {
  return std::make_unique<FreeImagePictureDecoder>();
}

}  // namespace kelvor
