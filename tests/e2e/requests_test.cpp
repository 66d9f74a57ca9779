// Every documented answer, byte for byte, from the installed daemon over a real bus.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "tests/e2e/installed_system.h"
#include "tests/support/failure_reply.h"
#include "tests/support/jpeg_media.h"

namespace {

namespace fs = std::filesystem;

class RequestsTest : public testing::Test {
 protected:
  void SetUp() override {
    JpegRecipe recipe;
    recipe.width = 1000;
    recipe.height = 750;
    recipe.content = Content::Noise;
    recipe.quality = 95;
    const Bytes jpeg = makeJpeg(recipe);
    pictureBytes = static_cast<int>(jpeg.size());
    ASSERT_TRUE(writeBytes(in, jpeg));
  }

  // The service's interface as that description of an object tells it, in GDBus's words.
  static std::string interfaceIn(const std::string& xml) {
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
    EXPECT_NE(node, nullptr) << xml;
    g_autoptr(GString) text = g_string_new(nullptr);
    g_dbus_interface_info_generate_xml(g_dbus_node_info_lookup_interface(node, kTranscode), 0,
                                       text);
    return text->str;
  }

  std::string reply(const std::string& method, const std::string& payload) {
    const auto result = system.call(method, payload);
    EXPECT_TRUE(result.ok) << result.errorName << ": " << result.errorMessage;
    return result.reply;
  }

  InstalledSystem system;
  const std::string in = system.files() / "in.jpg";
  const std::string out = system.files() / "made/out.jpg";
  int pictureBytes = 0;
};

TEST_F(RequestsTest, MinimalBitrateIsFixedWhateverIsAsked) {
  for (const char* payload : {"{}", "", "no json", "[[[", "{\"inFile\":3}", "null"}) {
    EXPECT_EQ(reply("getMinimalBitrate", payload), "{\"returnValue\": 204800}") << payload;
  }
}

TEST_F(RequestsTest, MalformedCommandsAreNamed) {
  const std::string brackets(30000, '[');
  for (const std::string& payload :
       {std::string(), std::string("no json"), std::string("{\"inFile\":"), std::string("{} {}"),
        std::string(R"({"inFile":"\ud800"})"), brackets + std::string(30000, ']'), brackets}) {
    for (const char* method : {"resizeImage", "scaleImage"}) {
      EXPECT_EQ(reply(method, payload), failure(R"(malformed command\n)"))
          << payload.substr(0, 100);
    }
  }
}

TEST_F(RequestsTest, ParametersThatCannotBeParsedAreNamed) {
  const std::string files = R"("inFile":")" + in + R"(","outFile":")" + out + "\"";
  const std::string clip = files + R"(,"xTop":0,"yTop":0)";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"resizeImage", "{}", "Could not parse param inFile"},
      {"resizeImage", "[1,2]", "Could not parse param inFile"},
      {"resizeImage", "\"text\"", "Could not parse param inFile"},
      {"resizeImage", R"({"inFile":7,"outFile":"b"})", "Could not parse param inFile"},
      {"resizeImage", R"({"inFile":"a\u0000b","outFile":"b"})", "Could not parse param inFile"},
      {"resizeImage", R"({"inFile":"a"})", "Could not parse param outFile"},
      {"resizeImage", R"({"inFile":"a","outFile":")" + std::string(8193, 'x') + "\"}",
       "Could not parse param outFile"},
      {"resizeImage", "{" + files + R"(,"size":1e400})", "Could not parse param resize"},
      {"resizeImage", R"({"inFile":1e400,"outFile":"b"})", "Could not parse param inFile"},
      {"resizeImage", "{" + files + "}", "Could not parse param resize"},
      {"resizeImage", "{" + files + R"(,"size":"300000"})", "Could not parse param resize"},
      {"resizeImage", "{" + files + R"(,"size":2147483648})", "Could not parse param resize"},
      {"scaleImage", "{}", "Could not parse param inFile"},
      {"scaleImage", "{" + files + "}", "Could not parse param xTop"},
      {"scaleImage", "{" + files + R"(,"xTop":0})", "Could not parse param yTop"},
      {"scaleImage", "{" + clip + "}", "Could not parse param xSize"},
      {"scaleImage", "{" + clip + R"(,"xSize":16})", "Could not parse param ySize"},
      {"scaleImage", "{" + clip + R"(,"xSize":16,"ySize":16})", "Could not parse param scale"},
      {"scaleImage", "{" + clip + R"(,"xSize":15,"ySize":16,"scale":0})", "Bad scale parameter"},
      {"scaleImage", "{" + clip + R"(,"xSize":15,"ySize":16,"scale":101})", "Bad scale parameter"},
      {"scaleImage", "{" + clip + R"(,"xSize":15,"ySize":16,"scale":-5})", "Bad scale parameter"},
      {"scaleImage", "{" + clip + R"(,"xSize":15,"ySize":15,"scale":50})", "Bad xSize parameter"},
      {"scaleImage", "{" + clip + R"(,"xSize":31,"ySize":15,"scale":50})", "Bad ySize parameter"},
  };
  for (const auto& [method, payload, text] : cases) {
    EXPECT_EQ(reply(method, payload), failure(text)) << payload;
  }
  EXPECT_FALSE(fs::exists(system.files() / "made"));
}

