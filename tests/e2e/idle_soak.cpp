// Many calls to a daemon that ends after every 20 ms: idle_soak CALLS
//
// Four clients ask for bitrates, photos and movies, every tenth time by the daemon's unique name.
// Tells how many lives that took, and fails unless every call was answered right and once.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <thread>

#include "tests/e2e/installed_system.h"
#include "tests/e2e/movie_facts.h"
#include "tests/e2e/scripted_ffmpeg.h"
#include "tests/support/jpeg_media.h"

namespace {

using tarn::test::BusClient;

struct Request {
  std::string method;
  std::string payload;
  std::string answer;  // how it begins
};

class Soak {
 public:
  explicit Soak(int calls) : callsEach(calls / kClients) {
    JpegRecipe recipe;
    recipe.width = 160;
    recipe.height = 120;
    writeBytes(system.files() / "in.jpg", makeJpeg(recipe));
    system.files().write("in.mp4", std::string(1000000, 'x'));
  }

  bool run() {
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
      clients.emplace_back([this, i] { callFrom(i); });
    }
    for (std::thread& client : clients) {
      client.join();
    }
    return report();
  }

 private:
  static constexpr int kClients = 4;

  Request request(const std::string& id, int number) const {
    const std::string out = system.files() / id;
    if (number % 100 == 50) {
      return {"resizeImage", resizeRequest(system.files() / "in.jpg", out + ".jpg", 100000),
              R"({"returnValue":true,"xSize":160,)"};
    }
    if (number % 500 == 250) {
      return {"resizeMovie", movieRequest(system.files() / "in.mp4", out + ".mp4", R"("passes":1)"),
              R"({"returnValue":true})"};
    }
    return {"getMinimalBitrate", id, R"({"returnValue": 204800})"};
  }

  void callFrom(int client) {
    BusClient bus(system.bus().address());
    for (int i = 0; i < callsEach; ++i) {
      const Request asked = request(std::to_string(client) + "-" + std::to_string(i), i);
      const std::string unique = i % 10 == 0 ? bus.ownerOf(kTranscode) : "";
      auto result = bus.call(unique.empty() ? kTranscode : unique, "/", kTranscode, asked.method,
                             asked.payload);
      if (!unique.empty() && result.errorName == "org.freedesktop.DBus.Error.ServiceUnknown") {
        // It was gone already, and nobody has had the call.
        result = bus.call(kTranscode, "/", kTranscode, asked.method, asked.payload);
      }
      if (result.reply.rfind(asked.answer, 0) == 0) continue;
      ++lost;
      fprintf(stderr, "%s %s%s: %s %s %s\n", asked.method.c_str(), asked.payload.c_str(),
              unique.empty() ? "" : " by the unique name", result.reply.c_str(),
              result.errorName.c_str(), result.errorMessage.c_str());
    }
  }

  // Each line of the log is a process id and the payload that it answered.
  bool report() {
    std::set<std::string> lives;
    std::map<std::string, int> runs;
    std::istringstream lines(readFile(log));
    for (std::string line; std::getline(lines, line);) {
      const size_t space = line.find(' ');
      lives.insert(line.substr(0, space));
      ++runs[line.substr(space + 1)];
    }
    int twice = 0;
    for (const auto& [payload, count] : runs) {
      twice += count == 1 ? 0 : 1;
    }
    const int calls = callsEach * kClients;
    printf("%d calls over %zu lives: %d lost, %d run twice\n", calls, lives.size(), lost.load(),
           twice);
    return lost == 0 && twice == 0 && runs.size() == static_cast<size_t>(calls);
  }

  const int callsEach;
  const TempDir dir;
  const std::string log = dir / "replies";
  const ScriptedFfmpeg ffmpeg{"cp \"$input\" \"$output\""};
  InstalledSystem system{"/usr/bin/env TEST_REPLY_LOG=" + log + " " +
                         ffmpeg.daemon(20).substr(std::string("/usr/bin/env ").size())};
  std::atomic<int> lost{0};
};

}  // namespace

int main(int argc, char** argv) {
  const int calls = argc == 2 ? atoi(argv[1]) : 0;
  if (calls < 4) {
    fprintf(stderr, "usage: %s CALLS\n", argv[0]);
    return 2;
  }
  return Soak(calls).run() ? 0 : 1;
}
