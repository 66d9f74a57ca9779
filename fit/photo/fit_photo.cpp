#include "fit/photo/fit_photo.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fit/photo/any_source.h"
#include "fit/photo/photo_codec.h"
#include "fit/photo/photo_progress.h"
#include "fit/picture/jpeg_writing.h"
#include "fit/search/budget_search.h"
#include "platform/jpeg/jpeg_metadata.h"

namespace {

// A picture that fits in so many bytes does not look better for having more pixels by this number,
// which falls with the bytes, of which a picture of more takes more a pixel.
constexpr double kMostPixelsPerByte = 10;
constexpr double kBytesOfThat = 300000;
constexpr double kFallsWithBytes = 0.3;
constexpr int kLeastSide = 64;  // of the longest side: what is smaller shows nothing
constexpr int kFinestQuality = 99;

constexpr Shed kSheds[] = {Shed::Nothing,    Shed::Thumbnail,     Shed::Extras,
                           Shed::AllButExif, Shed::AllButProfile, Shed::Everything};

// How much of the budget the metadata may take: what is left of it at the end is the colours.
double shareFor(Shed shed) {
  return shed < Shed::AllButProfile ? 0.1 : 0.33;
}

bool isWithin(const PictureSize& size, const PhotoRequest& request) {
  return (request.maxWidth == 0 || size.width <= request.maxWidth) &&
         (request.maxHeight == 0 || size.height <= request.maxHeight);
}

double mostPixels(double maxBytes) {
  return maxBytes * kMostPixelsPerByte * std::pow(kBytesOfThat / maxBytes, kFallsWithBytes);
}

double mostScale(const PictureSize& size, const PhotoRequest& request) {
  double scale = 1;
  if (request.maxWidth > 0) scale = std::min(scale, request.maxWidth / (size.width + 0.0));
  if (request.maxHeight > 0) scale = std::min(scale, request.maxHeight / (size.height + 0.0));
  return scale;
}

// Of its pixels, those at which it is compared.
double judgedShare(const PictureSize& size) {
  return std::pow(std::min(1.0, kJudgedSide / (size.longestSide() + 0.0)), 2);
}

// The source's own picture, with as much of its metadata as fits.
bool takeAsItIs(std::span<const uint8_t> file, const PhotoSource& source,
                const PhotoRequest& request, FittedPhoto* photo) {
  const auto budget = static_cast<size_t>(request.maxBytes);
  if (request.keep == KeepMetadata::All && file.size() <= budget) {
    photo->file.assign(file.begin(), file.end());
    return true;
  }
  if (request.format != PhotoKind::Jpeg) return false;
  const PhotoMetadata& metadata = source.metadata();
  if (file.size() > budget + metadata.bytes() + (file.size() - budget) / 2 &&
      file.size() > 4 * budget) {
    return false;
  }
  for (const Shed shed : kSheds) {
    photo->file = withMetadata(file, metadata.kept(request.keep, shed));
    if (photo->file.empty()) return false;
    if (photo->file.size() <= budget) return true;
  }
  return false;
}

Segments metadataFor(const PhotoMetadata& metadata, const PhotoRequest& request) {
  for (const Shed shed : kSheds) {
    Segments segments = metadata.keptUpright(request.keep, shed);
    const double share = shareFor(shed);
    if (static_cast<double>(bytesOf(segments)) <= share * static_cast<double>(request.maxBytes)) {
      return segments;
    }
  }
  return {};
}

bool join(const Segments& segments, std::vector<uint8_t> encoded, FittedPhoto* photo) {
  JpegHead head;
  if (!makeJpegHead(encoded.data(), encoded.size(), segments, &head)) return false;
  photo->file = std::move(head.bytes);
  photo->file.insert(photo->file.end(), encoded.begin() + static_cast<ptrdiff_t>(head.restOffset),
                     encoded.end());
  return true;
}

// The best picture of it. False when nothing is small enough, or the codec could not go on.
bool search(const SearchLimits& limits, PhotoCodec* codec, FittedPhoto* photo, int64_t* smallest) {
  BudgetSearch search(limits, codec);
  const bool isFound = search.run();
  photo->size = codec->keptSize();
  photo->similarity = search.similarity();
  photo->encodes += search.encodes();
  *smallest = search.smallestBytes();
  return isFound;
}

bool failSearch(const PhotoCodec& codec, int64_t smallest, FitFailure* failure) {
  if (!codec.errorText().empty()) {
    *failure = {"TooLarge", codec.errorText(), 0};
  } else {
    *failure = {"LimitTooSmall",
                "The photo cannot be made smaller than " + std::to_string(smallest) + " bytes",
                smallest};
  }
  return false;
}

SearchLimits limitsFor(const PictureSize& whole, const PictureSize& read,
                       const PhotoRequest& request) {
  const double most = mostScale(whole, request);
  SearchLimits limits;
  limits.budgetBytes = request.maxBytes;
  limits.pixels = whole.pixels();
  limits.leastScale = std::min(most, kLeastSide / (whole.longestSide() + 0.0));
  limits.mostScale = std::min(most, static_cast<double>(read.width) / whole.width);
  limits.finest = coarsenessOfQuality(kFinestQuality);
  limits.coarsest = coarsenessOfQuality(request.qualityFloor);
  return limits;
}

bool searchPhoto(std::unique_ptr<PhotoSource> source, const PhotoRequest& request,
                 PhotoFormats* formats, PhotoProgress* progress, FittedPhoto* photo,
                 FitFailure* failure) {
  const PictureSize whole = source->size();
  Segments segments = metadataFor(source->metadata(), request);
  const bool isJpeg = request.format == PhotoKind::Jpeg;
  const double most = mostScale(whole, request);

  Picture picture;
  const double enough =
      std::min(whole.pixels() * most * most, mostPixels(static_cast<double>(request.maxBytes)));
  const auto onShare = [&](double share) { progress->decoded(share); };
  if (!source->read(std::max(enough, judgedShare(whole) * whole.pixels()), onShare, &picture,
                    failure)) {
    return false;
  }
  source.reset();  // its memory is of use now

  SearchLimits limits = limitsFor(whole, picture.size, request);
  // Of another format each encode brings it along.
  if (isJpeg) limits.budgetBytes -= static_cast<int64_t>(bytesOf(segments));
  PhotoCodec codec(std::move(picture), whole, {request.format, formats, segments}, progress);
  int64_t smallest = 0;
  bool isFound = search(limits, &codec, photo, &smallest);
  if (!isFound && codec.errorText().empty() && !segments.empty()) {
    // In so few bytes the picture alone may have room.
    segments.clear();
    codec.shedMetadata();
    limits.budgetBytes = request.maxBytes;
    isFound = search(limits, &codec, photo, &smallest);
  }
  if (!isFound) return failSearch(codec, smallest, failure);
  if (isJpeg) return join(segments, codec.takeKept(), photo);
  photo->file = codec.takeKept();
  return true;
}

bool fail(const char* name, const std::string& message, FitFailure* failure) {
  *failure = {name, message, 0};
  return false;
}

}  // namespace

