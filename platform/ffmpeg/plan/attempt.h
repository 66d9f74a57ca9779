// One encode as the plan wants it, and what became of it.
#ifndef PLATFORM_FFMPEG_PLAN_ATTEMPT_H
#define PLATFORM_FFMPEG_PLAN_ATTEMPT_H

#include <cstdint>
#include <optional>

#include "platform/ffmpeg/plan/budget.h"
#include "platform/ffmpeg/plan/complexity.h"
#include "platform/ffmpeg/plan/picture_ladder.h"
#include "platform/ffmpeg/plan/sound_choice.h"

// Bits for each pixel of each frame: with so many any encoder looks good, and care is wasted.
constexpr double kPlentyPerPixel = 0.2;

struct Attempt {
  enum class Kind {
    Plain,     // one encode without a log: no pictures are encoded, or the encoder keeps no log
    First,     // one pass at a bitrate; leaves a log, and its file may do
    Second,    // the second pass over that log
    Constant,  // one pass at a fixed quantiser
    Copy,      // no encode at all: both streams as they are
  };
  Kind kind = Kind::Plain;
  Rung picture;
  int64_t videoBitsPerSecond = 0;  // 0: the encoder's own choice
  int64_t toleranceBits = 0;       // how far the rate control may run ahead; 0: its own choice
  int quantiser = 0;               // Constant only, on the scale of video_coder.h
  SoundChoice sound;
  // The encode is hopeless as soon as it has written more than this; 0: let it run.
  int64_t stopBytes = 0;
  // Whether growing too fast for stopBytes is enough to stop it.
  bool stopsEarly = false;

  // Whether its bitrate is plenty for its pictures; never so at a fixed quantiser.
  bool hasPlenty() const {
    return videoBitsPerSecond > 0 &&
           static_cast<double>(videoBitsPerSecond) >=
               kPlentyPerPixel * picture.pixels() * picture.framesPerSecond;
  }
  // The coarsest that there is: its size is the answer, whatever it comes to.
  bool isFloor() const { return kind == Kind::Constant && stopBytes == 0; }
};

// One pass within the budget, of which the pictures get so many bits.
Attempt firstPass(const Rung& picture, const SoundChoice& sound, double videoBits,
                  const Budget& budget);
// The second over the log of a first that saw so many frames.
Attempt secondPass(const Rung& picture, const SoundChoice& sound, double videoBits, double frames,
                   const Budget& budget);
Attempt constantQuantiser(const Rung& picture, const SoundChoice& sound, int quantiser,
                          const Budget& budget);
// The codec's coarsest, whatever it comes to.
Attempt coarsest(const Rung& picture, const SoundChoice& sound, int quantiser);

struct Outcome {
  enum class End {
    Whole,
    Stopped,  // beyond stopBytes, or about to be
    TooLow,   // the second pass found no way down to the bitrate
  };
  End end = End::Whole;
  int64_t bytes = 0;
  int64_t videoBytes = 0;
  std::optional<Complexity> log;  // of a first pass
};

#endif
