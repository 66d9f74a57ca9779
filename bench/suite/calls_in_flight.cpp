// Keeps so many calls in flight until all are answered, and prints how long that took, in seconds.
//
//     calls_in_flight NAME INTERFACE METHOD IN-FLIGHT CALLS
//
// By sd-bus, the quickest there is, so that what is measured is the service and the bus.
#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Load {
  sd_bus* bus;
  const char* name;
  const char* interface;
  const char* method;
  long left;      // to be sent
  long answers;   // still to come
  int error = 0;  // of the first that failed
};

int send(Load* load);

int onAnswer(sd_bus_message* answer, void* data, sd_bus_error*) {
  auto* load = static_cast<Load*>(data);
  load->answers--;
  if (sd_bus_message_is_method_error(answer, nullptr) != 0 && load->error == 0) {
    load->error = -sd_bus_message_get_errno(answer);
  }
  return load->left > 0 ? send(load) : 0;
}

int send(Load* load) {
  load->left--;
  return sd_bus_call_method_async(load->bus, nullptr, load->name, "/", load->interface,
                                  load->method, onAnswer, load, "s", "{}");
}

int run(Load* load, long inFlight) {
  int result = 0;
  for (long i = 0; i < inFlight && load->left > 0 && result >= 0; i++) {
    result = send(load);
  }
  while (result >= 0 && load->answers > 0 && load->error == 0) {
    result = sd_bus_process(load->bus, nullptr);
    if (result == 0) result = sd_bus_wait(load->bus, UINT64_MAX);
  }
  return result < 0 ? result : load->error;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  const long calls = atol(argv[5]);
  Load load = {nullptr, argv[1], argv[2], argv[3], calls, calls};
  int result = sd_bus_open_user(&load.bus);
  const auto start = std::chrono::steady_clock::now();
  if (result >= 0) result = run(&load, atol(argv[4]));
  if (result < 0) {
    fprintf(stderr, "calls_in_flight: %s\n", strerror(-result));
    return 1;
  }
  printf("%.6f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  sd_bus_flush_close_unref(load.bus);
}
