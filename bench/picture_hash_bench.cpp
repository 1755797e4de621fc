// Speed of reading a picture and making its pHash, against libjpeg-turbo's
// own reduced decode.
//
// Makes N JPEGs (default 50) of 2048 x 1600 pixels (3.3 megapixels) with
// ImageMagick in a temporary folder (or uses the *.jpg of a given folder),
// then alternates three rounds of: every file read as the similar-pictures
// search reads it (ProbePicture: reduced decode, size, 16 x 16 pHash), and
// every file through "djpeg -scale 1/8 -grayscale" (one process a file,
// output thrown away). Prints the rate of each and the ratio.
// Not part of the tests.
//
//   kelvor_picture_hash_bench [N] [folder]

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "compare/picture_decoder.h"
#include "compare/picture_hash.h"
#include "compare/similar_pictures.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

bool Run(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

double Seconds(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

}  // namespace

int main(int argc, char** argv) {
  int count = argc > 1 ? std::atoi(argv[1]) : 50;
  fs::path folder = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path() / "kelvor_pic_bench";
  std::error_code ec;
  fs::create_directories(folder, ec);
  std::vector<std::string> files;
  for (const auto& e : fs::directory_iterator(folder, ec)) {
    if (e.path().extension() == ".jpg") files.push_back(e.path().string());
  }
  if (static_cast<int>(files.size()) < count) {
    std::printf("making %d JPEGs of 2048 x 1600 in %s ...\n", count, folder.c_str());
    std::string base = (folder / "base.png").string();
    if (!Run({"convert", "-size", "2048x1600", "-seed", "1", "plasma:fractal", base})) {
      std::fprintf(stderr, "convert failed (package imagemagick)\n");
      return 1;
    }
    files.clear();
    for (int i = 0; i < count; ++i) {
      std::string out = (folder / ("p" + std::to_string(i) + ".jpg")).string();
      std::string roll = "+" + std::to_string(i * 37) + "+" + std::to_string(i * 11);
      if (!Run({"convert", base, "-roll", roll, "-modulate", std::to_string(80 + i % 40),
                "-quality", "90", out}))
        return 1;
      files.push_back(out);
    }
  }
  files.resize(count);

  // The search's own reading: header, reduced decode and pHash of form 0.
  kelvor::PictureHashRequest request;
  request.algo = kelvor::PicHashAlgo::kPerceptual;
  request.side = 16;
  double ours = 0, theirs = 0;
  for (int round = 0; round < 3; ++round) {
    auto t0 = Clock::now();
    for (const std::string& f : files) {
      const kelvor::PictureProbe p = kelvor::ProbePicture(f, request);
      if (!p.hashed) {
        std::fprintf(stderr, "%s: %s\n", f.c_str(), p.hashError.c_str());
        return 1;
      }
    }
    double a = Seconds(t0);
    t0 = Clock::now();
    for (const std::string& f : files) {
      if (!Run({"djpeg", "-scale", "1/8", "-grayscale", "-outfile", "/dev/null", f})) {
        std::fprintf(stderr, "djpeg failed (package libjpeg-turbo-progs)\n");
        return 1;
      }
    }
    double b = Seconds(t0);
    std::printf("round %d: decoder+pHash %.1f files/s, djpeg 1/8 grey %.1f files/s\n", round + 1,
                files.size() / a, files.size() / b);
    ours += a;
    theirs += b;
  }
  std::printf("total: decoder+pHash %.1f files/s, djpeg %.1f files/s, ratio (ours/djpeg) %.2f\n",
              3 * files.size() / ours, 3 * files.size() / theirs, theirs / ours);
  return 0;
}
