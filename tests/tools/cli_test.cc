// The lumivex program run as a user runs it: as a subprocess, reading its output and
// exit status.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/io/image_files.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int status = -1;
  std::string out;  // stdout and stderr together
};

Outcome Lumivex(const std::string& args, const std::string& stdin_from = "") {
  std::string cmd = std::string("'") + LUMIVEX_CLI + "' " + args;
  if (!stdin_from.empty()) cmd = stdin_from + " | " + cmd;
  cmd += " 2>&1";
  Outcome r;
  std::FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof(buf), p)) > 0;) r.out.append(buf, n);
  const int raw = pclose(p);
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return r;
}

class Cli : public testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        fs::temp_directory_path() / ("lumivex-cli-" + std::to_string(getpid()) + "-" +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    photo_ = LUMIVEX_PHOTO_JPG;
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  bool HavePhoto() const { return fs::exists(photo_); }
  fs::path dir_;
  std::string photo_;
};

TEST_F(Cli, DemoRunsOutOfTheBox) {
  const Outcome r = Lumivex("demo -o '" + Path("demo") + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("sweep complete (180 degrees)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("panorama         1920 x 464"), std::string::npos) << r.out;
  EXPECT_GT(fs::file_size(Path("demo/panorama.jpg")), 100000u);
  EXPECT_GT(fs::file_size(Path("demo/preview.png")), 1000u);
  EXPECT_TRUE(fs::exists(Path("demo/sweep.csv")));
}

TEST_F(Cli, SimulateThenStitchEveryInputKind) {
  if (!HavePhoto()) GTEST_SKIP() << "no photograph";
  const std::string y4m = Path("sweep.y4m");
  Outcome r = Lumivex("simulate '" + photo_ + "' -o '" + y4m +
                      "' --size 320x240 --direction left --seed 3");
  ASSERT_EQ(r.status, 0) << r.out;
  ASSERT_TRUE(fs::exists(Path("sweep.csv")));
  // From the file, with debug output.
  r = Lumivex("stitch '" + y4m + "' -o '" + Path("pano.png") + "' --debug-dir '" + Path("debug") +
              "'");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("right to left"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("sweep complete"), std::string::npos) << r.out;
  EXPECT_GT(fs::file_size(Path("pano.png")), 10000u);
  EXPECT_TRUE(fs::exists(Path("debug/frames.csv")));
  EXPECT_TRUE(fs::exists(Path("debug/panorama-seams.png")));
  // From a pipe, fed as I420.
  r = Lumivex("stitch - -o '" + Path("pipe.jpg") + "' --format i420 --quiet", "cat '" + y4m + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  // Raw NV21 of the same frames (converted by a first stitch? no: cut by simulate's Y4M).
  std::ifstream in(y4m, std::ios::binary);
  std::ofstream raw(Path("frames.nv21"), std::ios::binary);
  std::string line;
  std::getline(in, line);  // header
  std::string frame(320 * 240 * 3 / 2, '\0');
  while (std::getline(in, line) &&
         in.read(frame.data(), static_cast<std::streamsize>(frame.size()))) {
    // I420 to NV21: interleave V and U.
    std::string nv21 = frame.substr(0, 320 * 240);
    const std::size_t c = 160 * 120;
    for (std::size_t i = 0; i < c; ++i) {
      nv21 += frame[320 * 240 + c + i];
      nv21 += frame[320 * 240 + i];
    }
    raw << nv21;
  }
  raw.close();
  r = Lumivex("stitch '" + Path("frames.nv21") + "' --size 320x240 -o '" + Path("raw.jpg") +
              "' --quiet");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("sweep complete"), std::string::npos) << r.out;
}

// The engine scored on two photographs: the test photograph and a panorama the demo
// stitched from it (the data folder holds one photograph).
TEST_F(Cli, EvalScoresCompletionAndTracking) {
  if (!HavePhoto()) GTEST_SKIP() << "no photograph";
  ASSERT_EQ(Lumivex("demo -o '" + Path("demo") + "'").status, 0);
  const Outcome r = Lumivex("eval '" + photo_ + "' '" + Path("demo/panorama.jpg") +
                            "' --sizes 640x480 --directions right,left --cases hand-held "
                            "--profiles quality --report-dir '" +
                            Path("report") + "' --json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(fs::exists(Path("report/report.md")));
  EXPECT_TRUE(fs::exists(Path("report/scenario-4.svg")));
  int scenarios = 0;
  for (std::size_t at = r.out.find("{\"photo\""); at != std::string::npos;
       at = r.out.find("{\"photo\"", at + 1)) {
    const std::string entry = r.out.substr(at, r.out.find('}', at) - at);
    ++scenarios;
    EXPECT_NE(entry.find("\"complete\": true"), std::string::npos) << entry;
    const double mean = std::atof(entry.c_str() + entry.find("\"track_mean\": ") + 14);
    EXPECT_LT(mean, 10.0) << entry;
  }
  EXPECT_EQ(scenarios, 4);

  // The demo's small preview would have to be enlarged far beyond a camera's sharpness: the
  // scenario is flagged, not scored on a blur.
  const Outcome small = Lumivex("eval '" + Path("demo/preview.png") +
                                "' --sizes 640x480 --directions right --cases hand-held "
                                "--profiles quality --report-dir '" +
                                Path("small") + "' --json");
  ASSERT_EQ(small.status, 0) << small.out;
  EXPECT_NE(small.out.find("\"photo_too_small\": true"), std::string::npos) << small.out;
  EXPECT_NE(small.out.find("photo too small (x"), std::string::npos) << small.out;

  // The corrections side by side: every sweep the quality profile exists for completes.
  const Outcome both = Lumivex("eval '" + photo_ + "' --cases corrections --report-dir '" +
                               Path("both") + "' --json");
  ASSERT_EQ(both.status, 0) << both.out;
  int quality = 0;
  for (std::size_t at = both.out.find("\"profile\": \"quality\""); at != std::string::npos;
       at = both.out.find("\"profile\": \"quality\"", at + 1)) {
    ++quality;
    const std::string entry = both.out.substr(at, both.out.find('}', at) - at);
    EXPECT_NE(entry.find("\"complete\": true"), std::string::npos) << entry;
  }
  EXPECT_EQ(quality, 6);
  std::ifstream md(Path("both/report.md"));
  const std::string report((std::istreambuf_iterator<char>(md)), std::istreambuf_iterator<char>());
  EXPECT_NE(report.find("| result (exact) | result (quality) |"), std::string::npos);
}

std::uint32_t Crc32(const std::string& bytes) {
  std::uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1)));
  }
  return ~c;
}

