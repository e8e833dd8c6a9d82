// The properties of sound and film files, read with TagLib: tags (artists, album, title,
// track, year, genre, composers) and stream facts (length, bit rate, sample rate, channels).
// MP3 with ID3v1 and ID3v2.2 to 2.4, FLAC, Ogg Vorbis, Opus, MP4/M4A/M4B, WMA/ASF, WAV, AIFF
// and APE; films only where TagLib knows the container (MP4, ASF), which gives their length.
#pragma once

#include <string_view>

#include "extract/properties/document_properties.h"

namespace trovix::extract {

Outcome ReadMediaProperties(const DocumentInput& input, std::string_view extension, const PropertyOut& out);

}  // namespace trovix::extract
