#include "platform/jpeg/exif_camera.h"

#include <algorithm>

#include "platform/jpeg/tiff.h"

namespace {

constexpr uint16_t kTagMake = 0x010F;
constexpr uint16_t kTagModel = 0x0110;
constexpr size_t kLongestName = 100;

// Up to its first zero, less the blanks around it.
std::string plain(std::string text) {
  text.resize(std::min({text.size(), text.find('\0'), kLongestName}));
  const size_t last = text.find_last_not_of(' ');
  text.erase(last == std::string::npos ? 0 : last + 1);
  text.erase(0, text.find_first_not_of(' '));
  std::replace_if(
      text.begin(), text.end(), [](char letter) { return letter < ' ' || letter > '~'; }, '?');
  return text;
}

}  // namespace

std::string exifCamera(const std::vector<uint8_t>& payload) {
  if (!isExifPayload(payload.data(), payload.size())) return "";
  std::vector<uint8_t> bytes(payload.begin() + sizeof kExifSignature, payload.end());
  Tiff tiff(bytes.data(), bytes.size());
  if (!tiff.readByteOrder()) return "";
  const size_t directory = tiff.u32(4);
  const std::string make = plain(tiff.text(directory, kTagMake));
  std::string model = plain(tiff.text(directory, kTagModel));
  if (make.empty() || model.rfind(make, 0) == 0) return model;
  return model.empty() ? make : make + " " + model;
}
