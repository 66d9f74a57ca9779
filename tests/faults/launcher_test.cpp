// The daemon as its launcher leaves it: what it gave up, and what it finds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/e2e/installed_system.h"
#include "tests/e2e/spawned_program.h"
#include "tests/faults/attacks.h"
#include "tests/support/jpeg_media.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// The launched daemon, with nothing in its environment but the bus and what a test adds.
class LauncherTest : public testing::Test {
 protected:
  void launch(std::vector<std::string> environment,
              const std::string& launcher = installed("libexec/tarn-transcode/start")) {
    environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + system.bus().address());
    daemon = std::make_unique<SpawnedProgram>(launcher, environment, system.files() / "log");
    ASSERT_TRUE(system.client().waitForName(kTranscode, true)) << readFile(system.files() / "log");
  }
  std::string about(const std::string& name) const {
    return readFile("/proc/" + std::to_string(daemon->pid()) + "/" + name);
  }
  bool hasVariable(const std::string& entry) const {
    return ('\0' + about("environ") + '\0').find('\0' + entry + '\0') != std::string::npos;
  }
  // Whether it still makes a photo smaller.
  bool serves() {
    const std::string in = system.files() / "in.jpg";
    return writeBytes(in, makeJpeg(JpegRecipe{})) &&
           system.call("resizeImage", resizeRequest(in, system.files() / "out.jpg", 5000)).ok;
  }

  InstalledSystem system;
  std::unique_ptr<SpawnedProgram> daemon;
};

TEST_F(LauncherTest, TheDaemonHasGivenUpWhatItDoesNotNeed) {
  std::filesystem::create_directory(system.files() / "home");
  launch({"HOME=" + (system.files() / "home"), "PATH=/usr/bin:/bin"});
  EXPECT_THAT(about("status"), HasSubstr("NoNewPrivs:\t1\n"));
  EXPECT_THAT(about("status"), HasSubstr("Seccomp:\t2\n"));
  EXPECT_TRUE(hasVariable("PATH=" + installed("libexec/tarn-transcode/bin")));
  EXPECT_TRUE(hasVariable("MALLOC_TRIM_THRESHOLD_=131072"));
  EXPECT_TRUE(hasVariable("MALLOC_ARENA_MAX=2"));
  EXPECT_TRUE(serves());
  EXPECT_TRUE(std::filesystem::exists(system.files() / "home/.cache/tarn-transcode/registry.bin"));
}

// The variables of both series, and a stranger's plug-in where the caller's say.
TEST_F(LauncherTest, TheDaemonFindsItsOwnPluginsAlone) {
  const std::string folder = system.files() / "others";
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(MACHINE_PLUGINS "/libgstvideocrop.so", folder + "/libgstothers.so");
  const std::string cache = system.files() / "cache";
  launch({"XDG_CACHE_HOME=" + cache, "GST_PLUGIN_PATH=" + folder, "GST_PLUGIN_PATH_1_0=" + folder,
          "GST_REGISTRY=" + folder + "/registry", "GST_REGISTRY_1_0=" + folder + "/registry"});
  const std::string own = cache + "/tarn-transcode";
  const std::string folders =
      installed("libexec/tarn-transcode/") + PLUGINS_FROM_LIBEXEC + ":" + own + "/plugins";
  EXPECT_TRUE(hasVariable("GST_PLUGIN_SYSTEM_PATH_1_0="));
  EXPECT_TRUE(hasVariable("GST_PLUGIN_PATH_1_0="));
  EXPECT_TRUE(hasVariable("GST_REGISTRY_1_0=" + own + "/registry.bin"));
  EXPECT_TRUE(hasVariable("GST_PLUGIN_PATH=" + folders));
  EXPECT_TRUE(hasVariable("GST_REGISTRY=" + own + "/registry-0.10.bin"));
  EXPECT_THAT(about("cmdline"), HasSubstr("--gst-plugin-path=" + folders));
  EXPECT_TRUE(serves());
  const std::string known = readFile(own + "/registry.bin");
  EXPECT_THAT(known, HasSubstr("libgstvideocrop.so"));
  EXPECT_THAT(known, Not(HasSubstr("libgstothers.so")));
  EXPECT_THAT(namesIn(folder), testing::ElementsAre("libgstothers.so"));
}

TEST_F(LauncherTest, TheDaemonsWordsGoToAFileOfItsOwn) {
  const std::string folder = system.files() / "run/tarn-transcode";
  std::filesystem::create_directories(folder);
  writeFile(folder + "/log", std::string(2000000, 'x'));
  launch({"XDG_RUNTIME_DIR=" + (system.files() / "run")});
  EXPECT_TRUE(serves());
  EXPECT_THAT(readFile(folder + "/log"), AllOf(HasSubstr("trying res"), Not(HasSubstr("xx"))));
  EXPECT_EQ(readFile(system.files() / "log"), "");
}

