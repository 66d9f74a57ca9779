#include "client/service/interrupts.h"

#include <glib-unix.h>
#include <signal.h>

namespace {

bool isIgnored(int number) {
  struct sigaction now = {};
  return sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

}  // namespace

Interrupts::Interrupts() : watches{{this, SIGINT, 0}, {this, SIGTERM, 0}, {this, SIGHUP, 0}} {
  for (Watch& each : watches) {
    if (!isIgnored(each.number)) watch(&each);
  }
}

void Interrupts::watch(Watch* watch) {
  watch->source = g_unix_signal_add(
      watch->number,
      [](gpointer data) -> gboolean {
        const auto* came = static_cast<const Watch*>(data);
        if (came->all->first == 0) came->all->first = came->number;
        return G_SOURCE_CONTINUE;
      },
      watch);
}

Interrupts::~Interrupts() {
  for (const Watch& watch : watches) {
    if (watch.source != 0) g_source_remove(watch.source);
  }
}

int Interrupts::received() {
  const bool isDispatching = g_main_depth() > 0;  // they come by themselves then
  while (first == 0 && !isDispatching && g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  return first;
}
