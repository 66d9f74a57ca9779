// Encodes one photo at any scale, and tells how alike each result looks.
#ifndef FIT_PHOTO_PHOTO_CODEC_H
#define FIT_PHOTO_PHOTO_CODEC_H

#include <string>
#include <vector>

#include "fit/photo/photo_formats.h"
#include "fit/photo/photo_progress.h"
#include "fit/picture/picture.h"
#include "fit/search/budget_search.h"

// What is to come out.
struct PhotoTarget {
  PhotoKind format = PhotoKind::Jpeg;
  PhotoFormats* formats = nullptr;  // borrowed; not of a JPEG
  Segments metadata;                // not of a JPEG
};

class PhotoCodec : public SearchCodec {
 public:
  // The picture may be smaller than the photo, whose size is `whole`. Borrows the progress.
  PhotoCodec(Picture picture, const PictureSize& whole, PhotoTarget target,
             PhotoProgress* progress);

  double nearest(double coarseness) const override;
  // A JPEG is tried without progression: it looks the same, for a third of the time.
  bool encode(double scale, double coarseness, int64_t* bytes) override;
  bool judge(double* similarity) override;
  bool finish(int64_t* bytes) override;
  void keep() override;
  // Decodes it, so that nothing comes out that cannot be.
  bool judgeKept(double* similarity) override;
  void expect(const SearchRest& rest) override;

  // What is encoded from here on is the picture alone.
  void shedMetadata() { target.metadata.clear(); }

  const std::string& errorText() const { return error; }
  PictureSize keptSize() const { return keptPicture; }
  std::vector<uint8_t> takeKept() { return std::move(kept); }

 private:
  const Picture& pictureOf(const PictureSize& size);
  bool isJpeg() const { return target.format == PhotoKind::Jpeg; }
  bool decode(const std::vector<uint8_t>& file, const PictureSize& size, Picture* picture);
  bool compare(const std::vector<uint8_t>& file, const PictureSize& size, double* similarity);

  const Picture source;
  const PictureSize whole;
  PhotoTarget target;
  PhotoProgress* const progress;
  Plane reference;  // luma, as large as pictures are compared
  Picture scaled;
  std::vector<uint8_t> last;
  PictureSize lastSize;
  std::vector<uint8_t> finished;
  double finishedShare = 0.972;  // of the bytes that the last one had before
  std::vector<uint8_t> kept;
  PictureSize keptPicture;
  std::string error;
};

#endif
