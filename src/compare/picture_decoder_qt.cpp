// The reader of directly read pictures, on Qt's QImageReader. This file and
// its FreeImage twin are the only places that see an image library's types.

#include <sys/stat.h>
#include <unistd.h>

#include <QBuffer>
#include <QByteArray>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QSize>
#include <algorithm>
#include <cstring>
#include <vector>

#include "compare/picture_decoder.h"
#include "data/file_system.h"

namespace kelvor {
namespace {

// Allocation ceiling handed to Qt (megabytes): a full-size decode of the
// largest picture we accept, four bytes a pixel.
constexpr int kAllocationLimitMb = static_cast<int>(kMaxPicturePixels * 4 / (1024 * 1024));

std::string ReaderError(const QImageReader& reader) {
  return "QImageReader: " + std::to_string(static_cast<int>(reader.error())) + " - " +
         reader.errorString().toStdString();
}

// Walks the markers of a JPEG stream and tells whether it reaches its end
// marker. A JPEG cut short still decodes (the rest is grey), so this is the
// only way to notice it; data after the end marker is allowed.
bool JpegReachesEnd(const unsigned char* p, std::size_t n) {
  std::size_t i = 2;  // after the start marker
  while (true) {
    while (i < n && p[i] != 0xFF) ++i;  // tolerate stray bytes between segments
    while (i < n && p[i] == 0xFF) ++i;  // fill bytes
    if (i >= n) return false;
    unsigned char m = p[i++];
    if (m == 0xD9) return true;
    if (m == 0x01 || (m >= 0xD0 && m <= 0xD7)) continue;  // markers without a length
    if (i + 2 > n) return false;
    std::size_t len = (static_cast<std::size_t>(p[i]) << 8) | p[i + 1];
    if (len < 2) return false;
    i += len;
    if (i > n) return false;
    if (m != 0xDA) continue;
    // Entropy-coded data: runs until a marker other than a stuffed 0xFF 0x00
    // or a restart marker.
    while (true) {
      const void* ff = std::memchr(p + i, 0xFF, n - i);
      if (ff == nullptr) return false;
      std::size_t pos = static_cast<const unsigned char*>(ff) - p;
      if (pos + 1 >= n) return false;
      unsigned char b = p[pos + 1];
      if (b == 0x00 || (b >= 0xD0 && b <= 0xD7)) {
        i = pos + 2;
        continue;
      }
      i = pos;
      break;
    }
  }
}

// An open picture: the file, or for decoding a JPEG its bytes in memory
// (checked for completeness first), ready for a QImageReader.
class OpenPicture {
 public:
  // `wholeJpeg`: a JPEG is read into memory and checked to reach its end
  // (for decoding); without it only what the header needs is read.
  bool Open(const std::string& path, bool wholeJpeg, std::string* errorText) {
    std::string err;
    struct stat st {};
    int fd = xOpenFileForReading(path, nullptr, &err, &st);
    if (fd < 0) {
      *errorText = "OpenPicture: " + err;
      return false;
    }
    if (!file_.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
      xCloseFd(fd);
      *errorText = "OpenPicture: " + file_.errorString().toStdString();
      return false;
    }
    if (st.st_size == 0) {
      *errorText = "OpenPicture: the file is empty";
      return false;
    }
    QByteArray head = file_.peek(3);
    if (wholeJpeg && head.size() == 3 && static_cast<unsigned char>(head[0]) == 0xFF &&
        static_cast<unsigned char>(head[1]) == 0xD8 &&
        static_cast<unsigned char>(head[2]) == 0xFF) {
      bytes_ = file_.readAll();
      if (file_.error() != QFileDevice::NoError) {
        *errorText = "OpenPicture: " + file_.errorString().toStdString();
        return false;
      }
      if (!JpegReachesEnd(reinterpret_cast<const unsigned char*>(bytes_.constData()),
                          static_cast<std::size_t>(bytes_.size()))) {
        *errorText =
            "QImageReader: 4 - JPEG data end before the end of the picture (file cut short?)";
        return false;
      }
      buffer_.setBuffer(&bytes_);
      buffer_.open(QIODevice::ReadOnly);
      device_ = &buffer_;
    } else {
      device_ = &file_;
    }
    reader_.setDevice(device_);
    reader_.setAutoTransform(false);  // pixels as stored; the Exif orientation is not applied
    reader_.setAllocationLimit(kAllocationLimitMb);
    return true;
  }
  QImageReader& reader() { return reader_; }

