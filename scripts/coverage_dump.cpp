// Linked into the programs of scripts/coverage, before _exit (--wrap): what a process counted is
// written down also where it ends without leaving main.
extern "C" {

void __gcov_dump();
[[noreturn]] void __real__exit(int status);

[[noreturn]] void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}
}
