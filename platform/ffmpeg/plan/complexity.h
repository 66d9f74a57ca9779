// How hard a clip is to encode: what its frames cost at a quantiser, by an encoder's pass log.
#ifndef PLATFORM_FFMPEG_PLAN_COMPLEXITY_H
#define PLATFORM_FFMPEG_PLAN_COMPLEXITY_H

#include <optional>
#include <string_view>

// One encode's frames, summed up from its log.
struct Complexity {
  int intraFrames = 0;
  int interFrames = 0;
  double intraBits = 0;
  double interBits = 0;
  double quantiser = 0;  // mean over the bits, on the scale of video_coder.h
  double spread = 0;     // of the frames' quantisers: standard deviation over mean

  int frames() const { return intraFrames + interFrames; }
  double bits() const { return intraBits + interBits; }
  // Whether the bits are spread over many frames, rather than spent on a few key frames.
  bool isEven() const { return interBits > intraBits; }
  // What `frames` frames would have cost, `intra` of them coded by themselves.
  double bitsOf(double frames, double intra) const;

  // Adds another part of the same clip, encoded alike.
  void add(const Complexity& other);
};

// Reads the log that libavcodec's MPEG-4 and H.263 encoders write in a first pass: one line a
// frame, "in:0 out:0 type:1 q:236 itex:24714 ptex:0 mv:0 misc:1699 …", q in units of 1/118; or
// x264's, "in:0 out:0 type:I dur:2 cpbdur:2 q:24.50 aq:19.89 tex:9876 mv:543 misc:210 …".
// Nothing when it holds no such line.
std::optional<Complexity> parsePassLog(std::string_view log);

#endif