 private:
  QFile file_;
  QByteArray bytes_;
  QBuffer buffer_;
  QIODevice* device_ = nullptr;
  QImageReader reader_;
};

bool TooLarge(const QSize& size) {
  return static_cast<long long>(size.width()) * size.height() > kMaxPicturePixels;
}

std::string TooLargeText(const QSize& size) {
  return "QImageReader: picture of " + std::to_string(size.width()) + " x " +
         std::to_string(size.height()) + " pixels is too large to decode";
}

class QtPictureDecoder : public PictureDecoder {
 public:
  bool GetPictureDimension(const std::string& path, int* width, int* height,
                           std::string* errorText) override {
    OpenPicture pic;
    if (!pic.Open(path, false, errorText)) return false;
    QImageReader& reader = pic.reader();
    QSize size = reader.size();
    if (!size.isValid()) {
      // Formats without a readable header size: decode to learn it.
      QImage img;
      if (!reader.read(&img)) {
        *errorText = ReaderError(reader);
        return false;
      }
      size = img.size();
    }
    if (size.width() <= 0 || size.height() <= 0) {
      *errorText = ReaderError(reader);
      return false;
    }
    *width = size.width();
    *height = size.height();
    return true;
  }

  bool LoadThumbnail(const std::string& path, int width, int height, RgbImage* out, int* origWidth,
                     int* origHeight, std::string* errorText) override {
    if (width <= 0 || height <= 0) {
      *errorText = "QImageReader: invalid thumbnail size";
      return false;
    }
    OpenPicture pic;
    if (!pic.Open(path, true, errorText)) return false;
    QImageReader& reader = pic.reader();
    const QSize size = reader.size();
    if (size.isValid()) {
      if (reader.format() == "jpeg") {
        // libjpeg decodes at 1/2, 1/4 or 1/8 scale for a fraction of the
        // work; take the smallest that still covers the thumbnail.
        for (int scale : {8, 4, 2}) {
          QSize scaled(size.width() / scale, size.height() / scale);
          if (scaled.width() >= width && scaled.height() >= height) {
            reader.setScaledSize(scaled);
            break;
          }
        }
      } else if (TooLarge(size)) {
        // The other readers decode at full size first.
        *errorText = TooLargeText(size);
        return false;
      }
    }
    QImage img;
    if (!reader.read(&img) || img.isNull()) {
      *errorText = ReaderError(reader);
      return false;
    }
    const QSize orig = size.isValid() ? size : img.size();
    PicStretcher stretcher(img.width(), img.height(), width, height);
    FeedRows(img, stretcher);
    *out = stretcher.Finish();
    if (origWidth) *origWidth = orig.width();
    if (origHeight) *origHeight = orig.height();
    return true;
  }

 private:
  // Hands the picture's rows to the stretcher as RGB laid over black
  // (premultiplied colour is exactly that). Other pixel formats are
  // converted in bands, so that no full-size copy is made.
  static void FeedRows(const QImage& img, PicStretcher& stretcher) {
    const int w = img.width(), h = img.height();
    std::vector<std::uint8_t> row(static_cast<std::size_t>(w) * 3);
    auto feed = [&](const QImage& src, int y, bool premultiply) {
      const QRgb* line = reinterpret_cast<const QRgb*>(src.constScanLine(y));
      std::uint8_t* d = row.data();
      for (int x = 0; x < w; ++x) {
        QRgb p = premultiply ? qPremultiply(line[x]) : line[x];
        *d++ = static_cast<std::uint8_t>(qRed(p));
        *d++ = static_cast<std::uint8_t>(qGreen(p));
        *d++ = static_cast<std::uint8_t>(qBlue(p));
      }
      stretcher.AddRow(row.data());
    };
    const QImage::Format f = img.format();
    if (f == QImage::Format_RGB32 || f == QImage::Format_ARGB32 ||
        f == QImage::Format_ARGB32_Premultiplied) {
      for (int y = 0; y < h; ++y) feed(img, y, f == QImage::Format_ARGB32);
      return;
    }
    constexpr int kBand = 64;
    for (int y0 = 0; y0 < h; y0 += kBand) {
      const int rows = std::min(kBand, h - y0);
      QImage band = img.copy(0, y0, w, rows).convertToFormat(QImage::Format_ARGB32_Premultiplied);
      for (int y = 0; y < rows; ++y) feed(band, y, false);
    }
  }
};

}  // namespace

std::unique_ptr<PictureDecoder> MakeQtPictureDecoder() {
  return std::make_unique<QtPictureDecoder>();
}

}  // namespace kelvor
