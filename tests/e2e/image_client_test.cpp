// The command-line client, as a user meets it.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "tests/e2e/installed_system.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class ImageClientTest : public testing::Test {
 protected:
  void SetUp() override {
    JpegRecipe recipe;
    recipe.width = 1000;
    recipe.height = 750;
    recipe.quality = 95;
    ASSERT_TRUE(writeBytes(dir / "in.jpg", makeJpeg(recipe)));
  }

  // Runs the client in the test's folder; stderr goes to errors().
  CommandOutput client(const std::string& words) {
    return runCommand("cd " + dir.path() + " && DBUS_SESSION_BUS_ADDRESS='" +
                      system.bus().address() + "' " + installed("bin/tarn-transcode") + " " +
                      words + " 2>errors");
  }
  std::string errors() { return readFile(dir / "errors"); }

  InstalledSystem system;
  const TempDir& dir = system.files();
};

TEST_F(ImageClientTest, ShrinksAPictureByRelativePaths) {
  const auto result = client("resize-image in.jpg made/small.jpg --size 30k");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, StartsWith((dir / "made/small.jpg") + ": "));
  EXPECT_LE(fs::file_size(dir / "made/small.jpg"), 30000u);
  EXPECT_EQ(runCommand("identify " + (dir / "made/small.jpg") + " >/dev/null").exitCode, 0);
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ImageClientTest, CopiesAPictureThatFitsAndAsksNobody) {
  const auto result = client("resize-image in.jpg out.jpg --size 10M");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, StartsWith((dir / "out.jpg") + ": 1000 x 750, "));
  EXPECT_THAT(result.out, HasSubstr(", as it was"));
  EXPECT_EQ(readFile(dir / "in.jpg"), readFile(dir / "out.jpg"));
  EXPECT_EQ(system.daemonPid(), 0);
  const std::string bytes = std::to_string(fs::file_size(dir / "in.jpg"));
  EXPECT_THAT(client("resize-image in.jpg out.jpg --size " + bytes).out, HasSubstr(", as it was"));
}

// As telephones write them: a clip of the moment behind the picture.
TEST_F(ImageClientTest, CopiesAPictureThatFitsWithWhatIsBehindIt) {
  const std::string file = readFile(dir / "in.jpg") + std::string(
                                                          "\0\0\0\x18"
                                                          "ftypmp42",
                                                          12);
  dir.write("in.jpg", file);
  EXPECT_EQ(client("resize-image in.jpg out.jpg --size 10M").exitCode, 0) << errors();
  EXPECT_EQ(readFile(dir / "out.jpg"), file);
}

TEST_F(ImageClientTest, EncodesAPictureThatFitsAnewWhenTold) {
  const auto result = client("resize-image in.jpg out.jpg --size 10M --always");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, StartsWith((dir / "out.jpg") + ": 1008 x 752, "));
  EXPECT_NE(readFile(dir / "in.jpg"), readFile(dir / "out.jpg"));
}

// A picture that lacks its end is looked at by the service, which does not take it for a whole one.
TEST_F(ImageClientTest, CopiesNoPictureThatBreaksOff) {
  const std::string whole = readFile(dir / "in.jpg");
  dir.write("cut.jpg", whole.substr(0, whole.size() - 1000));
  EXPECT_EQ(client("resize-image cut.jpg out.jpg --size 10M").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: " + (dir / "cut.jpg") +
                          ": the picture is damaged: no whole picture came out\n");
  EXPECT_FALSE(fs::exists(dir / "out.jpg"));
}

TEST_F(ImageClientTest, PrintsNothingWhenQuiet) {
  EXPECT_THAT(client("resize-image --quiet in.jpg out.jpg --size=30k").out, IsEmpty());
}

TEST_F(ImageClientTest, RefusesToOverwriteItsInput) {
  const std::string before = readFile(dir / "in.jpg");
  fs::create_symlink("in.jpg", dir / "link.jpg");
  fs::create_hard_link(dir / "in.jpg", dir / "hard.jpg");
  for (const char* out : {"in.jpg", "./in.jpg", "link.jpg", "hard.jpg"}) {
    EXPECT_EQ(client(std::string("resize-image in.jpg ") + out + " --size 30k").exitCode, 1);
    EXPECT_THAT(errors(), HasSubstr("same file"));
  }
  EXPECT_EQ(readFile(dir / "in.jpg"), before);
}

