// How far the making of a photo is, by the work that its steps take.
#ifndef FIT_PHOTO_PHOTO_PROGRESS_H
#define FIT_PHOTO_PHOTO_PROGRESS_H

#include <functional>

class PhotoProgress {
 public:
  // `listener` hears shares, each larger than the one before.
  PhotoProgress(double sourcePixels, double comparedPixels, double maxBytes,
                std::function<void(double)> listener);

  void decoded(double share);
  void encoded(double pixels);
  void judged(double pixels);

 private:
  void tell(double share);

  const double decodeWork;
  const double compareWork;
  double encodeWork;  // of all that are expected
  double encodedWork = 0;
  double told = 0;
  std::function<void(double)> listener;
};

#endif