TEST_F(RequestsTest, FilesThatCannotBeUsedAreNamed) {
  EXPECT_EQ(reply("resizeImage", resizeRequest(system.files() / "none.jpg", out, 1000)),
            failure("Unable to open file"));
  EXPECT_FALSE(fs::exists(system.files() / "made"));
  EXPECT_EQ(reply("resizeImage", resizeRequest(in, "/proc/none/out.jpg", 1000)),
            failure("failed to create output directory"));
  EXPECT_EQ(reply("resizeImage", resizeRequest(in, system.files().path(), 1000)),
            failure("failed to open output file"));
}

// Whoever waits on a pipe answers nobody, so each of these is followed by a call.
TEST_F(RequestsTest, PipesAreRefusedAtOnce) {
  const std::string pipe = system.files() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(reply("resizeImage", resizeRequest(pipe, out, 1000)), failure("Unable to open file"));
  EXPECT_EQ(reply("resizeImage", resizeRequest(in, pipe, 1000)),
            failure("failed to open output file"));
  const std::string movie = R"({"inFile":")" + pipe + R"(","outFile":")" + out + "\"}";
  for (const char* method : {"getMovieInfo", "resizeMovie"}) {
    EXPECT_EQ(system.call(method, movie).errorName, "org.freedesktop.DBus.Error.NoReply");
  }
  EXPECT_EQ(reply("getMinimalBitrate", "{}"), "{\"returnValue\": 204800}");
}

TEST_F(RequestsTest, APhotoIsNeverWrittenOverItself) {
  const std::string before = readFile(in);
  fs::create_hard_link(in, system.files() / "link.jpg");
  for (const std::string& same : {in, system.files() / "link.jpg"}) {
    EXPECT_EQ(reply("resizeImage", resizeRequest(in, same, 1000)),
              failure("failed to open output file"));
  }
  EXPECT_EQ(readFile(in), before);
}

TEST_F(RequestsTest, ScaleImageAlwaysEndsTooSmall) {
  const auto scaleRequest = [this](int xTop, int xSize) {
    return R"({"inFile":")" + in + R"(","outFile":")" + out + R"(","xTop":)" +
           std::to_string(xTop) + R"(,"yTop":0,"xSize":)" + std::to_string(xSize) +
           R"(,"ySize":64,"scale":50})";
  };
  EXPECT_EQ(reply("scaleImage", scaleRequest(0, 64)), failure(R"(Scale factor is too small\n)"));
  EXPECT_EQ(fs::file_size(out), 0u);
  EXPECT_EQ(reply("scaleImage", scaleRequest(937, 64)), failure("invalid clip rect"));
}

TEST_F(RequestsTest, ABudgetWithoutAPixelIsRefused) {
  EXPECT_EQ(reply("resizeImage", resizeRequest(in, out, 1)),
            failure(R"(Scale factor is too small\n)"));
  EXPECT_EQ(fs::file_size(out), 0u);
}

