#include "src/framework/make_dest_dir.h"

#include <glib.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};
using CString = std::unique_ptr<char, Free>;

bool exists(const char* path) {
  struct stat attributes;
  return stat(path, &attributes) == 0;
}

// The last component of path, which is cut into its components: each separator that another
// component follows becomes a NUL.
const char* splitOffLast(char* path) {
  const char* last = nullptr;
  char* rest = nullptr;
  for (char* token = strtok_r(path, "/", &rest); token != nullptr;
       token = strtok_r(nullptr, "/", &rest)) {
    last = token;
  }
  return last;
}

}  // namespace

int makeDestDir(const char* path) {
  const CString directory(strdup(path));
  if (directory == nullptr) return errno;

  const char* last = splitOffLast(directory.get());
  if (strcmp(last, path) == 0) return 0;

  // No terminator is copied: the NUL that the split left before the last component ends the text.
  memcpy(directory.get(), path, strlen(path) - strlen(last) - 1);
  if (exists(directory.get())) return 0;

  const size_t madeSize = strlen(path) + 1;
  const CString made(static_cast<char*>(calloc(madeSize, 1)));
  if (made == nullptr) return errno;
  char* rest = nullptr;
  for (char* token = strtok_r(directory.get(), "/", &rest); token != nullptr;
       token = strtok_r(nullptr, "/", &rest)) {
    g_strlcat(made.get(), "/", madeSize);
    g_strlcat(made.get(), token, madeSize);
    if (!exists(made.get()) && mkdir(made.get(), 0777) != 0) return errno;
  }
  return 0;
}