std::string BigEndian(std::uint32_t v) {
  return std::string{static_cast<char>(v >> 24), static_cast<char>(v >> 16),
                     static_cast<char>(v >> 8), static_cast<char>(v)};
}

// Files whose headers promise far more than they hold: refused (or cut short) with one
// line, without allocating what the header asks for.
TEST_F(Cli, HostileHeadersCostNothing) {
  {
    std::ofstream y(Path("huge.y4m"), std::ios::binary);
    y << "YUV4MPEG2 W8192 H8192 C420jpeg\nFRAME\n" << std::string(1000, 'z');
  }
  {
    std::ofstream y(Path("enormous.y4m"), std::ios::binary);
    y << "YUV4MPEG2 W16384 H16384 C420jpeg\nFRAME\n" << std::string(1000, 'z');
  }
  {
    std::ofstream y(Path("tiny.y4m"), std::ios::binary);
    y << "YUV4MPEG2 W64 H48 C420jpeg\nFRAME\n" << std::string(64 * 48 * 3 / 2, 'z');
  }
  {
    // A 69-byte PNG that declares 1000000 x 1000000 RGB pixels.
    const std::string ihdr =
        "IHDR" + BigEndian(1000000) + BigEndian(1000000) + "\x08\x02" + std::string(3, '\0');
    std::ofstream png(Path("huge.png"), std::ios::binary);
    png << "\x89PNG\r\n\x1a\n"
        << BigEndian(13) << ihdr << BigEndian(Crc32(ihdr)) << BigEndian(0) << "IEND"
        << BigEndian(Crc32("IEND"));
  }
  fs::create_directories(Path("pictures"));
  fs::copy_file(Path("huge.png"), Path("pictures/1.png"));
  if (HavePhoto()) {
    // The photograph with its frame header rewritten to 65500 x 65500.
    std::ifstream in(photo_, std::ios::binary);
    std::string jpeg((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (std::size_t i = 2; i + 9 < jpeg.size(); ++i) {
      const auto m = static_cast<unsigned char>(jpeg[i + 1]);
      if (jpeg[i] == '\xFF' && (m == 0xC0 || m == 0xC1 || m == 0xC2)) {
        jpeg[i + 5] = jpeg[i + 7] = '\xFF';
        jpeg[i + 6] = jpeg[i + 8] = '\xDC';
        break;
      }
    }
    std::ofstream(Path("pictures/2.jpg"), std::ios::binary) << jpeg.substr(0, 1500);
    fs::create_directories(Path("jpeg"));
    std::ofstream(Path("jpeg/1.jpg"), std::ios::binary) << jpeg.substr(0, 1500);
  }
  const std::string out = " -o '" + Path("p.jpg") + "'";
  for (const std::string input : {"huge.y4m", "enormous.y4m", "tiny.y4m", "pictures", "jpeg"}) {
    if (!fs::exists(Path(input))) continue;
    const Outcome r = Lumivex("stitch '" + Path(input) + "'" + out);
    EXPECT_EQ(r.status, 2) << input << "\n" << r.out;
    EXPECT_EQ(r.out.rfind("lumivex: ", 0), 0u) << r.out;
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << "one line: " << r.out;
    if (input == "tiny.y4m") {
      EXPECT_NE(r.out.find("96x32"), std::string::npos) << r.out;
    }
  }
  // Frames the engine cannot sweep are refused before it starts, naming what works.
  std::ofstream(Path("raw-small.bin"), std::ios::binary) << std::string(64 * 48 * 3, 'r');
  const Outcome raw = Lumivex("stitch '" + Path("raw-small.bin") + "' --size 64x48" + out);
  EXPECT_EQ(raw.status, 2) << raw.out;
  EXPECT_NE(raw.out.find("96x32"), std::string::npos) << raw.out;
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  EXPECT_LT(usage.ru_maxrss, 300 * 1024) << "a child used " << usage.ru_maxrss / 1024 << " MB";
}

TEST_F(Cli, BadInputGetsOneLineAndAnExitStatus) {
  struct Case {
    std::string args;
    int status;
  };
  {
    std::ofstream t(Path("truncated.y4m"), std::ios::binary);
    t << "YUV4MPEG2 W320 H240 F30:1 Ip C420jpeg\nFRAME\n" << std::string(1000, 'x');
  }
  { std::ofstream(Path("odd.y4m")) << "YUV4MPEG2 W321 H240 C420jpeg\n"; }
  { std::ofstream(Path("c444.y4m")) << "YUV4MPEG2 W320 H240 C444\n"; }
  { std::ofstream(Path("not-a-photo.jpg")) << "hello"; }
  { std::ofstream(Path("raw.bin")) << std::string(5000, 'y'); }
  const Case cases[] = {
      {"", 1},
      {"frobnicate", 1},
      {"stitch", 1},
      {"stitch x.y4m", 1},
      {"stitch x.y4m -o out.bmp", 1},
      {"stitch --bogus x -o p.jpg", 1},
      {"stitch '" + Path("missing.y4m") + "' -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("truncated.y4m") + "' -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("odd.y4m") + "' -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("c444.y4m") + "' -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("raw.bin") + "' --size 641x480 -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("raw.bin") + "' --size 320x240 -o '" + Path("p.jpg") + "'", 2},
      {"stitch '" + Path("raw.bin") + "' -o '" + Path("p.jpg") + "'", 2},
      {"simulate '" + Path("missing.jpg") + "' -o '" + Path("s.y4m") + "'", 2},
      {"simulate '" + Path("not-a-photo.jpg") + "' -o '" + Path("s.y4m") + "'", 2},
      {"simulate x.jpg -o s.y4m --size 321x240", 1},
      {"simulate x.jpg -o s.y4m --direction sideways", 1},
      {"simulate x.jpg -o s.y4m --speed fast", 1},
      {"eval", 1},
      {"eval '" + Path("missing.jpg") + "'", 2},
  };
  for (const Case& c : cases) {
    const Outcome r = Lumivex(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.out;
    EXPECT_LT(r.status, 100) << "crashed: " << c.args;
    if (c.status == 2) {
      EXPECT_EQ(r.out.rfind("lumivex: ", 0), 0u) << r.out;
      EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << "one line: " << r.out;
    }
  }
  EXPECT_EQ(Lumivex("--help").status, 0);
  EXPECT_EQ(Lumivex("stitch --help").status, 0);
  const Outcome v = Lumivex("--version");
  EXPECT_EQ(v.status, 0);
  EXPECT_NE(v.out.find("Velqor_Lumivex_2.3.12019.61"), std::string::npos);
}

// What a clip that went through a video encoder looks like to the program.
TEST_F(Cli, StitchesAnFfmpegPipe) {
  if (!HavePhoto()) GTEST_SKIP() << "no photograph";
  if (std::system("ffmpeg -version > /dev/null 2>&1") != 0) GTEST_SKIP() << "ffmpeg not installed";
  ASSERT_EQ(
      Lumivex("simulate '" + photo_ + "' -o '" + Path("clip.y4m") + "' --size 320x240").status, 0);
  ASSERT_EQ(std::system(("ffmpeg -loglevel error -y -i '" + Path("clip.y4m") +
                         "' -c:v libx264 -crf 16 -pix_fmt yuv420p '" + Path("clip.mp4") + "'")
                            .c_str()),
            0);
  const Outcome r =
      Lumivex("stitch - -o '" + Path("clip.jpg") + "' --quiet",
              "ffmpeg -loglevel error -i '" + Path("clip.mp4") + "' -f yuv4mpegpipe -");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("sweep complete"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("Broken pipe"), std::string::npos) << r.out;
}

// Luma percentiles (1, 5, 50, 95, 99 %) of a written panorama, BT.601.
std::vector<int> LumaPercentiles(const std::string& path) {
  lumivex::tools::Rgb rgb;
  std::string error;
  if (!lumivex::tools::ReadImage(path, &rgb, &error)) return {};
  std::vector<int> luma;
  for (std::size_t i = 0; i + 2 < rgb.pixels.size(); i += 3)
    luma.push_back((299 * rgb.pixels[i] + 587 * rgb.pixels[i + 1] + 114 * rgb.pixels[i + 2]) /
                   1000);
  std::sort(luma.begin(), luma.end());
  std::vector<int> out;
  for (const double p : {0.01, 0.05, 0.5, 0.95, 0.99})
    out.push_back(luma[static_cast<std::size_t>(p * static_cast<double>(luma.size() - 1))]);
  return out;
}

// A JSON summary's integer field (the program's own flat output).
int JsonInt(const std::string& json, const std::string& key) {
  const std::size_t at = json.find("\"" + key + "\": ");
  return at == std::string::npos ? -1 : std::atoi(json.c_str() + at + key.size() + 4);
}

class CliVideo : public Cli {
 protected:
  void SetUp() override {
    Cli::SetUp();
    if (!HavePhoto()) GTEST_SKIP() << "no photograph";
    if (std::system("ffmpeg -version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no ffmpeg";
    // Enough frames for a 360-degree sweep, full range as a phone delivers them.
    ASSERT_EQ(Lumivex("simulate '" + photo_ + "' -o '" + Path("s.y4m") +
                      "' --model slide --size 320x240 --frames 300 --steady")
                  .status,
              0);
  }
  void Ffmpeg(const std::string& args) {
    ASSERT_EQ(std::system(("ffmpeg -loglevel error -y " + args).c_str()), 0) << args;
  }
};

// Phone clips are limited range with the range in the stream: the panorama's luma must be
// the frames' luma (the same percentiles as stitched from the full-range originals), for
// 8- and 10-bit H.264 and a clip whose rotation metadata says it is portrait.
TEST_F(CliVideo, ReadsClipsWithTheirOwnRangeAndRotation) {
  const std::string in = "-i '" + Path("s.y4m") + "' ";
  Ffmpeg(in + "-vf scale=in_range=pc:out_range=tv -color_range tv -c:v libx264 -crf 12 '" +
         Path("clip.mp4") + "'");
  Ffmpeg(in + "-vf scale=in_range=pc:out_range=tv -color_range tv -c:v libx264 -crf 12 " +
         "-pix_fmt yuv420p10le '" + Path("ten.mp4") + "'");
  Ffmpeg("-i '" + Path("clip.mp4") + "' -c copy -metadata:s:v:0 rotate=90 '" +
         Path("portrait.mp4") + "'");
  ASSERT_EQ(Lumivex("stitch '" + Path("s.y4m") + "' -o '" + Path("orig.png") + "' --quiet").status,
            0);
  const std::vector<int> want = LumaPercentiles(Path("orig.png"));
  ASSERT_EQ(want.size(), 5u);
  for (const std::string clip : {"clip.mp4", "ten.mp4"}) {
    const Outcome r =
        Lumivex("stitch '" + Path(clip) + "' -o '" + Path(clip + ".png") + "' --quiet");
    ASSERT_EQ(r.status, 0) << clip << "\n" << r.out;
    const std::vector<int> got = LumaPercentiles(Path(clip + ".png"));
    ASSERT_EQ(got.size(), 5u);
    for (int i = 0; i < 5; ++i) EXPECT_NEAR(got[i], want[i], 3) << clip << " percentile " << i;
  }
  const Outcome turned =
      Lumivex("stitch '" + Path("portrait.mp4") + "' -o '" + Path("p.png") + "' --json");
  ASSERT_EQ(turned.status, 0) << turned.out;
  // Upright as ffmpeg turns it: the left-to-right sweep now runs upwards.
  EXPECT_NE(turned.out.find("\"direction\": \"bottom to top\""), std::string::npos) << turned.out;
  EXPECT_NE(turned.out.find("\"panorama\": [240, "), std::string::npos) << turned.out;
}

// The angle sets how much of a long clip is used; the rest is counted, not hidden.
TEST_F(CliVideo, AngleDecidesHowMuchOfTheSweepIsUsed) {
  const Outcome half = Lumivex("stitch '" + Path("s.y4m") + "' -o '" + Path("a.png") + "' --json");
  const Outcome full =
      Lumivex("stitch '" + Path("s.y4m") + "' -o '" + Path("b.png") + "' --json --angle=360");
  ASSERT_EQ(half.status, 0) << half.out;
  ASSERT_EQ(full.status, 0) << full.out;
  EXPECT_EQ(half.out.find('{'), 0u) << "stdout is the JSON alone: " << half.out;
  EXPECT_EQ(JsonInt(half.out, "max_angle"), 180);
  EXPECT_EQ(JsonInt(full.out, "max_angle"), 360);
  EXPECT_GT(JsonInt(half.out, "frames_unused"), JsonInt(full.out, "frames_unused"));
  const std::size_t h = half.out.find("\"panorama\": ["), f = full.out.find("\"panorama\": [");
  ASSERT_NE(h, std::string::npos);
  ASSERT_NE(f, std::string::npos);
  EXPECT_EQ(std::atoi(full.out.c_str() + f + 13), 2 * std::atoi(half.out.c_str() + h + 13));
  const Outcome text = Lumivex("stitch '" + Path("s.y4m") + "' -o '" + Path("c.png") + "' --quiet");
  EXPECT_NE(text.out.find("--angle 360"), std::string::npos) << text.out;
}

// Numbered pictures in numeric order, raw I420 and NV21 from a file or stdin, and a stream
// cut in the middle of a frame: each gives the panorama the whole frames give.
TEST_F(CliVideo, ForgivingInputs) {
  fs::create_directories(Path("frames"));
  Ffmpeg("-i '" + Path("s.y4m") + "' -frames:v 110 '" + Path("frames") + "/%d.png'");
  Outcome r = Lumivex("stitch '" + Path("frames") + "' -o '" + Path("f.png") + "' --json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("\"ended\": \"complete\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("left to right"), std::string::npos) << r.out;

  // Raw frames carry no range: these keep the full range of the originals.
  const std::string keep = "-vf scale=in_range=pc:out_range=pc -f rawvideo -pix_fmt ";
  Ffmpeg("-i '" + Path("s.y4m") + "' " + keep + "yuv420p '" + Path("s.i420") + "'");
  Ffmpeg("-i '" + Path("s.y4m") + "' " + keep + "nv21 '" + Path("s.nv21") + "'");
  ASSERT_EQ(Lumivex("stitch '" + Path("s.y4m") + "' -o '" + Path("y.png") + "' --quiet").status, 0);
  r = Lumivex("stitch '" + Path("s.i420") + "' --size=320x240 --format i420 -o '" + Path("i.png") +
              "' --quiet");
  ASSERT_EQ(r.status, 0) << r.out;
  r = Lumivex("stitch - --size 320x240 -o '" + Path("n.png") + "' --quiet",
              "cat '" + Path("s.nv21") + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  lumivex::tools::Rgb want, got;
  std::string error;
  ASSERT_TRUE(lumivex::tools::ReadImage(Path("y.png"), &want, &error)) << error;
  for (const std::string name : {"i.png", "n.png"}) {
    ASSERT_TRUE(lumivex::tools::ReadImage(Path(name), &got, &error)) << error;
    ASSERT_EQ(got.pixels.size(), want.pixels.size()) << name;
    double diff = 0;
    for (std::size_t i = 0; i < got.pixels.size(); ++i)
      diff += std::abs(int{got.pixels[i]} - int{want.pixels[i]});
    EXPECT_LT(diff / static_cast<double>(got.pixels.size()), 2.0) << name << ": colours differ";
  }

  // Forty whole frames and part of the next.
  const std::size_t frame = 6 + 320 * 240 * 3 / 2;
  std::ifstream in(Path("s.y4m"), std::ios::binary);
  std::string header;
  std::getline(in, header);
  std::string body(40 * frame + 5000, '\0');
  in.read(body.data(), static_cast<std::streamsize>(body.size()));
  std::ofstream(Path("cut.y4m"), std::ios::binary) << header << "\n" << body;
  r = Lumivex("stitch '" + Path("cut.y4m") + "' -o '" + Path("cut.png") + "' --quiet");
  EXPECT_TRUE(r.status == 0 || r.status == 8) << r.out;
  EXPECT_NE(r.out.find("lumivex: warning: "), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("frames read      40"), std::string::npos) << r.out;
  EXPECT_TRUE(fs::exists(Path("cut.png")));
}

// Conventional options: --opt=value, unknown and malformed ones refused in one line, an
// existing output kept unless -y, and JPEG quality.
TEST_F(CliVideo, ConventionalOptions) {
  const std::string in = "stitch '" + Path("s.y4m") + "' --quiet -o ";
  ASSERT_EQ(Lumivex(in + "'" + Path("q.jpg") + "' --quality=40").status, 0);
  ASSERT_EQ(Lumivex(in + "'" + Path("r.jpg") + "' --quality 98").status, 0);
  EXPECT_LT(fs::file_size(Path("q.jpg")) * 2, fs::file_size(Path("r.jpg")));
  const auto before = fs::file_size(Path("q.jpg"));
  struct Case {
    std::string args;
    int status;
  };
  const Case cases[] = {
      {in + "'" + Path("q.jpg") + "'", 4},                        // exists, not a terminal
      {in + "'" + Path("q.jpg") + "' -n", 4},                     // kept
      {in + "'" + Path("x.jpg") + "' --bogus", 1},                // unknown option
      {in + "'" + Path("x.jpg") + "' --json=yes", 1},             // a flag given a value
      {in + "'" + Path("x.jpg") + "' --quality 0", 1},            // out of range
      {in + "'" + Path("x.jpg") + "' --angle 1000", 1},           // out of range
      {"stitch '" + Path("s.y4m") + "' --quiet -o", 1},           // missing value
      {"stitch '" + photo_ + "' -o '" + Path("x.jpg") + "'", 2},  // one picture
  };
  for (const Case& c : cases) {
    const Outcome r = Lumivex(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.out;
    EXPECT_EQ(r.out.rfind("lumivex: ", 0), 0u) << r.out;
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << "one line: " << r.out;
  }
  EXPECT_EQ(fs::file_size(Path("q.jpg")), before);
  ASSERT_EQ(Lumivex(in + "'" + Path("q.jpg") + "' -y --quality=98").status, 0);
  EXPECT_GT(fs::file_size(Path("q.jpg")), before);
  // A file ffmpeg cannot read names the kinds of input that work.
  std::ofstream(Path("junk.bin"), std::ios::binary) << std::string(5000, 'j');
  const Outcome junk = Lumivex("stitch '" + Path("junk.bin") + "' -o '" + Path("x.jpg") + "'");
  EXPECT_EQ(junk.status, 2) << junk.out;
  EXPECT_NE(junk.out.find("--size WxH"), std::string::npos) << junk.out;
}

}  // namespace

namespace {

// Runs `lumivex ARGS` and sends SIGINT after `delay_ms` (never, when negative); returns
// the exit status as a shell reports it and the run's duration.
std::pair<int, double> RunInterrupted(const std::vector<std::string>& args, int delay_ms) {
  std::vector<char*> argv{const_cast<char*>(LUMIVEX_CLI)};
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const auto t0 = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid == 0) {
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, STDOUT_FILENO);
    dup2(devnull, STDERR_FILENO);
    execv(LUMIVEX_CLI, argv.data());
    _exit(127);
  }
  if (delay_ms >= 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    kill(pid, SIGINT);
  }
  int raw = 0;
  waitpid(pid, &raw, 0);
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), ms};
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

// Ctrl-C at any moment (reading, stitching, writing) leaves the existing output as it was,
// or the new one whole: never a partial file, never a leftover temporary one.
TEST_F(Cli, InterruptsNeverDamageTheOutput) {
  if (!HavePhoto()) GTEST_SKIP() << "no photograph";
  const std::string sweep = Path("sweep.y4m"), out = Path("pano.png");
  ASSERT_EQ(Lumivex("simulate '" + photo_ + "' -o '" + sweep + "' --model slide --size 1280x720 -y")
                .status,
            0);
  const std::vector<std::string> args{"stitch", sweep, "-o", out, "-y", "--quiet"};
  const auto [status, whole_ms] = RunInterrupted(args, -1);
  ASSERT_EQ(status, 0);
  const std::string good = Slurp(out);
  ASSERT_GT(good.size(), 1000u);
  std::ofstream(out, std::ios::binary) << "an older panorama";
  int interrupted = 0;
  for (int i = 0; i < 8; ++i) {
    const int delay = static_cast<int>(whole_ms * i / 8);
    const auto [code, ms] = RunInterrupted(args, delay);
    const std::string now = Slurp(out);
    if (code == 130) {
      ++interrupted;
      EXPECT_EQ(now, "an older panorama") << "interrupted after " << delay << " ms";
    } else {
      EXPECT_EQ(code, 0);
      EXPECT_EQ(now, good) << "finished after " << delay << " ms";
      std::ofstream(out, std::ios::binary) << "an older panorama";
    }
    std::size_t files = 0;
    for (const auto& e : fs::directory_iterator(dir_)) files += e.is_regular_file();
    EXPECT_EQ(files, 3u) << "a temporary file was left after " << delay << " ms";  // sweep, its csv, pano
  }
  EXPECT_GE(interrupted, 4) << "too few runs were interrupted to cover read, stitch and write";
}

// One too-fast frame ends an exact capture with status 7; the quality profile goes on.
TEST_F(Cli, TooFastEndsOnlyTheExactProfile) {
  if (!HavePhoto()) GTEST_SKIP() << "no photograph";
  const std::string sweep = Path("fast.y4m");
  ASSERT_EQ(Lumivex("simulate '" + photo_ + "' -o '" + sweep +
                    "' --model slide --size 320x240 --too-fast-at 20 -y")
                .status,
            0);
  const Outcome exact = Lumivex("stitch '" + sweep + "' -o '" + Path("e.jpg") +
                                "' --profile exact -y --quiet");
  EXPECT_EQ(exact.status, 7) << exact.out;
  const Outcome quality = Lumivex("stitch '" + sweep + "' -o '" + Path("q.jpg") + "' -y --quiet");
  EXPECT_EQ(quality.status, 0) << quality.out;
}
