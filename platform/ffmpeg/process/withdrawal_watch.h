// Ends this process when whoever asked for its output has gone.
#ifndef PLATFORM_FFMPEG_PROCESS_WITHDRAWAL_WATCH_H
#define PLATFORM_FFMPEG_PROCESS_WITHDRAWAL_WATCH_H

#include <sys/types.h>

#include <string>

// While one exists, an output that was asked for under a held name (platform/held/held_file.h) and
// is let go is removed and this process gets SIGTERM, wherever it stands: waiting for its turn,
// reading or encoding. A process of its own waits for that, which ends with us. Outputs of other
// names are not watched. Made before a sandbox is entered.
class WithdrawalWatch {
 public:
  explicit WithdrawalWatch(const std::string& output);
  ~WithdrawalWatch();
  WithdrawalWatch(const WithdrawalWatch&) = delete;
  WithdrawalWatch& operator=(const WithdrawalWatch&) = delete;

 private:
  pid_t process = -1;
};

#endif
