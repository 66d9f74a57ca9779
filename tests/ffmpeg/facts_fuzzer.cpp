// Feeds any bytes as the answer of a reader that was taken over; what is believed must print and
// come back the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/ffmpeg/probe/facts_text.h"
#include "platform/ffmpeg/probe/media_facts.h"
#include "platform/ffmpeg/probe/probe_report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MediaFacts facts;
  if (!unpackFacts({reinterpret_cast<const char*>(data), size}, &facts)) return 0;
  const std::string report = probeReport(facts);
  MediaFacts again;
  if (!unpackFacts(packFacts(facts), &again) || probeReport(again) != report) abort();
  return 0;
}
