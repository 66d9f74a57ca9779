#include "platform/ffmpeg/process/encode_slots.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace {

// Places in the file that locks stand on. Nothing is stored but the last ticket, at the beginning.
constexpr int64_t kCounter = 0;
constexpr int64_t kFirstSlot = 1;
constexpr int64_t kFirstTicket = 1000;
constexpr int64_t kLastTicket = int64_t{1} << 62;
// Only the one whose turn it is looks for a free slot, and no call waits for "any of these".
constexpr int kLookEveryMs = 20;

}  // namespace

EncodeSlots::EncodeSlots(const std::string& folder)
    : slots(std::clamp<int64_t>(std::thread::hardware_concurrency(), 1, 64)) {
  if (folder.empty()) return;
  fd = open((folder + "/slots").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  const bool hasLocks = fd >= 0 && lock(kCounter, 1, true);
  if (hasLocks) {
    unlock(kCounter, 1);
  } else if (fd >= 0) {
    close(fd);
    fd = -1;
  }
}

EncodeSlots::~EncodeSlots() {
  if (fd >= 0) close(fd);
}

// Of the descriptor and not of the process, whose locks would go with any descriptor of the file.
bool EncodeSlots::lock(int64_t place, int64_t length, bool waits) const {
  struct flock wanted {};
  wanted.l_type = F_WRLCK;
  wanted.l_whence = SEEK_SET;
  wanted.l_start = place;
  wanted.l_len = length;
  int result = 0;
  do {
    result = fcntl(fd, waits ? F_OFD_SETLKW : F_OFD_SETLK, &wanted);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

void EncodeSlots::unlock(int64_t place, int64_t length) const {
  struct flock wanted {};
  wanted.l_type = F_UNLCK;
  wanted.l_whence = SEEK_SET;
  wanted.l_start = place;
  wanted.l_len = length;
  fcntl(fd, F_OFD_SETLK, &wanted);
}

// A number above everybody's who waits, whatever the file holds.
int64_t EncodeSlots::takeTicket() const {
  lock(kCounter, 1, true);
  int64_t last = 0;
  if (pread(fd, &last, sizeof(last), 0) != sizeof(last)) last = 0;
  int64_t mine = last >= kFirstTicket && last < kLastTicket ? last + 1 : kFirstTicket;
  while (!lock(mine, 1, false)) {
    ++mine;
  }
  // Should that fail, the next one finds a free number all the same.
  [[maybe_unused]] const ssize_t written = pwrite(fd, &mine, sizeof(mine), 0);
  unlock(kCounter, 1);
  return mine;
}

void EncodeSlots::takeSlot() {
  for (;;) {
    for (int64_t slot = kFirstSlot; slot < kFirstSlot + slots; ++slot) {
      const bool isOurs = std::find(held.begin(), held.end(), slot) != held.end();
      if (isOurs || !lock(slot, 1, false)) continue;
      held.push_back(slot);
      return;
    }
    poll(nullptr, 0, kLookEveryMs);
  }
}

void EncodeSlots::awaitTurn() {
  if (fd < 0) return;
  ticket = takeTicket();
  if (ticket > kFirstTicket) {
    lock(kFirstTicket, ticket - kFirstTicket, true);  // no lower ticket is held any more
    unlock(kFirstTicket, ticket - kFirstTicket);
  }
  takeSlot();
}

int64_t EncodeSlots::begin(int64_t bytes) {
  if (fd < 0) return std::min(std::max(bytes, kAllBytes / 2), kAllBytes);
  const int64_t share = kAllBytes / slots;
  const int64_t needed = std::clamp<int64_t>((bytes + share - 1) / share, 1, slots);
  while (std::ssize(held) < needed) {
    takeSlot();
  }
  unlock(ticket, 1);
  return std::ssize(held) * share;
}
