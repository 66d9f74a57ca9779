// TarnEncoderBin is what the two encoders share: converters, one of the machine's encoders and a
// parser, behind the pads "sink" and "src" and the property "enable".
//
// While it is not enabled data waits at the sink, events pass. Data that waits longer than
// EnableGate::patience gets an ERROR message: half of the movie is missing.
//
// Thread: "enable" may be set from any thread, a streaming thread included.
#ifndef PLATFORM_GSTREAMER_MOVIE_ENCODER_BIN_H
#define PLATFORM_GSTREAMER_MOVIE_ENCODER_BIN_H

#include <gst/gst.h>

class EnableGate;

struct TarnEncoderBin {
  GstBin parent;
  EnableGate* gate;  // owned
  gboolean usable;   // one of the choices could be built
};

struct TarnEncoderBinClass {
  GstBinClass parent;
  // Descriptions of the inside, as gst-launch reads them, the best first and null at the end. The
  // first whose elements are all installed is used.
  const char* const* choices;
};

GType tarn_encoder_bin_get_type();
#define TARN_TYPE_ENCODER_BIN (tarn_encoder_bin_get_type())
#define TARN_ENCODER_BIN_CLASS(type) (reinterpret_cast<TarnEncoderBinClass*>(type))

#endif
