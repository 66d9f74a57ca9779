// What the files of one message may have, for the messages that people send.
#ifndef CLIENT_UNITS_MESSAGE_ROOM_H
#define CLIENT_UNITS_MESSAGE_ROOM_H

#include <cstdint>
#include <optional>
#include <string>

// The bytes that are left for files in a message of that kind: "mms-300k", "mail-10m"... Nothing
// when there is no such kind.
std::optional<int32_t> messageRoom(const std::string& kind);

// "mms-300k, mms-600k, ... or mail-25m"
std::string messageKinds();

#endif
