// The properties of sound and film files, read with TagLib: tags (artists, album, title,
// track, year, genre, composers) and stream facts (length, bit rate, sample rate, channels).
// MP3 with ID3v1 and ID3v2.2 to 2.4, FLAC, Ogg Vorbis, Opus, MP4/M4A/M4B, WMA/ASF, WAV, AIFF
// and APE; films only where TagLib knows the container (MP4, ASF), which gives their length.
// Bits per sample for the formats that have them (AIFF, WAV, FLAC, APE).
#pragma once

#include <cstdint>
#include <string_view>

#include "extract/properties/document_properties.h"

namespace trovix::extract {

Outcome ReadMediaProperties(const DocumentInput& input, std::string_view extension, const PropertyOut& out);

// What an AIFF's common chunk ('COMM') says of its sound.
struct AiffCommon {
  int channels = 0;
  uint32_t sample_frames = 0;
  int bits_per_sample = 0;
  int sample_rate = 0;
  bool uncompressed = true;  // AIFF, or AIFC holding plain samples ("NONE", "sowt")
};
// From the first bytes of an AIFF or AIFC file; false when they hold no usable COMM chunk.
bool ReadAiffCommon(std::string_view head, AiffCommon* common);

}  // namespace trovix::extract