TEST_F(ImageClientTest, RefusesWhatIsNoJpegBeforeTheServiceMeetsIt) {
  dir.write("text.jpg", "no picture");
  dir.write("empty.jpg", "");
  ASSERT_EQ(runCommand("mkfifo " + (dir / "fifo.jpg")).exitCode, 0);
  ASSERT_TRUE(system.call("getMinimalBitrate", "{}").ok);
  const pid_t daemon = system.daemonPid();
  dir.write("\xe9.jpg", readFile(dir / "in.jpg"));
  for (const char* in : {"text.jpg", "empty.jpg", "none.jpg", "fifo.jpg", ".", "\xe9.jpg"}) {
    EXPECT_EQ(client(std::string("resize-image ") + in + " out.jpg --size 30k").exitCode, 1) << in;
    EXPECT_THAT(errors(), HasSubstr("cannot read"));
  }
  EXPECT_FALSE(fs::exists(dir / "out.jpg"));
  EXPECT_EQ(system.daemonPid(), daemon);
}

TEST_F(ImageClientTest, KeepsTheOldFileWhenNothingFits) {
  dir.write("out.jpg", "old");
  for (const char* size : {"400", "1"}) {
    EXPECT_EQ(client(std::string("resize-image in.jpg out.jpg --size ") + size).exitCode, 4);
    EXPECT_EQ(errors(), "tarn-transcode: " + (dir / "in.jpg") +
                            ": the picture cannot be made to fit " + size + " B\n");
  }
  EXPECT_EQ(client("resize-image in.jpg out.jpg --size 1 --quiet").exitCode, 4);
  EXPECT_EQ(readFile(dir / "out.jpg"), "old");
  EXPECT_THAT(namesIn(dir.path()), testing::Not(testing::Contains(StartsWith("."))));
}

// The service takes an encode that broke off for a success.
TEST_F(ImageClientTest, KeepsTheOldFileWhenNoWholePictureComesOut) {
  Bytes jpeg = readBytes(dir / "in.jpg");
  const Bytes sof = {0xff, 0xc0};
  auto frame = std::search(jpeg.begin(), jpeg.end(), sof.begin(), sof.end());
  ASSERT_NE(frame, jpeg.end());
  frame[1] = 0xcb;  // a lossless frame: the header reads, the data does not
  ASSERT_TRUE(writeBytes(dir / "in.jpg", jpeg));
  dir.write("out.jpg", "old");
  EXPECT_EQ(client("resize-image in.jpg out.jpg --size 30k").exitCode, 1);
  EXPECT_THAT(errors(), HasSubstr("in.jpg as a JPEG: Unsupported JPEG process"));
  EXPECT_EQ(readFile(dir / "out.jpg"), "old");
}

TEST_F(ImageClientTest, HelpsOnStandardOutput) {
  for (const char* words : {"help", "--help", "-h"}) {
    const auto help = client(words);
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_THAT(help.out, HasSubstr("  resize-image  make a JPEG of at most SIZE bytes\n"));
    EXPECT_THAT(errors(), IsEmpty());
  }
  const std::string ofImages = client("resize-image --help").out;
  EXPECT_THAT(ofImages, StartsWith("usage: tarn-transcode resize-image IN OUT --size SIZE\n"));
  EXPECT_THAT(ofImages, HasSubstr("--always"));
  EXPECT_EQ(client("help resize-image").out, ofImages);
  EXPECT_EQ(client("resize-image in.jpg -h").out, ofImages);
  EXPECT_THAT(client("--version").out, testing::MatchesRegex("tarn-transcode [0-9.]+\n"));
}

// Two lines, the reason last: none of them scrolls away.
TEST_F(ImageClientTest, TellsWhatIsWrongWithTheWords) {
  const std::string any = "usage: tarn-transcode COMMAND ...   (--help tells more)\n";
  const std::string image =
      "usage: tarn-transcode resize-image IN OUT --size SIZE   (--help tells more)\n";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"", any, "say what to do: fit, resize-image, resize-movie, info, min-bitrate, call"},
      {"help shrink", any, "there is no command shrink"},
      {"resize-imag in.jpg", any, "there is no command resize-imag: did you mean resize-image?"},
      {"resize-image in.jpg out.jpg", image, "--size or --for is needed, such as --size 300k"},
      {"resize-image in.jpg --size 30k", image,
       "IN and OUT are needed, or FILES and --out-dir DIR"},
      {"resize-image in.jpg out.jpg --size", image, "--size needs a value"},
      {"resize-image in.jpg out.jpg --size=1k --alway", image,
       "there is no option --alway: did you mean --always?"},
      {"resize-image in.jpg out.jpg --size big", image,
       "--size: \"big\" is not a size: write 300k or 1.5M"},
      {"call resizeImage", "usage: tarn-transcode call METHOD JSON   (--help tells more)\n",
       "METHOD and JSON are needed"},
      {"min-bitrate x", "usage: tarn-transcode min-bitrate   (--help tells more)\n",
       "no other words are taken"},
  };
  for (const auto& [words, use, reason] : cases) {
    const auto result = client(words);
    EXPECT_EQ(result.exitCode, 2) << words;
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(errors(), use + "tarn-transcode: " + reason + "\n");
  }
  EXPECT_EQ(system.daemonPid(), 0);
}

