// Whose turn it is: the transcodes of one user, on one machine, one after the other.
#ifndef PLATFORM_FFMPEG_PROCESS_ENCODE_SLOTS_H
#define PLATFORM_FFMPEG_PROCESS_ENCODE_SLOTS_H

#include <cstdint>
#include <string>
#include <vector>

// There are as many slots as processors, and all of them together stand for the memory that
// encoders may use. They are locks on parts of one file, which the kernel gives back at the moment
// their holder is gone, however it went.
class EncodeSlots {
 public:
  // What all encoders together may use.
  static constexpr int64_t kAllBytes = int64_t{800} << 20;

  // The file is made in `folder`; where that is empty, or the file cannot be had, nobody waits.
  explicit EncodeSlots(const std::string& folder);
  ~EncodeSlots();
  EncodeSlots(const EncodeSlots&) = delete;
  EncodeSlots& operator=(const EncodeSlots&) = delete;

  // Waits until all who came before us have begun or are gone, and a slot is free, which we then
  // hold. To be called once. A signal ends the wait only when it ends the process.
  void awaitTurn();
  // Waits for further slots until ours stand for `bytes` of memory, or all slots are ours. Who
  // comes next has its turn from here on. Returns the memory that our slots stand for.
  int64_t begin(int64_t bytes);

 private:
  bool lock(int64_t place, int64_t length, bool waits) const;
  void unlock(int64_t place, int64_t length) const;
  int64_t takeTicket() const;
  void takeSlot();

  int fd = -1;
  int64_t slots;
  std::vector<int64_t> held;  // places
  int64_t ticket = 0;
};

#endif
