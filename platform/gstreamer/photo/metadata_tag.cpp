#include "platform/gstreamer/photo/metadata_tag.h"

#include "platform/gstreamer/gst_ref.h"

namespace {

GstBuffer* makeBuffer(const JpegSegment& segment) {
  const size_t sizeBytes = segment.payload.size();
  GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 1 + sizeBytes, nullptr);
  gst_buffer_fill(buffer, 0, &segment.marker, 1);
  gst_buffer_fill(buffer, 1, segment.payload.data(), sizeBytes);
  return buffer;
}

}  // namespace

void registerMetadataTag() {
  gst_tag_register(METADATA_TAG, GST_TAG_FLAG_META, GST_TYPE_SAMPLE, "JPEG metadata segments",
                   "The APPn and COM segments of a JPEG picture as they stood in its file",
                   gst_tag_merge_use_first);
}

GstTagList* makeMetadataTags(const std::vector<JpegSegment>& segments) {
  GstBufferList* buffers = gst_buffer_list_new_sized(static_cast<guint>(segments.size()));
  for (const JpegSegment& segment : segments) {
    gst_buffer_list_add(buffers, makeBuffer(segment));
  }
  const GstRef<GstSample> sample(gst_sample_new(nullptr, nullptr, nullptr, nullptr));
  gst_sample_set_buffer_list(sample.get(), buffers);
  gst_buffer_list_unref(buffers);

  GstTagList* tags = gst_tag_list_new(METADATA_TAG, sample.get(), nullptr);
  gst_tag_list_set_scope(tags, GST_TAG_SCOPE_GLOBAL);
  return tags;
}

bool readMetadataTags(const GstTagList* tags, std::vector<JpegSegment>* segments) {
  GstSample* found = nullptr;
  if (!gst_tag_list_get_sample_index(tags, METADATA_TAG, 0, &found)) return false;
  const GstRef<GstSample> sample(found);
  GstBufferList* buffers = gst_sample_get_buffer_list(sample.get());
  segments->clear();
  const guint count = buffers ? gst_buffer_list_length(buffers) : 0;
  for (guint i = 0; i < count; ++i) {
    GstBuffer* buffer = gst_buffer_list_get(buffers, i);
    const size_t sizeBytes = gst_buffer_get_size(buffer);
    if (sizeBytes == 0) continue;
    JpegSegment segment{0, std::vector<uint8_t>(sizeBytes - 1)};
    gst_buffer_extract(buffer, 0, &segment.marker, 1);
    gst_buffer_extract(buffer, 1, segment.payload.data(), segment.payload.size());
    segments->push_back(std::move(segment));
  }
  return true;
}