bool fitPhoto(std::span<const uint8_t> file, const PhotoRequest& request, PhotoFormats* formats,
              const std::function<void(double)>& onProgress, FittedPhoto* photo,
              FitFailure* failure) {
  const bool isWritten =
      request.format == PhotoKind::Jpeg || (formats != nullptr && formats->writes(request.format));
  if (!isWritten) {
    return fail(
        "NotSupported",
        std::string("This machine writes no pictures of the format ") + nameOf(request.format),
        failure);
  }
  auto source = anySource(file, formats, failure);
  if (!source || !source->open(failure)) return false;
  if (photoKindOf(file) == request.format && isWithin(source->size(), request) &&
      takeAsItIs(file, *source, request, photo)) {
    photo->size = source->size();
    return source->check(failure);
  }
  const double pixels = source->size().pixels();
  PhotoProgress progress({.sourcePixels = pixels,
                          .comparedPixels = pixels * judgedShare(source->size()),
                          .maxBytes = static_cast<double>(request.maxBytes),
                          .format = request.format},
                         onProgress);
  return searchPhoto(std::move(source), request, formats, &progress, photo, failure);
}

bool inspectPhoto(std::span<const uint8_t> file, PhotoFormats* formats, PhotoFacts* facts,
                  FitFailure* failure) {
  const auto source = anySource(file, formats, failure);
  if (!source || !source->open(failure)) return false;
  facts->kind = photoKindOf(file);
  facts->size = source->size();
  facts->orientation = source->metadata().orientation();
  facts->metadataBytes = source->metadata().bytes();
  return true;
}
