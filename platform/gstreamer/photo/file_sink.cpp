// The element "filesink".
//
// Stands in for GStreamer's element of that name, which writes what comes as it comes: on a full
// disk it leaves a picture that is cut. This one keeps the picture until its end has come and then
// puts all of it into the file, which has been empty since the start, or leaves it empty.
//
// An output that was withdrawn is removed instead. What was begun before exit() is not written any
// more: the next process makes it again, in the same file.
//
// It starts all the same where it cannot write, and fails when the picture comes: a pipeline that
// has not started keeps its messages when it stops, and whoever left a watch behind gets them too
// late.
//
// Thread: the streaming thread writes; start and stop are called when no such thread runs.
#include <gst/base/gstbasesink.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>

#include "platform/gstreamer/define_type.h"
#include "platform/gstreamer/gst_ref.h"
#include "platform/gstreamer/photo/elements.h"
#include "platform/gstreamer/photo/whole_file.h"
#include "platform/held/held_file.h"

struct TarnFileSink {
  GstBaseSink parent;
  gchar* location;     // owned
  GstBuffer* picture;  // owned; what came so far, or null
  int fd;
  int openError;  // errno where the file could not be opened
  int life;       // of the process, in which it was started
};
struct TarnFileSinkClass {
  GstBaseSinkClass parent;
};

static GType tarn_file_sink_get_type();
TARN_DEFINE_TYPE(TarnFileSink, tarn_file_sink, GST_TYPE_BASE_SINK)

namespace {

enum { PropLocation = 1 };

GstStaticPadTemplate gSinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

std::mutex gWriting;  // held while a file is opened or written
// The process lives once more when it serves on while it ends; what began before is over by then.
int gLife = 1;
int gWatchedLife = 0;
pid_t gProcess = 0;

// Not in a child that was forked meanwhile: who held the lock is not there.
void noteExit() {
  if (getpid() != gProcess) return;
  const std::lock_guard lock(gWriting);
  ++gLife;
}

// As late as it is registered, it is called before what hands requests over to the next process.
int watchedLife() {
  gProcess = getpid();
  if (gWatchedLife != gLife) atexit(noteExit);
  gWatchedLife = gLife;
  return gLife;
}

TarnFileSink* fileSink(gpointer object) {
  return static_cast<TarnFileSink*>(object);
}

bool refuseWithdrawn(TarnFileSink* self) {
  unlink(self->location);
  GST_ELEMENT_ERROR(self, RESOURCE, NOT_FOUND, ("Nobody waits for the picture any more."),
                    ("%s", self->location));
  return false;
}

gboolean start(GstBaseSink* sink) {
  TarnFileSink* self = fileSink(sink);
  const std::lock_guard lock(gWriting);
  self->life = watchedLife();
  self->openError = ENOENT;  // of no name, and of what was withdrawn
  if (self->location == nullptr || isWithdrawn(self->location)) return TRUE;
  self->fd = openEmptyFile(self->location);
  self->openError = errno;
  return TRUE;
}

bool refuseUnopened(TarnFileSink* self) {
  if (self->location == nullptr) {
    GST_ELEMENT_ERROR(self, RESOURCE, NOT_FOUND, ("No file name was given."), (nullptr));
    return false;
  }
  if (isWithdrawn(self->location)) return refuseWithdrawn(self);
  GST_ELEMENT_ERROR(self, RESOURCE, OPEN_WRITE, ("The file cannot be written."),
                    ("%s: %s", self->location, g_strerror(self->openError)));
  return false;
}

void drop(TarnFileSink* self) {
  gst_clear_buffer(&self->picture);
}

gboolean stop(GstBaseSink* sink) {
  TarnFileSink* self = fileSink(sink);
  drop(self);
  if (self->fd >= 0) close(self->fd);
  self->fd = -1;
  return TRUE;
}

GstFlowReturn render(GstBaseSink* sink, GstBuffer* buffer) {
  TarnFileSink* self = fileSink(sink);
  if (self->fd < 0) {
    refuseUnopened(self);
    return GST_FLOW_ERROR;
  }
  gst_buffer_ref(buffer);
  self->picture = self->picture == nullptr ? buffer : gst_buffer_append(self->picture, buffer);
  return GST_FLOW_OK;
}

bool write(TarnFileSink* self) {
  GstMapInfo bytes;
  if (!gst_buffer_map(self->picture, &bytes, GST_MAP_READ)) {
    errno = ENOMEM;
    return false;
  }
  const bool written = writeWhole(self->fd, bytes);
  const int error = errno;
  gst_buffer_unmap(self->picture, &bytes);
  errno = error;
  return written;
}

bool putInPlace(TarnFileSink* self) {
  const std::lock_guard lock(gWriting);
  if (self->life != gLife) return false;
  if (self->fd < 0) return refuseUnopened(self);
  if (hasHeldName(self->location) && isLetGo(self->fd)) return refuseWithdrawn(self);
  if (self->picture == nullptr || write(self)) return true;
  if (errno == ENOSPC || errno == EDQUOT || errno == EFBIG) {
    GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is no space left for the picture."),
                      ("%s: %s", self->location, g_strerror(errno)));
  } else {
    GST_ELEMENT_ERROR(self, RESOURCE, WRITE, ("The picture cannot be written."),
                      ("%s: %s", self->location, g_strerror(errno)));
  }
  return false;
}

gboolean takeEvent(GstBaseSink* sink, GstEvent* event) {
  TarnFileSink* self = fileSink(sink);
  if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) drop(self);
  if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) {
    const bool inPlace = putInPlace(self);
    drop(self);
    if (!inPlace) {
      gst_event_unref(event);
      return FALSE;
    }
  }
  return GST_BASE_SINK_CLASS(tarn_file_sink_parent_class)->event(sink, event);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* property) {
  if (id != PropLocation) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
    return;
  }
  g_free(fileSink(object)->location);
  fileSink(object)->location = g_value_dup_string(value);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* property) {
  if (id == PropLocation) {
    g_value_set_string(value, fileSink(object)->location);
  } else {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, property);
  }
}

void finalize(GObject* object) {
  drop(fileSink(object));
  g_free(fileSink(object)->location);
  G_OBJECT_CLASS(tarn_file_sink_parent_class)->finalize(object);
}

}  // namespace

static void tarn_file_sink_class_init(TarnFileSinkClass* type) {
  auto* object = G_OBJECT_CLASS(type);
  object->set_property = setProperty;
  object->get_property = getProperty;
  object->finalize = finalize;
  g_object_class_install_property(
      object, PropLocation,
      g_param_spec_string("location", "Location", "The file to write", nullptr,
                          static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
  auto* sink = GST_BASE_SINK_CLASS(type);
  sink->start = start;
  sink->stop = stop;
  sink->render = render;
  sink->event = takeEvent;
  auto* element = GST_ELEMENT_CLASS(type);
  gst_element_class_add_static_pad_template(element, &gSinkTemplate);
  gst_element_class_set_static_metadata(element, "Picture file", "Sink/File",
                                        "Writes whole pictures into a file",
                                        "The developers of the transcoding service");
}

static void tarn_file_sink_init(TarnFileSink* self) {
  self->fd = -1;
  gst_base_sink_set_sync(GST_BASE_SINK(self), FALSE);
}

bool registerFileSink(GstPlugin* plugin) {
  return gst_element_register(plugin, kFileSinkName, GST_RANK_NONE, tarn_file_sink_get_type());
}
