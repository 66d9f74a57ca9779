// A kernel without Landlock: movies are made all the same, and texts in their place lead nowhere by
// the lists of formats and protocols alone.
#include <gmock/gmock.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "tests/ffmpeg/program_run.h"
#include "tests/support/movie_media.h"
#include "tests/support/temp_dir.h"

namespace {

// Runs the body in a process to which, and to whose children, the kernel says that it has none.
int exitCodeWithoutLandlock(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    const bool isBarred =
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SYS_landlock_create_ruleset, 0) == 0 &&
        seccomp_load(filter) == 0 && syscall(SYS_landlock_create_ruleset, nullptr, 0, 1) < 0 &&
        errno == ENOSYS;
    _exit(isBarred ? body() : 99);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(WithoutLandlockTest, MoviesAreMade) {
  const TempDir folder;
  const std::string clip = movieClip(ClipRecipe{});
  const std::string out = folder / "out.mp4";
  EXPECT_EQ(exitCodeWithoutLandlock([&] {
              return runFfmpeg({"-i", clip, "-y", "-vcodec", "mpeg4", out}).exitCode;
            }),
            0);
  EXPECT_EQ(decodingErrors(out), "");
}

TEST(WithoutLandlockTest, APlaylistIsNoMovie) {
  const TempDir folder;
  const std::string clip = movieClip({.name = "part.ts"});
  for (const std::string& text :
       {"#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + clip + "\n#EXT-X-ENDLIST\n",
        "ffconcat version 1.0\nfile '" + clip + "'\n"}) {
    writeFile(folder / "x.mp4", text);
    EXPECT_EQ(
        exitCodeWithoutLandlock([&] {
          return runFfmpeg({"-i", folder / "x.mp4", "-y", "-vcodec", "mpeg4", folder / "out.mp4"})
              .exitCode;
        }),
        1);
    EXPECT_FALSE(std::filesystem::exists(folder / "out.mp4"));
  }
}

}  // namespace
