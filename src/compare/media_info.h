#pragma once
// Properties of media files for the result's rows: duration, bit rate and
// sampling rate of audio (through MediaInfoLib), width and height of
// pictures (through the picture decoder). Nothing outside this interface
// sees MediaInfoLib.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kelvor {

struct AudioProperties {
  std::int32_t durationSeconds = 0;  // rounded to whole seconds
  double bitRate = 0;                // bits per second
  double samplingRate = 0;           // samples per second
};

// The three numbers of MediaInfo's answer to "Audio;%Duration%,%BitRate%,
// %SamplingRate%" (duration in milliseconds); an empty answer stands for
// "0,0,0". False when the answer is not of that form.
bool ParseAudioInform(std::string_view answer, AudioProperties* out);

class MediaProperties {
 public:
  virtual ~MediaProperties() = default;
  // GetMP3MediaInfo: false with *errorText when the file cannot be read.
  virtual bool GetMP3MediaInfo(const std::string& path, AudioProperties* out,
                               std::string* errorText) = 0;
  // Width and height of a picture of the direct or the plug-in list.
  virtual bool GetPictureDimension(const std::string& path, int* width, int* height,
                                   std::string* errorText) = 0;
};

// MediaInfoLib with the option "Internet" set to "No"; the file is read
// through this program's own file handle, so that any file name works.
std::unique_ptr<MediaProperties> MakeMediaProperties();

}  // namespace kelvor
