#include "platform/vela/stop_notice.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vela {

void notifyStopping() {
  const char* variable = getenv("NOTIFY_SOCKET");
  const std::string_view path = variable != nullptr ? variable : "";
  sockaddr_un address{};
  if (path.size() < 2 || path.size() >= sizeof(address.sun_path) ||
      (path[0] != '/' && path[0] != '@')) {
    return;
  }
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path.data(), path.size());
  if (path[0] == '@') {
    address.sun_path[0] = '\0';
  }
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) {
    return;
  }
  constexpr std::string_view kText = "STOPPING=1";
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  sendto(fd, kText.data(), kText.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
         length);
  close(fd);
}

}  // namespace vela
