#include "client/units/message_room.h"

#include <gtest/gtest.h>

namespace {

// As a mail program writes an attachment.
int64_t bytesInMail(int64_t fileBytes) {
  const int64_t letters = (fileBytes + 2) / 3 * 4;
  return letters + (letters + 75) / 76 * 2;
}

TEST(MessageRoom, LeavesAMailRoomForItsHeaders) {
  for (const auto& [kind, limit] :
       {std::pair("mail-5m", 5'000'000), std::pair("mail-10m", 10'000'000),
        std::pair("mail-25m", 25'000'000)}) {
    const int64_t bytes = bytesInMail(*messageRoom(kind));
    EXPECT_LE(bytes, limit - 19'990) << kind;
    EXPECT_GT(bytes, limit - 20'200) << kind;
  }
}

TEST(MessageRoom, LeavesAnMmsRoomForItsPage) {
  EXPECT_EQ(messageRoom("mms-300k"), 296'000);
  EXPECT_EQ(messageRoom("mms-600k"), 596'000);
  EXPECT_EQ(messageRoom("mms-1m"), 996'000);
}

TEST(MessageRoom, IsKnownOfTheKindsThatItNames) {
  EXPECT_EQ(messageRoom("mail"), std::nullopt);
  EXPECT_EQ(messageRoom(""), std::nullopt);
  EXPECT_EQ(messageKinds(), "mms-300k, mms-600k, mms-1m, mail-5m, mail-10m or mail-25m");
}

}  // namespace
