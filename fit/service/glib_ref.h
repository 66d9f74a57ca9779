// Owners of GLib's things.
#ifndef FIT_SERVICE_GLIB_REF_H
#define FIT_SERVICE_GLIB_REF_H

#include <gio/gio.h>
#include <unistd.h>

#include <memory>
#include <utility>

struct UnrefObject {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using ObjectRef = std::unique_ptr<Object, UnrefObject>;

struct FreeError {
  void operator()(GError* error) const { g_error_free(error); }
};
using ErrorRef = std::unique_ptr<GError, FreeError>;

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : fd(descriptor) {}
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }

  int get() const { return fd; }
  bool isOpen() const { return fd >= 0; }

 private:
  int fd = -1;
};

#endif
