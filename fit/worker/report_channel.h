// The way from a worker to the service that started it.
#ifndef FIT_WORKER_REPORT_CHANNEL_H
#define FIT_WORKER_REPORT_CHANNEL_H

#include <string>

class ReportChannel {
 public:
  // Borrows the descriptor, the writing end of a pipe.
  explicit ReportChannel(int descriptor) : fd(descriptor) {}

  // The kernel ends this process with the service from here on; at once where it has died already.
  void endWithService() const;
  void tell(const std::string& line) const;
  // The end of the service does not interrupt what follows: the output is whole or empty.
  void tellWriting() const;

 private:
  const int fd;
};

#endif
