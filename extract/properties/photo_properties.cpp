#include "extract/properties/photo_properties.h"

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <climits>
#include <mutex>
#include <string>
#include <vector>

#include "base/file_time.h"
#include "extract/properties/heif_image_size.h"

namespace trovix::extract {
namespace {

void QuietHandler(int, const char*) {}

// exiv2 writes warnings to standard error for every damaged tag unless told otherwise.
void QuietExiv2() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::LogMsg::setHandler(QuietHandler);
  });
}

bool CanReadHeif() {
  static const bool can = Exiv2::enableBMFF(true);
  return can;
}

std::string Trim(std::string text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

class PhotoReader {
 public:
  PhotoReader(const Exiv2::Image& image, const PropertyOut& out)
      : exif_(image.exifData()), xmp_(image.xmpData()), iptc_(image.iptcData()), out_(out) {}

  bool sending() const { return sending_; }
  void Send(ExtractedProperty p) { sending_ = sending_ && out_(p); }

  // The first non-empty text of the keys, in order.
  std::string Text(std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
      std::string v;
      if (key[0] == 'E') {
        auto it = exif_.findKey(Exiv2::ExifKey(key));
        if (it != exif_.end()) v = it->toString();
      } else if (key[0] == 'X') {
        auto it = xmp_.findKey(Exiv2::XmpKey(key));
        if (it != xmp_.end()) v = XmpText(*it);
      } else {
        auto it = iptc_.findKey(Exiv2::IptcKey(key));
        if (it != iptc_.end()) v = it->toString();
      }
      v = Trim(std::move(v));
      if (!v.empty()) return v;
    }
    return {};
  }

  // Every value of the keys, in order, without repeats (IPTC repeats a dataset per keyword;
  // XMP keeps a bag in one value).
  std::vector<std::string> Texts(std::initializer_list<const char*> keys) {
    std::vector<std::string> all;
    auto add = [&all](std::string v) {
      v = Trim(std::move(v));
      if (v.empty()) return;
      for (const std::string& have : all)
        if (have == v) return;
      all.push_back(std::move(v));
    };
    for (const char* key : keys) {
      if (key[0] == 'X') {
        auto it = xmp_.findKey(Exiv2::XmpKey(key));
        if (it == xmp_.end()) continue;
        for (long i = 0; i < it->count(); ++i) add(it->toString(i));
      } else if (key[0] == 'I') {
        for (const Exiv2::Iptcdatum& d : iptc_)
          if (d.key() == key) add(d.toString());
      } else {
        auto it = exif_.findKey(Exiv2::ExifKey(key));
        if (it != exif_.end()) add(it->toString());
      }
      if (!all.empty()) break;
    }
    return all;
  }

  const Exiv2::Exifdatum* Exif(const char* key) {
    auto it = exif_.findKey(Exiv2::ExifKey(key));
    return it == exif_.end() || it->count() == 0 ? nullptr : &*it;
  }

  // A rational (or integer) EXIF value as a double; false when absent or with a zero divisor.
  bool Real(const char* key, double* value, long index = 0) {
    const Exiv2::Exifdatum* d = Exif(key);
    if (!d || index >= d->count()) return false;
    Exiv2::Rational r = d->toRational(index);
    if (r.second == 0) return false;
    *value = static_cast<double>(r.first) / static_cast<double>(r.second);
    return std::isfinite(*value);
  }

  bool Integer(const char* key, int64_t* value) {
    const Exiv2::Exifdatum* d = Exif(key);
    if (!d) return false;
    *value = d->toLong(0);
    return d->value().ok();
  }

 private:
  static std::string XmpText(const Exiv2::Xmpdatum& d) {
    // A language alternative ("x-default" first) or a plain value.
    return d.count() > 0 ? d.toString(0) : d.toString();
  }

  const Exiv2::ExifData& exif_;
  const Exiv2::XmpData& xmp_;
  const Exiv2::IptcData& iptc_;
  const PropertyOut& out_;
  bool sending_ = true;
};