TEST_F(LauncherTest, TheDaemonsWordsGoWhereTarnLogSays) {
  const std::string named = system.files() / "named";
  writeFile(named, "before\n");
  launch({"TARN_LOG=" + named});
  EXPECT_TRUE(serves());
  EXPECT_THAT(readFile(named), AllOf(testing::StartsWith("before\n"), HasSubstr("trying res")));
  EXPECT_EQ(readFile(system.files() / "log"), "");
}

TEST_F(LauncherTest, TheDaemonsWordsStayWhereTarnLogIsADash) {
  launch({"TARN_LOG=-"});
  EXPECT_TRUE(serves());
  EXPECT_THAT(readFile(system.files() / "log"), HasSubstr("trying res"));
}

// The bus's standard error is often a terminal: a service manager's is told by its number.
TEST_F(LauncherTest, TheDaemonsWordsStayInTheJournal) {
  const std::string log = system.files().write("log", "");
  struct stat status {};
  ASSERT_EQ(stat(log.c_str(), &status), 0);
  launch({"JOURNAL_STREAM=" + std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)});
  EXPECT_TRUE(serves());
  EXPECT_THAT(readFile(log), HasSubstr("trying res"));
}

TEST_F(LauncherTest, WithoutAHomeNothingIsWrittenElsewhere) {
  std::filesystem::create_directory(system.files() / "run");
  launch({"XDG_RUNTIME_DIR=" + (system.files() / "run")});
  EXPECT_TRUE(serves());
  EXPECT_TRUE(std::filesystem::exists(system.files() / "run/tarn-transcode/registry.bin"));
  EXPECT_FALSE(std::filesystem::exists("/nonexistent"));
}

