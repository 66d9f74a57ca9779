// What the daemon leaves to the process on purpose: the loop of a run, and the text of the caps in
// the handler of "autoplug-select"; and a table of GLib. Only asked for in leak checker builds.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
const char* __lsan_default_suppressions() {
  return "leak:g_main_loop_new\nleak:autoplugSelectBindingCallback\nleak:call_init\n";
}

// GLib has no frame pointers: without this the leak checker does not see past g_malloc.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