// Degrees, minutes and seconds of a GPS coordinate, its reference letter, and the decimal
// degrees (negative for south and west).
void SendCoordinate(PhotoReader& r, const char* key, const char* ref_key, const char* name, const char* ref_name,
                    const char* decimal_name, char negative) {
  std::vector<double> dms(3);
  for (long i = 0; i < 3; ++i)
    if (!r.Real(key, &dms[static_cast<size_t>(i)], i)) return;
  if (dms[0] < 0 || dms[0] > 180 || dms[1] < 0 || dms[1] >= 60 || dms[2] < 0 || dms[2] >= 60.5) return;
  const std::string ref = r.Text({ref_key});
  double decimal = dms[0] + dms[1] / 60 + dms[2] / 3600;
  if (!ref.empty() && (ref[0] == negative || ref[0] == negative + ('a' - 'A'))) decimal = -decimal;
  r.Send(ExtractedProperty::Reals(name, dms));
  if (!ref.empty()) r.Send(ExtractedProperty::Text(ref_name, ref.substr(0, 1)));
  r.Send(ExtractedProperty::Real(decimal_name, decimal));
}

std::unique_ptr<Exiv2::Image> Open(const DocumentInput& input) {
  if (!input.in_memory()) return std::unique_ptr<Exiv2::Image>(Exiv2::ImageFactory::open(input.path).release());
  if (input.bytes->size() > static_cast<size_t>(LONG_MAX)) return nullptr;
  return std::unique_ptr<Exiv2::Image>(
      Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte*>(input.bytes->data()),
                                static_cast<long>(input.bytes->size()))
          .release());
}

}  // namespace

bool ParseExifDateTime(std::string_view text, int64_t* local_ticks) {
  if (text.size() < 19 || text[4] != ':' || text[7] != ':' || text[10] != ' ' || text[13] != ':' || text[16] != ':')
    return false;
  auto num = [&text](size_t at, size_t n, int* v) {
    *v = 0;
    for (size_t i = at; i < at + n; ++i) {
      if (text[i] < '0' || text[i] > '9') return false;
      *v = *v * 10 + (text[i] - '0');
    }
    return true;
  };
  base::CivilTime c{};
  if (!num(0, 4, &c.year) || !num(5, 2, &c.month) || !num(8, 2, &c.day) || !num(11, 2, &c.hour) ||
      !num(14, 2, &c.minute) || !num(17, 2, &c.second))
    return false;
  if (c.year < 1601 || !base::IsValidCivil(c)) return false;
  *local_ticks = base::FileTimeFromCivil(c);
  return true;
}

