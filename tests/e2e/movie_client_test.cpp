// The client's movie commands, as a user meets them.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/e2e/installed_client.h"
#include "tests/e2e/movie_facts.h"
#include "tests/e2e/scripted_ffmpeg.h"
#include "tests/support/movie_media.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class MovieClientTest : public testing::Test, protected InstalledClient {
 protected:
  void SetUp() override {
    fs::copy_file(movieClip({.seconds = 3, .size = "320x240"}), dir / "w/in.mp4");
  }
};

TEST_F(MovieClientTest, TellsOfAMovie) {
  const auto words = run("info in.mp4");
  EXPECT_EQ(words.exitCode, 0) << errors();
  EXPECT_THAT(words.out, MatchesRegex(".*/w/in.mp4: 0:03, [0-9]+ kB, [0-9.]+ [kM]bit/s\n"));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(MovieClientTest, MakesAMovieOfEveryOptionByRelativePaths) {
  const auto result =
      run("resize-movie in.mp4 made/out.3gp --max-size 200k --max-bitrate 0.5M "
          "--video-codec h263 --audio-codec aac --audio-bitrate 16k --audio-rate 16000 "
          "--pic-size qcif --frame-rate 12.5 --start 0.5 --length=2 --passes 2");
  EXPECT_EQ(result.exitCode, 0) << errors();
  EXPECT_THAT(result.out, MatchesRegex(".*/w/made/out.3gp: 0:02, [0-9]+ kB, [0-9]+ kbit/s\n"));
  const MovieFacts made = movieFacts(dir / "w/made/out.3gp");
  EXPECT_EQ(made.streams, "h263,video,176,144 aac,audio");
  EXPECT_NEAR(made.seconds, 2, 0.2);
  EXPECT_THAT(namesIn(dir / "w/made"), ElementsAre("out.3gp"));
}

TEST_F(MovieClientTest, TellsAProgramOfAMovie) {
  const std::string in = "\\{\"input\":\"" + (dir / "w/in.mp4") + "\",";
  EXPECT_THAT(run("resize-movie --json --quiet in.mp4 out.mp4 --video-bitrate 200k").out,
              MatchesRegex(in + "\"output\":\".*/w/out.mp4\",\"returnValue\":true,"
                                "\"inputBytes\":[0-9]+,\"outputBytes\":[0-9]+,"
                                "\"seconds\":[23].[0-9]+,\"elapsed\":[0-9.]+\\}\n"));
  EXPECT_THAT(errors(), IsEmpty());
  const auto refused = run("resize-movie --json in.mp4 out.mp4 --size 2k");
  EXPECT_EQ(refused.exitCode, 4);
  EXPECT_THAT(refused.out,
              MatchesRegex(in + ".*\"returnValue\":false,\"inputBytes\":[0-9]+,\"elapsed\":"
                                "[0-9.]+,\"errorText\":\"the movie cannot be made to fit 2.0 kB\""
                                "\\}\n"));
  EXPECT_THAT(
      run("info --json in.mp4").out,
      MatchesRegex(in + "\"returnValue\":true,\"kind\":\"movie\",\"inputBytes\":" +
                   std::to_string(fs::file_size(dir / "w/in.mp4")) + ",\"seconds\":3.0.*\\}\n"));
}

TEST_F(MovieClientTest, PrintsNothingWhenQuiet) {
  EXPECT_THAT(run("resize-movie --quiet in.mp4 a.mp4 --video-bitrate 300k").out, IsEmpty());
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(MovieClientTest, FitsTheWholeMovieOrTellsWhatWould) {
  for (const char* passes : {"1", "2"}) {
    const std::string words = "resize-movie in.mp4 out.mp4 --max-size 60k --passes ";
    EXPECT_EQ(run(words + passes).exitCode, 0) << errors();
    EXPECT_LE(fs::file_size(dir / "w/out.mp4"), 60000u);
    EXPECT_NEAR(movieFacts(dir / "w/out.mp4").seconds, 3, 0.1);
    EXPECT_THAT(namesIn(dir / "w"), ElementsAre("in.mp4", "out.mp4"));
    fs::remove(dir / "w/out.mp4");
  }
  EXPECT_EQ(
      run("resize-movie in.mp4 out.mp4 --pic-size 640x480 --frame-rate 24 --max-size 20k").exitCode,
      4);
  EXPECT_THAT(errors(), HasSubstr("the whole clip cannot be had in 18999 bytes: about "));
  EXPECT_FALSE(fs::exists(dir / "w/out.mp4"));
}

#ifdef TARN_FIT
TEST_F(MovieClientTest, FitTakesMoviesToo) {
  fs::copy_file(dir / "w/in.mp4", dir / "w/b.mkv");  // by its name alone
  const auto both = run("fit in.mp4 b.mkv --out-dir out --size 60k -j 1");
  EXPECT_EQ(both.exitCode, 0) << errors();
  for (const char* name : {"w/out/in.mp4", "w/out/b.mp4"}) {
    EXPECT_LE(fs::file_size(dir / name), 60000u) << name;
    EXPECT_NEAR(movieFacts(dir / name).seconds, 3, 0.1) << name;
  }
  EXPECT_THAT(run("fit in.mp4 copy.mp4 --size 10M").out, HasSubstr(", as it was\n"));
  EXPECT_EQ(readFile(dir / "w/copy.mp4"), readFile(dir / "w/in.mp4"));
  // What is in the file may tell where it was made.
  EXPECT_EQ(run("fit in.mp4 bare.mp4 --size 10M --keep-metadata none").exitCode, 0) << errors();
  EXPECT_NE(readFile(dir / "w/bare.mp4"), readFile(dir / "w/in.mp4"));
  EXPECT_EQ(run("fit in.mp4 tiny.mp4 --size 2k").exitCode, 4);
  EXPECT_THAT(errors(), StartsWith("tarn-transcode: " + (dir / "w/in.mp4") + ": The whole movie "));
}
#endif

TEST_F(MovieClientTest, KeepsTheModeOfTheFileItReplaces) {
  dir.write("w/out.mp4", "old");
  chmod((dir / "w/out.mp4").c_str(), 0600);
  EXPECT_EQ(run("resize-movie in.mp4 out.mp4 --video-bitrate 300k").exitCode, 0) << errors();
  struct stat attributes = {};
  ASSERT_EQ(stat((dir / "w/out.mp4").c_str(), &attributes), 0);
  EXPECT_EQ(attributes.st_mode & 0777u, 0600u);
}

TEST_F(MovieClientTest, RefusesToOverwriteItsInput) {
  const std::string before = readFile(dir / "w/in.mp4");
  fs::create_symlink("in.mp4", dir / "w/link.mp4");
  fs::create_hard_link(dir / "w/in.mp4", dir / "w/hard.mp4");
  for (const char* out : {"in.mp4", "./in.mp4", "link.mp4", "hard.mp4"}) {
    EXPECT_EQ(run(std::string("resize-movie in.mp4 ") + out).exitCode, 1);
    EXPECT_THAT(errors(), HasSubstr("same file"));
  }
  EXPECT_EQ(readFile(dir / "w/in.mp4"), before);
}

TEST_F(MovieClientTest, RefusesWhatIsNoRegularFileBeforeTheServiceMeetsIt) {
  ASSERT_EQ(runCommand("mkfifo " + (dir / "w/fifo.mp4")).exitCode, 0);
  dir.write("w/empty.mp4", "");
  dir.write("w/\xe9.mp4", "not UTF-8");
  for (const char* in : {"none.mp4", "fifo.mp4", "empty.mp4", ".", "\xe9.mp4"}) {
    EXPECT_EQ(run(std::string("info ") + in).exitCode, 1) << in;
    EXPECT_THAT(errors(), HasSubstr("cannot read")) << in;
    EXPECT_EQ(run(std::string("resize-movie ") + in + " out.mp4").exitCode, 1) << in;
    EXPECT_THAT(errors(), HasSubstr("cannot read")) << in;
  }
  EXPECT_EQ(system.daemonPid(), 0);
}

TEST_F(MovieClientTest, NamesWordsThatMakeNoCommand) {
  for (const char* words :
       {"info", "info a b", "resize-movie in.mp4", "resize-movie in.mp4 out.mp4 --max-size many",
        "resize-movie in.mp4 out.mp4 --video-bitrate 64kB",
        "resize-movie in.mp4 out.mp4 --passes 3", "resize-movie in.mp4 out.mp4 --start -1",
        "resize-movie in.mp4 out.mp4 --frame-rate 0",
        "resize-movie in.mp4 out.mp4 --max-size 1M --video-codec copy"}) {
    EXPECT_EQ(run(words).exitCode, 2) << words;
    EXPECT_THAT(errors(), HasSubstr("usage: ")) << words;
  }
  EXPECT_THAT(namesIn(dir / "w"), ElementsAre("in.mp4"));
}

TEST_F(MovieClientTest, KeepsTheOldFileAndTellsFfmpegsWords) {
  dir.write("w/out.mp4", "old");
  for (const char* options : {"--video-codec nosuch", "--audio-codec nosuch --passes 2"}) {
    EXPECT_EQ(run(std::string("resize-movie in.mp4 out.mp4 ") + options).exitCode, 1);
    EXPECT_THAT(errors(), HasSubstr("Unknown encoder 'nosuch'"));
    EXPECT_THAT(errors(), Not(HasSubstr("/.")));  // the temporary name
  }
  EXPECT_EQ(run("resize-movie in.mp4 out.mp4 --max-size 2k").exitCode, 4);
  EXPECT_EQ(errors(),
            "tarn-transcode: " + (dir / "w/in.mp4") + ": the movie cannot be made to fit 2.0 kB\n");
  EXPECT_EQ(readFile(dir / "w/out.mp4"), "old");
  EXPECT_THAT(namesIn(dir / "w"), ElementsAre("in.mp4", "out.mp4"));
}

TEST_F(MovieClientTest, BlamesACutMovieAndNotTheLimit) {
  // The index in front, so that a part of the file can be read.
  const std::string whole =
      readFile(movieClip({.seconds = 8, .more = {"-movflags", "+faststart"}}));
  dir.write("w/cut.mp4", whole.substr(0, whole.size() / 2));
  EXPECT_EQ(run("resize-movie cut.mp4 out.mp4 --size 60k --quiet").exitCode, 1);
  EXPECT_THAT(
      errors(),
      MatchesRegex("tarn-transcode: .*/w/cut.mp4: only [0-9.]+ s of 8.0 s could be read: the "
                   "input is damaged or cut short\n"));
  EXPECT_FALSE(fs::exists(dir / "w/out.mp4"));
}

TEST_F(MovieClientTest, KnowsTheExtensionsOfMoviesInAnyCase) {
  EXPECT_EQ(run("resize-movie in.mp4 out.MP4 --video-bitrate 200k --quiet").exitCode, 0)
      << errors();
  EXPECT_EQ(movieFacts(dir / "w/out.MP4").streams, "mpeg4,video,320,240 aac,audio");
  EXPECT_EQ(run("resize-movie in.mp4 out.mkv").exitCode, 1);
  EXPECT_EQ(
      errors(),
      "tarn-transcode: the name of a movie ends in .mp4 or .3gp, in small letters or capitals: " +
          (dir / "w/out.mkv") + " does not\n");
}

TEST_F(MovieClientTest, TellsSilence) {
  dir.write("w/text.mp4", "no movie, but longer than ten bytes");
  EXPECT_EQ(run("resize-movie text.mp4 out.mp4").exitCode, 1);
  EXPECT_THAT(errors(), HasSubstr("could not read " + (dir / "w/text.mp4") + " as a movie"));
  EXPECT_EQ(run("info text.mp4").exitCode, 1);
  EXPECT_THAT(errors(),
              HasSubstr((dir / "w/text.mp4") + " is no photo, and the service could not"));
  EXPECT_FALSE(fs::exists(dir / "w/out.mp4"));
}

// A success is believed only when the movie is there.
TEST(ScriptedMovieClientTest, KeepsTheOldFileWhenNoMovieCameOut) {
  for (const char* script : {"exit 0", "case $output in /dev/*) ;; *) rm \"$output\" ;; esac"}) {
    const ScriptedFfmpeg ffmpeg(script);
    InstalledClient client(ffmpeg.daemon());
    client.dir.write("w/in.mp4", std::string(1000000, 'x'));
    client.dir.write("w/out.mp4", "old");
    const auto result = client.run("resize-movie in.mp4 out.mp4 --max-size 100k --passes 1");
    EXPECT_EQ(result.exitCode, 1) << script;
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(client.errors(), HasSubstr("no movie came out"));
    EXPECT_EQ(readFile(client.dir / "w/out.mp4"), "old");
    EXPECT_THAT(namesIn(client.dir / "w"), ElementsAre("in.mp4", "out.mp4"));
  }
}

TEST(ScriptedMovieClientTest, EveryOptionReachesFfmpeg) {
  const std::pair<const char*, const char*> cases[] = {
      {"--video-bitrate 0.5M --audio-bitrate 64k",
       "-vcodec mpeg4 -b 500k -acodec libfaac -ab 64000"},
      {"--video-codec x --audio-codec y --max-bitrate 100k", "-vcodec x -b 86k -acodec y -ab 9599"},
      {"--video-bitrate 9k --audio-bitrate 8 --audio-rate 44.1k --frame-rate 12.5",
       "-vcodec mpeg4 -b 9k -r 12.500 -acodec libfaac -ab 8 -ar 44100 -ac 1"},
      {"--video-codec copy --audio-codec copy --start 2.5 --length 0.25 --pic-size 64x48",
       "-s 64x48 -sws_flags fast_bilinear -vcodec copy -acodec copy -ss 2.500000 -t 0.250000"},
      {"--size 1Ki --video-bitrate 1k --audio-bitrate 1k",
       "-vcodec mpeg4 -b 1k -acodec libfaac -ab 1000 -fs 972"},
      {"--passes 2 --video-bitrate 1k --audio-bitrate 1k",
       "-vcodec mpeg4 -b 1k -pass 2 -passlogfile OUT -acodec libfaac -ab 1000"},
  };
  const ScriptedFfmpeg ffmpeg(
      R"(echo "$*" | sed "s|$output|OUT|g" > "$here/line"; echo x > "$output")");
  InstalledClient client(ffmpeg.daemon());
  const std::string in = client.dir.write("w/in.mp4", std::string(1000000, 'x'));
  for (const auto& [options, words] : cases) {
    EXPECT_EQ(client.run(std::string("resize-movie in.mp4 out.mp4 ") + options).exitCode, 0)
        << client.errors();
    EXPECT_EQ(readFile(ffmpeg.here() / "line"), "-i " + in + " -y " + words + " OUT\n");
  }
}

TEST(ScriptedMovieClientTest, AsksAgainWhenTheServiceDied) {
  const ScriptedFfmpeg ffmpeg(R"(
    if [ ! -e "$here/killed" ]; then
      : > "$here/killed"
      : > "$output-0.log"
      kill -9 $PPID
      exit
    fi
    cp "$input" "$output")");
  InstalledClient client(ffmpeg.daemon());
  client.dir.write("w/in.mp4", std::string(1000000, 'x'));
  EXPECT_EQ(client.run("resize-movie in.mp4 out.mp4").exitCode, 0) << client.errors();
  EXPECT_TRUE(fs::exists(ffmpeg.here() / "killed"));
  EXPECT_EQ(client.errors(),
            "tarn-transcode: the service ended while it worked on the request: asked once more\n");
  EXPECT_THAT(namesIn(client.dir / "w"), ElementsAre("in.mp4", "out.mp4"));
}

// Goes on when the client has shown where it stands, in the file $here/shown.
constexpr char kTellsProgress[] = R"(
    file=$XDG_RUNTIME_DIR/tarn-transcode/$(printf %s "$output" | sha256sum | cut -c1-64).progress
    mkdir -p "${file%/*}"
    tell() {
      echo "{\"pass\":$1,\"passes\":2,\"position\":$2,\"duration\":10000}" > "$file.new"
      mv "$file.new" "$file"
      tries=0
      until grep -q " $3 % .*[0-9:]* left" "$here/shown" || [ $tries = 1000 ]; do
        sleep 0.02
        tries=$((tries + 1))
      done
    }
    tell 1 5000 $1
    eval "${3-}"
    tell 2 8000 $2
    rm "$file"
    cp "$input" "$output")";

// `between`: what else it does.
std::string tellsProgress(const char* first, const char* second, const char* between = "") {
  return "set -- " + std::string(first) + " " + second + " '" + between + "'\n" + kTellsProgress;
}

TEST(ScriptedMovieClientTest, TellsOfProgressWithoutATerminalWhenAsked) {
  const ScriptedFfmpeg ffmpeg(tellsProgress("25", "25"));
  InstalledClient client(ffmpeg.daemon());
  client.dir.write("w/in.mp4", std::string(1000000, 'x'));
  const std::string shown = ffmpeg.here() / "shown";
  const std::string words = "resize-movie in.mp4 out.mp4 --progress 2>" + shown;
  EXPECT_EQ(runCommand(client.command(words)).exitCode, 0);
  EXPECT_THAT(readFile(shown), MatchesRegex(" 25 % pass 1 of 2, [0-9:]+ left\n"));
}

TEST_F(MovieClientTest, IsSilentWithoutATerminal) {
  EXPECT_EQ(run("resize-movie in.mp4 out.mp4 --video-bitrate 200k").exitCode, 0);
  EXPECT_THAT(errors(), IsEmpty());
}

// On a terminal of so many columns, as long as it shows what the encoder tells.
std::string shownOnATerminal(int columns, const char* between = "") {
  const ScriptedFfmpeg ffmpeg(tellsProgress("25", "90", between));
  InstalledClient client(ffmpeg.daemon());
  client.dir.write("w/in.mp4", std::string(1000000, 'x'));
  const std::string shown = ffmpeg.here() / "shown";
  const std::string inner = client.dir.write(
      "inner", "stty cols " + std::to_string(columns) + "\ntty >" + (ffmpeg.here() / "terminal") +
                   "\n" + client.command("resize-movie in.mp4 o.mp4"));
  EXPECT_EQ(runCommand("script -qefc 'sh " + inner + "' " + shown + " >/dev/null").exitCode, 0);
  return readFile(shown);
}

TEST(ScriptedMovieClientTest, RewritesOneLineOnATerminal) {
  const std::string text = shownOnATerminal(80);
  EXPECT_THAT(text, HasSubstr("\r 25 % [#########-----------------------------] pass 1 of 2, "));
  EXPECT_THAT(text, HasSubstr("\r 90 % [##################################----] pass 2 of 2, "));
  const size_t wiped = text.rfind(std::string(60, ' ') + "\r");
  ASSERT_NE(wiped, std::string::npos);
  EXPECT_THAT(text.substr(wiped), HasSubstr("/w/o.mp4: 0:10, 1.0 MB, 800 kbit/s"));
}

TEST(ScriptedMovieClientTest, ANarrowTerminalHasOneLineToo) {
  const std::string text = shownOnATerminal(30);
  EXPECT_THAT(text, HasSubstr("\r 25 % [##-------] "));
  for (size_t at = text.find("\r "); at != std::string::npos; at = text.find("\r ", at + 1)) {
    EXPECT_LE(text.find_first_of("\r\n", at + 1) - at - 1, 29u) << text;
  }
}

TEST(ScriptedMovieClientTest, ATerminalThatBecomesNarrowHasNoBlanksBeyondItsEnd) {
  const std::string text = shownOnATerminal(80, "stty -F $(cat $here/terminal) cols 30");
  EXPECT_THAT(text, HasSubstr("\r 90 % [########-] "));
  for (size_t at = text.find("\r "); at != std::string::npos; at = text.find("\r ", at + 1)) {
    const size_t end = text.find_first_of("\r\n", at + 1);
    const std::string line = text.substr(at + 1, end - at - 1);
    const bool isWide = line.find("pass") != std::string::npos;
    EXPECT_LE(line.size(), isWide ? 79u : 29u) << text;
  }
}

TEST(ScriptedMovieClientTest, GoesOnAfterItWasStopped) {
  const ScriptedFfmpeg ffmpeg(R"(
    : > "$here/begun"
    until [ -e "$here/go" ]; do sleep 0.02; done
    cp "$input" "$output")");
  InstalledClient client(ffmpeg.daemon());
  client.dir.write("w/in.mp4", std::string(1000000, 'x'));
  const std::string script = client.dir.write("script", R"(
    set -m  # else ^Z would stop nothing
    )" + client.command("resize-movie in.mp4 o.mp4 --quiet") +
                                                            R"( &
    until [ -e "$1/begun" ]; do sleep 0.02; done
    kill -TSTP %1
    until jobs -s | grep -q .; do sleep 0.02; done
    : > "$1/go"
    kill -CONT %1
    wait %1)");
  EXPECT_EQ(runCommand("timeout 60 bash " + script + " '" + (ffmpeg.here() / "") + "'").exitCode,
            0);
  EXPECT_EQ(fs::file_size(client.dir / "w/o.mp4"), 1000000u);
}

}  // namespace
