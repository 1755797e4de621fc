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
#include <cstring>

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

// An open picture: the file, or for JPEG its bytes in memory (checked for
// completeness first), ready for a QImageReader.
class OpenPicture {
 public:
  bool Open(const std::string& path, std::string* errorText) {
    std::string err;
    struct stat st {};
    int fd = xOpenFileForReading(path, nullptr, &err, &st);
    if (fd < 0) {
      *errorText = "OpenPicture: " + err;
      return false;
    }
    if (!file_.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
      ::close(fd);
      *errorText = "OpenPicture: " + file_.errorString().toStdString();
      return false;
    }
    if (st.st_size == 0) {
      *errorText = "OpenPicture: the file is empty";
      return false;
    }
    QByteArray head = file_.peek(3);
    if (head.size() == 3 && static_cast<unsigned char>(head[0]) == 0xFF &&
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
    if (!pic.Open(path, errorText)) return false;
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
    if (!pic.Open(path, errorText)) return false;
    QImageReader& reader = pic.reader();
    const QSize size = reader.size();
    if (size.isValid()) {
      // Only the JPEG reader decodes at a reduced scale (others that take a
      // scaled size decode in full first), so only it may exceed the cap.
      if (TooLarge(size) && reader.format() != "jpeg") {
        *errorText = TooLargeText(size);
        return false;
      }
      // Readers that can (JPEG) decode at a reduced scale; for the others
      // QImageReader scales the decoded picture.
      reader.setScaledSize(QSize(width, height));
    }
    QImage img;
    if (!reader.read(&img) || img.isNull()) {
      *errorText = ReaderError(reader);
      return false;
    }
    const QSize orig = size.isValid() ? size : img.size();
    if (img.width() != width || img.height() != height)
      img = img.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // Premultiplied colour is the colour laid over black.
    img = img.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (img.isNull() || img.width() != width || img.height() != height) {
      *errorText = "QImageReader: the picture could not be scaled";
      return false;
    }
    out->width = width;
    out->height = height;
    out->rgb.resize(static_cast<std::size_t>(width) * height * 3);
    std::uint8_t* d = out->rgb.data();
    for (int y = 0; y < height; ++y) {
      const QRgb* line = reinterpret_cast<const QRgb*>(img.constScanLine(y));
      for (int x = 0; x < width; ++x) {
        *d++ = static_cast<std::uint8_t>(qRed(line[x]));
        *d++ = static_cast<std::uint8_t>(qGreen(line[x]));
        *d++ = static_cast<std::uint8_t>(qBlue(line[x]));
      }
    }
    if (origWidth) *origWidth = orig.width();
    if (origHeight) *origHeight = orig.height();
    return true;
  }
};

}  // namespace

std::unique_ptr<PictureDecoder> MakeQtPictureDecoder() {
  return std::make_unique<QtPictureDecoder>();
}

}  // namespace kelvor
