// How far the making of a photo is: the time that it took over that and what is likely to come.
//
// What an encode costs depends on the format, the picture and the machine, so that each step is
// timed, and those to come are taken to cost as much.
#ifndef FIT_PHOTO_PHOTO_PROGRESS_H
#define FIT_PHOTO_PHOTO_PROGRESS_H

#include <functional>

#include "fit/photo/photo_kind.h"
#include "fit/search/budget_search.h"

class PhotoProgress {
 public:
  // Seconds of this process's work so far.
  using Clock = std::function<double()>;

  struct Work {
    double sourcePixels = 0;
    double comparedPixels = 0;
    double maxBytes = 0;
    PhotoKind format = PhotoKind::Jpeg;
  };

  // `listener` hears shares, each larger than the one before.
  PhotoProgress(const Work& work, std::function<void(double)> listener,
                Clock clock = processorSeconds);

  void decoded(double share);
  // Each tells that a step is over.
  void encoded(double pixels);
  void judged();
  void finished(double pixels);
  // So much is likely to come, at about so many pixels.
  void expect(const SearchRest& rest, double pixels);

  static double processorSeconds();

 private:
  struct Pace {
    double seconds = 0;
    double amount = 0;
    double each() const { return seconds / amount; }
  };

  void step(double amount, Pace* pace);
  void tell(double share);

  const double decodeShare;  // of the whole; reckoned, until something is timed
  const double judgeCost;
  const double finishCost;
  std::function<void(double)> listener;
  Clock clock;
  double stepBegan = 0;
  Pace encodes;  // by the pixel
  Pace judgements;
  Pace finishes;  // by the pixel
  double told = 0;
};

#endif
