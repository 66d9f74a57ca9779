// The elements of the movie pipeline. Each file of an element offers one function that registers
// it; the entry of the plug-in calls them all.
//
// Errors: false if GStreamer refuses the element; the plug-in is then not loaded.
#ifndef PLATFORM_GSTREAMER_MOVIE_ELEMENTS_H
#define PLATFORM_GSTREAMER_MOVIE_ELEMENTS_H

#include <gst/gst.h>

// "decodebin2": finds the demuxer and the decoders of a file by itself.
bool registerDecodeBin2(GstPlugin* plugin);
// "tarnvideoencoder": encodes raw pictures for an MPEG-4 file.
bool registerVideoEncoder(GstPlugin* plugin);
// "tarnaudioencoder": encodes raw sound for an MPEG-4 file.
bool registerAudioEncoder(GstPlugin* plugin);
// "tarnmpeg4mux": writes one video and one audio stream into an MPEG-4 file.
bool registerMpeg4Mux(GstPlugin* plugin);
// "tarnamrdemux" and "tarnmp3demux": hand on bare streams of AMR and MP3 frames.
bool registerBareDemuxers(GstPlugin* plugin);

#endif
