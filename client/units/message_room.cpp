#include "client/units/message_room.h"

namespace {

// The file goes as it is, beside the page that shows it and the names of both.
constexpr int32_t roomInMms(int32_t limit) {
  return limit - 4'000;
}

// Base64 writes 57 bytes as 76 letters and the end of a line. The rest is for headers and words.
constexpr int32_t roomInMail(int32_t limit) {
  return static_cast<int32_t>((limit - 20'000) * int64_t{57} / 78);
}

constexpr struct {
  const char* name;
  int32_t room;
} kKinds[] = {
    {"mms-300k", roomInMms(300'000)},     {"mms-600k", roomInMms(600'000)},
    {"mms-1m", roomInMms(1'000'000)},     {"mail-5m", roomInMail(5'000'000)},
    {"mail-10m", roomInMail(10'000'000)}, {"mail-25m", roomInMail(25'000'000)},
};

}  // namespace

std::optional<int32_t> messageRoom(const std::string& kind) {
  for (const auto& each : kKinds) {
    if (kind == each.name) return each.room;
  }
  return std::nullopt;
}

std::string messageKinds() {
  std::string names;
  for (const auto& each : kKinds) {
    const bool isLast = &each == std::end(kKinds) - 1;
    names += (names.empty() ? "" : isLast ? " or " : ", ") + std::string(each.name);
  }
  return names;
}
