// The lumivex program run as a user runs it: as a subprocess, reading its output and
// exit status.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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
                      "' --size 320x240 --direction left --jitter 1 --noise 1 --seed 3");
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

}  // namespace