Outcome ReadPhotoProperties(const DocumentInput& input, std::string_view extension, const PropertyOut& out) {
  QuietExiv2();
  const bool heif = extension == "heic" || extension == "heif";
  // A HEIF picture's size is its primary image's, which exiv2 does not give (it reports the
  // EXIF block's, which may be the sensor's before a crop).
  ImageSize heif_size;
  const bool heif_sized = heif && ReadHeifImageSize(input, &heif_size);
  // Where exiv2 cannot read the picture, its size is still known.
  auto size_alone = [&](Outcome failure) {
    if (!heif_sized) return failure;
    const bool sent =
        out(ExtractedProperty::Number("System.Image.HorizontalSize", heif_size.width, ExtractedProperty::kUnsigned)) &&
        out(ExtractedProperty::Number("System.Image.VerticalSize", heif_size.height, ExtractedProperty::kUnsigned));
    return sent ? Outcome::Ok() : Outcome::Fail(kEndCancelled, "cancelled");
  };
  if (heif && !CanReadHeif())
    return size_alone(Outcome::Fail(kEndNoReader, "HEIC and HEIF pictures cannot be read by this system's exiv2"));
  std::unique_ptr<Exiv2::Image> image;
  try {
    image = Open(input);
    if (!image) return size_alone(Outcome::Fail(kEndUnreadable, "not a picture that can be read"));
    image->readMetadata();
  } catch (const Exiv2::AnyError& e) {
    return size_alone(Outcome::Fail(kEndUnreadable, std::string("not a picture that can be read: ") + e.what()));
  }
  PhotoReader r(*image, out);
  auto text = [&r](const char* name, std::initializer_list<const char*> keys) {
    std::string v = r.Text(keys);
    if (!v.empty()) r.Send(ExtractedProperty::Text(name, std::move(v)));
  };
  auto texts = [&r](const char* name, std::initializer_list<const char*> keys) {
    std::vector<std::string> v = r.Texts(keys);
    if (!v.empty()) r.Send(ExtractedProperty::Texts(name, std::move(v)));
  };
  text("System.Photo.CameraManufacturer", {"Exif.Image.Make"});
  text("System.Photo.CameraModel", {"Exif.Image.Model"});
  text("System.Title", {"Xmp.dc.title", "Iptc.Application2.ObjectName", "Exif.Image.ImageDescription"});
  texts("System.Keywords", {"Xmp.dc.subject", "Iptc.Application2.Keywords"});
  texts("System.Author", {"Xmp.dc.creator", "Iptc.Application2.Byline", "Exif.Image.Artist"});

  int64_t local = 0;
  if (ParseExifDateTime(r.Text({"Exif.Photo.DateTimeOriginal", "Exif.Image.DateTimeOriginal", "Exif.Image.DateTime"}),
                        &local))
    // The camera's clock shows wall time without a zone: it is read as this machine's local time.
    r.Send(ExtractedProperty::Number("System.Photo.DateTaken", base::LocalToUtc(local), ExtractedProperty::kTime));

  int64_t n = 0;
  if (r.Integer("Exif.Image.Orientation", &n) && n >= 1 && n <= 8)
    r.Send(ExtractedProperty::Number("System.Photo.Orientation", n, ExtractedProperty::kUnsigned));
  if (r.Integer("Exif.Photo.ISOSpeedRatings", &n) && n > 0 && n <= 65535)
    r.Send(ExtractedProperty::Number("System.Photo.ISOSpeed", n, ExtractedProperty::kUnsigned));
  if (r.Integer("Exif.Photo.Flash", &n) && n >= 0 && n <= 255)
    r.Send(ExtractedProperty::Number("System.Photo.Flash", n, ExtractedProperty::kUnsigned));
  double d = 0;
  if (r.Real("Exif.Photo.ExposureTime", &d) && d > 0) r.Send(ExtractedProperty::Real("System.Photo.ExposureTime", d));
  if (r.Real("Exif.Photo.FNumber", &d) && d > 0) r.Send(ExtractedProperty::Real("System.Photo.FNumber", d));
  if (r.Real("Exif.Photo.FocalLength", &d) && d > 0) r.Send(ExtractedProperty::Real("System.Photo.FocalLength", d));

  const int64_t width = heif ? heif_size.width : image->pixelWidth();
  const int64_t height = heif ? heif_size.height : image->pixelHeight();
  if (width > 0) r.Send(ExtractedProperty::Number("System.Image.HorizontalSize", width, ExtractedProperty::kUnsigned));
  if (height > 0) r.Send(ExtractedProperty::Number("System.Image.VerticalSize", height, ExtractedProperty::kUnsigned));
  if (const Exiv2::Exifdatum* bits = r.Exif("Exif.Image.BitsPerSample")) {
    int64_t depth = 0;
    for (long i = 0; i < bits->count() && i < 8; ++i) depth += bits->toLong(i);
    if (depth > 0 && depth <= 256) r.Send(ExtractedProperty::Number("System.Image.BitDepth", depth, ExtractedProperty::kUnsigned));
  }

  SendCoordinate(r, "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLatitudeRef", "System.GPS.Latitude",
                 "System.GPS.LatitudeRef", "System.GPS.LatitudeDecimal", 'S');
  SendCoordinate(r, "Exif.GPSInfo.GPSLongitude", "Exif.GPSInfo.GPSLongitudeRef", "System.GPS.Longitude",
                 "System.GPS.LongitudeRef", "System.GPS.LongitudeDecimal", 'W');
  if (r.Real("Exif.GPSInfo.GPSAltitude", &d)) {
    if (r.Integer("Exif.GPSInfo.GPSAltitudeRef", &n) && n == 1) d = -d;  // below sea level
    r.Send(ExtractedProperty::Real("System.GPS.Altitude", d));
  }
  return r.sending() ? Outcome::Ok() : Outcome::Fail(kEndCancelled, "cancelled");
}

}  // namespace trovix::extract