// No name of a file is taken for anything else.
TEST_F(ImageClientTest, TakesFilesOfAnyName) {
  for (const char* name : {"info", "resize-image", "[a,b]", "{}", "a b.jpg", "%s"}) {
    fs::rename(dir / "in.jpg", dir / name);
    EXPECT_EQ(client("resize-image '" + std::string(name) + "' out.jpg --size 10M").exitCode, 0)
        << errors();
    fs::rename(dir / name, dir / "in.jpg");
  }
  fs::copy_file(dir / "in.jpg", dir / "-in.jpg");
  EXPECT_EQ(client("resize-image --size 10M -- -in.jpg --size").exitCode, 0) << errors();
  EXPECT_TRUE(fs::exists(dir / "--size"));
}

TEST_F(ImageClientTest, CallsAnyMethod) {
  const auto bitrate = client("call getMinimalBitrate '{}'");
  EXPECT_EQ(bitrate.exitCode, 0);
  EXPECT_EQ(bitrate.out, "{\"returnValue\": 204800}\n");
  const auto refused = client("call resizeImage '{}'");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.out,
            "{\"returnValue\":false,\"errorText\":\"Could not parse param inFile\"}\n");
  EXPECT_EQ(client("call noSuchMethod '{}'").exitCode, 1);
  EXPECT_EQ(
      errors(),
      "tarn-transcode: the service has no such method: it has getMinimalBitrate, getMovieInfo, "
      "resizeImage, resizeMovie and scaleImage\n");
  EXPECT_EQ(client("call no-method '{}'").exitCode, 1);
  EXPECT_THAT(errors(), HasSubstr("tarn-transcode: the request cannot be sent: "));
  dir.write("request", std::string(70000, ' '));
  EXPECT_EQ(client("call resizeImage \"$(cat request)\"").exitCode, 1);
  EXPECT_EQ(errors(), "tarn-transcode: the request was refused: The request is too large\n");
  EXPECT_EQ(client("min-bitrate").out, "204800 bit/s\n");
}

TEST_F(ImageClientTest, SaysWhenThereIsNoService) {
  const std::string program =
      installed("bin/tarn-transcode") + " min-bitrate 2>" + (dir / "errors");
  EXPECT_EQ(runCommand("DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere " + program).exitCode, 3);
  EXPECT_THAT(errors(), HasSubstr("no message bus: "));
  EXPECT_THAT(errors(), HasSubstr("; run it as `dbus-run-session -- tarn-transcode ...`\n"));
  const tarn::test::PrivateBus empty;
  EXPECT_EQ(runCommand("DBUS_SESSION_BUS_ADDRESS='" + empty.address() + "' " + program).exitCode,
            3);
  EXPECT_THAT(errors(), HasSubstr("cannot be started: this bus knows no com.tarn.transcode; "));
  tarn::test::PrivateBus::Options options;
  options.services = {{kTranscode, "/bin/false"}};
  const tarn::test::PrivateBus broken(options);
  EXPECT_EQ(runCommand("DBUS_SESSION_BUS_ADDRESS='" + broken.address() + "' " + program).exitCode,
            3);
  EXPECT_EQ(errors(),
            "tarn-transcode: the service cannot be started: Process com.tarn.transcode exited with "
            "status 1; the bus's log says why\n");
}

// A service that dies of somebody else's request is asked again.
TEST_F(ImageClientTest, AsksOnceMoreWhenTheServiceDies) {
  JpegRecipe recipe;
  recipe.width = 6000;
  recipe.height = 5000;
  ASSERT_TRUE(writeBytes(dir / "in.jpg", makeJpeg(recipe)));
  FILE* command = popen(("cd " + dir.path() + " && DBUS_SESSION_BUS_ADDRESS='" +
                         system.bus().address() + "' " + installed("bin/tarn-transcode") +
                         " resize-image --always --quiet in.jpg out.jpg --size 10M 2>errors")
                            .c_str(),
                        "r");
  ASSERT_NE(command, nullptr);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (system.bus().log().find("trying res") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    system.client().sync();
  }
  system.endDaemon();
  EXPECT_EQ(pclose(command), 0) << errors();
  EXPECT_GT(fs::file_size(dir / "out.jpg"), 0u);
}

}  // namespace
