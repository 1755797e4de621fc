// MediaInfoLib behind MediaProperties.

#include "compare/media_info.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <MediaInfo/MediaInfo.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "compare/picture_decoder.h"
#include "data/file_system.h"

namespace kelvor {

namespace {

// MediaInfo's texts are wide; its numbers are plain ASCII.
std::string Narrow(const MediaInfoLib::String& w) {
  std::string s;
  s.reserve(w.size());
  for (wchar_t c : w) s += (c >= 0 && c < 128) ? static_cast<char>(c) : '?';
  return s;
}

bool ToNumber(std::string_view item, double* out) {
  while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
  while (!item.empty() && (item.back() == ' ' || item.back() == '\r' || item.back() == '\n'))
    item.remove_suffix(1);
  if (item.empty()) {
    *out = 0;
    return true;
  }
  std::string s(item);
  char* end = nullptr;
  *out = std::strtod(s.c_str(), &end);
  return end == s.c_str() + s.size() && std::isfinite(*out);
}

class MediaInfoProperties final : public MediaProperties {
 public:
  MediaInfoProperties() : pictures_(MakePictureDecoder()) {}

  bool GetMP3MediaInfo(const std::string& path, AudioProperties* out,
                       std::string* errorText) override {
    *out = {};
    // Through the file-system layer: never waits on a FIFO, reaches deep
    // paths, and insists on a regular file.
    ReadFile file;
    if (!file.Open(path, true, errorText)) return false;
    const auto size = static_cast<ZenLib::int64u>(file.Stat().st_size);
    MediaInfoLib::MediaInfo mi;
    mi.Option(L"Internet", L"No");
    mi.Open_Buffer_Init(size, 0);
    std::vector<ZenLib::int8u> buf(64 * 1024);
    bool readError = false;
    std::int64_t offset = 0;
    for (;;) {
      const std::int64_t got = file.ReadAt(buf.data(), buf.size(), offset, errorText);
      if (got < 0) {
        readError = true;
        break;
      }
      if (got == 0) break;
      offset += got;
      const std::size_t status = mi.Open_Buffer_Continue(buf.data(), static_cast<std::size_t>(got));
      if (status & 0x08) break;  // finished
      const ZenLib::int64u to = mi.Open_Buffer_Continue_GoTo_Get();
      if (to != static_cast<ZenLib::int64u>(-1)) {
        offset = static_cast<std::int64_t>(to);
        mi.Open_Buffer_Init(size, to);
      }
    }
    file.Close();
    mi.Open_Buffer_Finalize();
    if (readError) return false;
    mi.Option(L"Inform", L"Audio;%Duration%,%BitRate%,%SamplingRate%");
    const std::string answer = Narrow(mi.Inform());
    mi.Close();
    if (!ParseAudioInform(answer, out)) {
      *errorText = "unexpected media information '" + answer + "'";
      return false;
    }
    return true;
  }

  bool GetPictureDimension(const std::string& path, int* width, int* height,
                           std::string* errorText) override {
    return pictures_->GetPictureDimension(path, width, height, errorText);
  }

 private:
  std::unique_ptr<PictureDecoder> pictures_;
};

}  // namespace

bool ParseAudioInform(std::string_view answer, AudioProperties* out) {
  *out = {};
  if (answer.empty()) answer = "0,0,0";
  double v[3] = {0, 0, 0};
  for (int i = 0; i < 3; ++i) {
    const std::size_t comma = answer.find(',');
    if (i < 2 && comma == std::string_view::npos) return false;
    if (!ToNumber(answer.substr(0, i < 2 ? comma : std::string_view::npos), &v[i])) return false;
    if (i < 2) answer.remove_prefix(comma + 1);
  }
  out->durationSeconds = static_cast<std::int32_t>(std::lround(v[0] / 1000.0));
  out->bitRate = v[1];
  out->samplingRate = v[2];
  return true;
}

std::unique_ptr<MediaProperties> MakeMediaProperties() {
  return std::make_unique<MediaInfoProperties>();
}

}  // namespace kelvor