TEST_F(RequestsTest, ReplyTellsWhatIsOnDisk) {
  const std::pair<int, const char*> cases[] = {
      {pictureBytes + 1, R"("xSize":1008,"ySize":752)"},
      // Neither the default quality nor half of it fits at the first level.
      {240000, R"("xSize":512,"ySize":384)"},
  };
  for (const auto& [size, dimensions] : cases) {
    const std::string text = reply("resizeImage", resizeRequest(in, out, size));
    EXPECT_THAT(text, testing::StartsWith(std::string(R"({"returnValue":true,)") + dimensions));
    EXPECT_EQ(text.substr(text.rfind(':') + 1), std::to_string(fs::file_size(out)) + "}");
    EXPECT_LE(fs::file_size(out), static_cast<unsigned>(size));
  }
}

TEST_F(RequestsTest, TriesFourLevelsAndKeepsTheLastAttempt) {
  EXPECT_EQ(reply("resizeImage", resizeRequest(in, out, 0)), R"({"returnValue":false})");
  EXPECT_EQ(runCommand("identify -format '%wx%h' " + out).out, "128x96");
  std::vector<std::string> tried;
  std::istringstream log(system.bus().log());
  for (std::string line; std::getline(log, line);) {
    const size_t found = line.find("trying res ");
    if (found != std::string::npos) tried.push_back(line.substr(found));
  }
  EXPECT_THAT(tried, testing::ElementsAre(
                         "trying res 1008x752, quality 85", "trying res 512x384, quality 85",
                         "trying res 256x192, quality 85", "trying res 128x96, quality 85"));
}

TEST_F(RequestsTest, MovieInformationWithoutAFileIsRefused) {
  for (const char* payload : {"{}", R"({"inFile":3})", "[]"}) {
    EXPECT_EQ(reply("getMovieInfo", payload), failure(R"(Could not parse inFile param string\n)"));
  }
}

TEST_F(RequestsTest, StandardErrorsForWhatTheServiceDoesNotHave) {
  auto& client = system.client();
  EXPECT_EQ(system.call("noSuchMethod", "{}").errorName,
            "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(client.call(kTranscode, "/nowhere", kTranscode, "resizeImage", "{}").errorName,
            "org.freedesktop.DBus.Error.UnknownObject");
  EXPECT_EQ(client.call(kTranscode, "/", "com.tarn.other", "resizeImage", "{}").errorName,
            "org.freedesktop.DBus.Error.UnknownInterface");
  EXPECT_EQ(
      client.callRaw(kTranscode, "/", kTranscode, "resizeImage", g_variant_new("(ss)", "{}", "{}"))
          .errorName,
      "org.freedesktop.DBus.Error.InvalidArgs");
}

TEST_F(RequestsTest, TheInstalledInterfaceIsTheOneThatTheDaemonTells) {
  const auto told = system.client().callRaw(kTranscode, "/", "org.freedesktop.DBus.Introspectable",
                                            "Introspect", nullptr);
  ASSERT_TRUE(told.ok) << told.errorMessage;
  EXPECT_EQ(interfaceIn(told.reply),
            interfaceIn(readFile(installed("share/dbus-1/interfaces/com.tarn.transcode.xml"))));
}

TEST_F(RequestsTest, OversizedPayloadsAreRefusedAndTheServiceLivesOn) {
  EXPECT_EQ(system.call("resizeImage", std::string((64 << 10) + 1, ' ')).errorName,
            "org.freedesktop.DBus.Error.LimitsExceeded");
  EXPECT_EQ(reply("getMinimalBitrate", "{}"), "{\"returnValue\": 204800}");
}

TEST_F(RequestsTest, AnyBusToolStartsTheDaemonAndGetsItsReply) {
  const std::string command =
      "DBUS_SESSION_BUS_ADDRESS='" + system.bus().address() +
      "' gdbus call --session --dest com.tarn.transcode --object-path / --method "
      "com.tarn.transcode.resizeImage '" +
      resizeRequest(in, out, pictureBytes / 3) + "'";
  const auto output = runCommand(command);
  EXPECT_EQ(output.exitCode, 0);
  EXPECT_THAT(output.out, testing::StartsWith(R"(('{"returnValue":true,"xSize":)"));
}

}  // namespace
