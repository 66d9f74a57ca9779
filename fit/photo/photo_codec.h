// Encodes one photo at any scale, and tells how alike each result looks.
#ifndef FIT_PHOTO_PHOTO_CODEC_H
#define FIT_PHOTO_PHOTO_CODEC_H

#include <string>
#include <vector>

#include "fit/photo/photo_progress.h"
#include "fit/picture/picture.h"
#include "fit/search/budget_search.h"

class PhotoCodec : public SearchCodec {
 public:
  // The picture may be smaller than the photo, whose size is `whole`. Borrows the progress.
  PhotoCodec(Picture picture, const PictureSize& whole, PhotoProgress* progress);

  bool encode(double scale, double coarseness, int64_t* bytes) override;
  // Decodes what was encoded, so that nothing is kept that cannot be.
  bool judge(double* similarity) override;
  void keep() override;

  const std::string& errorText() const { return error; }
  PictureSize keptSize() const { return keptPicture; }
  std::vector<uint8_t> takeKept() { return std::move(kept); }

 private:
  const Picture& pictureOf(const PictureSize& size);

  const Picture source;
  const PictureSize whole;
  PhotoProgress* const progress;
  Plane reference;  // luma, as large as pictures are compared
  Picture scaled;
  std::vector<uint8_t> last;
  PictureSize lastSize;
  std::vector<uint8_t> kept;
  PictureSize keptPicture;
  std::string error;
};

#endif
