// The properties of pictures, read with exiv2 from their EXIF, XMP and IPTC: camera, date
// taken, exposure, orientation, size, GPS position, and the title, keywords and authors a
// picture carries. JPEG, TIFF, PNG, WebP and the raw formats exiv2 knows (DNG, CR2, NEF);
// HEIC and HEIF: their size always, from the primary image's own property (heif_image_size.h),
// the rest where this platform's exiv2 was built to read them.
#pragma once

#include <string_view>

#include "extract/properties/document_properties.h"

namespace trovix::extract {

Outcome ReadPhotoProperties(const DocumentInput& input, std::string_view extension, const PropertyOut& out);

// EXIF's "YYYY:MM:DD HH:MM:SS" (a wall-clock time without a zone) as 100 ns ticks since 1601 of
// that wall-clock time; false when the text is no such time (blank or zero fields included).
bool ParseExifDateTime(std::string_view text, int64_t* local_ticks);

}  // namespace trovix::extract