TEST_F(LauncherTest, WithoutAnyFolderItServesAllTheSame) {
  struct stat before {};
  ASSERT_EQ(stat("/dev/null", &before), 0);
  launch({"HOME=relative"});
  EXPECT_TRUE(serves());
  EXPECT_FALSE(std::filesystem::exists("/nonexistent"));
  // What is everybody's stays so: as root it could be taken from them.
  struct stat after {};
  EXPECT_EQ(stat("/dev/null", &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
}

// A program in the daemon's place that tries whatever there is.
TEST_F(LauncherTest, NoWayToTheNetworkIntoTheKernelOrToOthersMemory) {
  const LivingVictim prey;
  const std::string folder = system.files() / "libexec";
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(installed("libexec/tarn-transcode/start"), folder + "/start");
  std::filesystem::copy_file(ATTACKER, folder + "/transcoded");
  SpawnedProgram attacker(folder + "/start",
                          {"TARN_LOG=-", "ATTACK_FOLDER=" + prey.victim().folder,
                           "ATTACK_PROCESS=" + std::to_string(prey.victim().process)},
                          system.files() / "log");
  ASSERT_TRUE(attacker.waitForEnd(10000));
  const std::string told = readFile(system.files() / "log");
  EXPECT_THAT(told, HasSubstr("tried "));
  for (const char* name : {
           "socket 2",
           "socket 10",
           "socket 16",
           "io_uring",
           "read another's memory at once",
           "keyring",
           "bpf",
           "perf",
           "userfaultfd",
           "a namespace",
           "a child in a namespace",
           "mount",
           "chroot",
#ifndef TARN_SANITIZED  // the leak checker needs it
           "trace",
#endif
       }) {
    EXPECT_THAT(told, Not(HasSubstr(std::string("ALLOWED ") + name + "\n")));
  }
}

// A copy of the installed tree; the folder of its programs.
std::string copiedTree(const std::string& tree) {
  std::filesystem::copy(
      TARN_STAGE, tree,
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks);
  return tree + "/libexec/tarn-transcode";
}

// The installed tree without its ffmpeg, and another ffmpeg on the caller's PATH.
TEST_F(LauncherTest, NoOtherFfmpegTakesThePlaceOfOurs) {
  const std::string programs = copiedTree(system.files() / "tree");
  std::filesystem::remove(programs + "/bin/ffmpeg");
  std::filesystem::create_directory(system.files() / "bin");
  const std::string ran = system.files() / "ran";
  const std::string other =
      system.files().write("bin/ffmpeg", "#!/bin/sh\n/usr/bin/touch '" + ran + "'\n");
  chmod(other.c_str(), 0755);
  launch({"HOME=" + (system.files() / "home"), "PATH=" + (system.files() / "bin:/usr/bin:/bin")},
         programs + "/start");
  const std::string movie = system.files().write("a.mp4", "no movie");
  EXPECT_FALSE(system.call("getMovieInfo", R"({"inFile":")" + movie + R"("})").ok);
  EXPECT_FALSE(std::filesystem::exists(ran));
}

// A machine with the launcher of another, and GStreamer's plug-ins where none of both looks.
class OtherMachineTest : public LauncherTest {
 protected:
  OtherMachineTest() : plugins(system.files() / "plugins") {
    const std::string programs = copiedTree(system.files() / "tree");
    launcher = programs + "/start";
    std::filesystem::copy_file(LAUNCHER_OF_ANOTHER_MACHINE, launcher,
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::create_directory(plugins);
    for (const char* library : {"libgstcoreelements.so", "libgstjpeg.so", "libgstvideocrop.so"}) {
      std::filesystem::copy_file(MACHINE_PLUGINS "/" + std::string(library),
                                 plugins + "/" + library);
    }
  }
  void start(const std::string& cache = "cache") {
    system.endDaemon();
    launch({"XDG_CACHE_HOME=" + (system.files() / cache), "TARN_LOG=-",
            "GST_PLUGIN_SYSTEM_PATH_1_0=relative:/nonexistent:" + plugins},
           launcher);
  }
  std::string link(const std::string& library) const {
    return system.files() / ("cache/tarn-transcode/plugins/" + library);
  }
  std::string told() const { return readFile(system.files() / "log"); }

  std::string plugins;
  std::string launcher;
};

TEST_F(OtherMachineTest, ThePluginsAreLinkedFromWhereTheyAre) {
  start();
  EXPECT_TRUE(serves());
  EXPECT_EQ(std::filesystem::read_symlink(link("libgstjpeg.so")), plugins + "/libgstjpeg.so");
  EXPECT_THAT(told(), Not(HasSubstr("is not on this machine")));

  std::filesystem::rename(plugins, plugins + "-2");
  plugins += "-2";
  start();
  EXPECT_TRUE(serves());
  EXPECT_EQ(std::filesystem::read_symlink(link("libgstjpeg.so")), plugins + "/libgstjpeg.so");
  EXPECT_THAT(namesIn(system.files() / "cache/tarn-transcode/plugins"),
              testing::ElementsAre("libgstcoreelements.so", "libgstjpeg.so", "libgstvideocrop.so"));
}

TEST_F(OtherMachineTest, LinksThatAreRightAreNotMadeAnew) {
  start();
  struct stat before {};
  ASSERT_EQ(lstat(link("libgstjpeg.so").c_str(), &before), 0);
  start();
  struct stat after {};
  ASSERT_EQ(lstat(link("libgstjpeg.so").c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(OtherMachineTest, AMissingPluginIsToldByNameAndTheRestServed) {
  start();
  std::filesystem::remove(plugins + "/libgstjpeg.so");
  start();
  EXPECT_THAT(told(), HasSubstr("GStreamer's plug-in libgstjpeg.so is not on this machine"));
  EXPECT_FALSE(std::filesystem::is_symlink(link("libgstjpeg.so")));
  EXPECT_TRUE(system.call("getMinimalBitrate", "{}").ok);
}

TEST_F(OtherMachineTest, WhereNothingCanBeWrittenThePluginsAreLoadedByTheirPaths) {
  system.files().write("file", "");
  start("file/cache");
  EXPECT_TRUE(serves());
}

// GStreamer's decoder makes a half-gray picture of it.
TEST_F(OtherMachineTest, OurDecoderStaysInUseWhenTheMachinesIsNew) {
  const auto whole = makeJpeg({.width = 640, .height = 480});
  const std::string in = system.files().write(
      "cut.jpg", std::string(whole.begin(), whole.begin() + std::ssize(whole) * 2 / 3));
  const std::string request = resizeRequest(in, system.files() / "out.jpg", 5000);
  for (const char* when : {"2001-02-03", "2002-03-04"}) {
    ASSERT_EQ(runCommand("touch -d " + std::string(when) + " " + plugins + "/*.so").exitCode, 0);
    start();
    EXPECT_THAT(system.call("resizeImage", request).reply, HasSubstr(R"("ImageSize":0)")) << when;
  }
  system.files().write("file", "");
  start("file/cache");
  EXPECT_THAT(system.call("resizeImage", request).reply, HasSubstr(R"("ImageSize":0)"));
}

}  // namespace
