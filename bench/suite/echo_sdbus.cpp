// A service that does nothing: answers each call with the text it came with, by sd-bus.
//
//     echo_sdbus NAME
#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

int answer(sd_bus_message* call, void*, sd_bus_error*) {
  const char* text = nullptr;
  const int result = sd_bus_message_read(call, "s", &text);
  return result < 0 ? result : sd_bus_reply_method_return(call, "s", text);
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("echo", "s", "s", answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int fail(int error) {
  fprintf(stderr, "echo_sdbus: %s\n", strerror(-error));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  sd_bus* bus = nullptr;
  int result = sd_bus_open_user(&bus);
  if (result >= 0) {
    result = sd_bus_add_object_vtable(bus, nullptr, "/", "com.tarn.Echo", kMethods, nullptr);
  }
  if (result >= 0) result = sd_bus_request_name(bus, argv[1], 0);
  while (result >= 0) {
    result = sd_bus_process(bus, nullptr);
    if (result == 0) result = sd_bus_wait(bus, UINT64_MAX);
  }
  return fail(result);
}
