#include "extract/properties/media_properties.h"

#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v1tag.h>
#include <taglib/mpegfile.h>
#include <taglib/wavfile.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/tpropertymap.h>

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "extract/properties/mp4_frame_size.h"

namespace trovix::extract {
namespace {

std::string Utf8(const TagLib::String& s) { return s.to8Bit(true); }

// TagLib picks a stream's format by the extension of its name.
class NamedStream : public TagLib::ByteVectorStream {
 public:
  NamedStream(const std::string& bytes, std::string name)
      : TagLib::ByteVectorStream(TagLib::ByteVector(bytes.data(), static_cast<unsigned int>(bytes.size()))),
        name_(std::move(name)) {}
  TagLib::FileName name() const override { return name_.c_str(); }

 private:
  std::string name_;
};

std::vector<std::string> Strings(const TagLib::StringList& list) {
  std::vector<std::string> out;
  for (const TagLib::String& s : list) {
    std::string v = Utf8(s);
    // Trim the blanks tags are padded with (ID3v1 fields are fixed-width).
    const size_t first = v.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) continue;
    v = v.substr(first, v.find_last_not_of(" \t\r\n") - first + 1);
    if (!v.empty()) out.push_back(std::move(v));
  }
  return out;
}

// The leading number of "3/12" or "03", 0 when there is none.
int64_t LeadingNumber(const std::string& text, size_t max_digits) {
  int64_t n = 0;
  size_t digits = 0;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c)) || digits == max_digits) break;
    n = n * 10 + (c - '0');
    ++digits;
  }
  return digits == 0 ? 0 : n;
}

// Bits per sample, for the formats that store samples of a fixed size.
int BitsPerSample(const TagLib::AudioProperties* audio) {
  if (auto* p = dynamic_cast<const TagLib::RIFF::AIFF::Properties*>(audio)) return p->bitsPerSample();
  if (auto* p = dynamic_cast<const TagLib::RIFF::WAV::Properties*>(audio)) return p->bitsPerSample();
  if (auto* p = dynamic_cast<const TagLib::FLAC::Properties*>(audio)) return p->bitsPerSample();
  if (auto* p = dynamic_cast<const TagLib::APE::Properties*>(audio)) return p->bitsPerSample();
  return 0;
}

// The first bytes of the input (an AIFF's COMM chunk stands near the start).
std::string Head(const DocumentInput& input, size_t n) {
  if (input.in_memory()) return input.bytes->substr(0, n);
  std::string out(n, '\0');
  const int fd = ::open(input.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  size_t got = 0;
  while (got < n) {
    const ssize_t r = ::pread(fd, out.data() + got, n - got, static_cast<off_t>(got));
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  ::close(fd);
  out.resize(got);
  return out;
}

}  // namespace

bool ReadAiffCommon(std::string_view head, AiffCommon* common) {
  auto be = [&head](size_t at, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v = (v << 8) | static_cast<unsigned char>(head[at + static_cast<size_t>(i)]);
    return v;
  };
  if (head.size() < 12 || head.substr(0, 4) != "FORM" || (head.substr(8, 4) != "AIFF" && head.substr(8, 4) != "AIFC"))
    return false;
  const bool compressible = head.substr(8, 4) == "AIFC";
  for (size_t at = 12; at + 8 <= head.size();) {
    const uint64_t size = be(at + 4, 4);
    if (head.substr(at, 4) == "COMM") {
      if (size < 18 || head.size() - at - 8 < 18) return false;
      common->channels = static_cast<int>(be(at + 8, 2));
      common->sample_frames = static_cast<uint32_t>(be(at + 10, 4));
      common->bits_per_sample = static_cast<int>(be(at + 14, 2));
      // The rate is an 80-bit extended real: sign and 15-bit exponent, 64-bit mantissa.
      const int exponent = static_cast<int>(be(at + 16, 2) & 0x7FFF);
      const uint64_t mantissa = be(at + 18, 8);
      const double rate = std::ldexp(static_cast<double>(mantissa), exponent - 16383 - 63);
      common->sample_rate = std::isfinite(rate) && rate >= 1 && rate < 1e7 ? static_cast<int>(std::lround(rate)) : 0;
      // Only plain samples have a rate of bits that follows from the header.
      common->uncompressed = !compressible || (size >= 22 && head.size() - at - 8 >= 22 &&
                                               (head.substr(at + 26, 4) == "NONE" || head.substr(at + 26, 4) == "sowt"));
      return common->channels > 0 && common->sample_rate > 0;
    }
    if (size > head.size() - at - 8) return false;
    at += 8 + size + (size & 1);  // chunks are padded to an even size
  }
  return false;
}

Outcome ReadMediaProperties(const DocumentInput& input, std::string_view extension, const PropertyOut& out) {
  // A member read out of an archive is handed to TagLib as a stream whose name carries the
  // extension, which is what TagLib picks the format by.
  std::unique_ptr<NamedStream> stream;
  std::unique_ptr<TagLib::FileRef> ref;
  if (input.in_memory()) {
    if (input.bytes->size() > 0x7FFFFFFF) return Outcome::Fail(kEndTooLarge, "too large");
    stream = std::make_unique<NamedStream>(*input.bytes, "member." + std::string(extension));
    ref = std::make_unique<TagLib::FileRef>(stream.get(), true, TagLib::AudioProperties::Average);
  } else {
    ref = std::make_unique<TagLib::FileRef>(input.path.c_str(), true, TagLib::AudioProperties::Average);
  }
  bool sending = true;
  auto send = [&](ExtractedProperty p) { sending = sending && out(p); };
  // A film's frame size comes from its own header, whether or not TagLib knows the container.
  bool framed = false;
  if (extension == "mp4" || extension == "m4v" || extension == "mov") {
    FrameSize frame;
    if (ReadMp4FrameSize(input, &frame)) {
      framed = true;
      send(ExtractedProperty::Number("System.Video.FrameWidth", frame.width, ExtractedProperty::kUnsigned));
      send(ExtractedProperty::Number("System.Video.FrameHeight", frame.height, ExtractedProperty::kUnsigned));
    }
  }
  if (ref->isNull()) {
    return framed ? Outcome::Ok() : Outcome::Fail(kEndUnreadable, "not a sound or film file that can be read");
  }

  TagLib::PropertyMap tags = ref->file()->properties();
  // An MP3's properties are its ID3v2 tag's when it has one; what only its ID3v1 tag holds
  // (often the artist and album, kept by an old tagger) is taken field by field.
  if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(ref->file()); mpeg && mpeg->hasID3v1Tag()) {
    for (const auto& [key, values] : mpeg->ID3v1Tag()->properties()) {
      auto it = tags.find(key);
      if ((it == tags.end() || Strings(it->second).empty()) && !Strings(values).empty()) tags.replace(key, values);
    }
  }
  auto list = [&](const char* key, const char* name, bool as_list) {
    auto it = tags.find(key);
    if (it == tags.end()) return;
    std::vector<std::string> values = Strings(it->second);
    if (values.empty()) return;
    if (as_list) send(ExtractedProperty::Texts(name, std::move(values)));
    else send(ExtractedProperty::Text(name, values.front()));
  };
  list("TITLE", "System.Title", false);
  list("ARTIST", "System.Music.Artist", true);
  list("ALBUMARTIST", "System.Music.AlbumArtist", false);
  list("ALBUM", "System.Music.AlbumTitle", false);
  list("GENRE", "System.Music.Genre", true);
  list("COMPOSER", "System.Music.Composer", true);
  if (auto it = tags.find("TRACKNUMBER"); it != tags.end() && !it->second.isEmpty()) {
    const int64_t track = LeadingNumber(Utf8(it->second.front()), 9);
    if (track > 0) send(ExtractedProperty::Number("System.Music.TrackNumber", track, ExtractedProperty::kUnsigned));
  }
  if (auto it = tags.find("DATE"); it != tags.end() && !it->second.isEmpty()) {
    const std::string date = Utf8(it->second.front());
    const int64_t year = date.size() >= 4 ? LeadingNumber(date, 4) : 0;
    if (year >= 1000) send(ExtractedProperty::Number("System.Media.Year", year, ExtractedProperty::kUnsigned));
  }
  if (const TagLib::AudioProperties* audio = ref->audioProperties()) {
    if (audio->lengthInMilliseconds() > 0)
      send(ExtractedProperty::Number("System.Media.Duration", int64_t{audio->lengthInMilliseconds()} * 10'000,
                                     ExtractedProperty::kUnsigned));
    if (audio->bitrate() > 0)
      send(ExtractedProperty::Number("System.Audio.EncodingBitrate", int64_t{audio->bitrate()} * 1000,
                                     ExtractedProperty::kUnsigned));
    if (audio->sampleRate() > 0)
      send(ExtractedProperty::Number("System.Audio.SampleRate", audio->sampleRate(), ExtractedProperty::kUnsigned));
    if (audio->channels() > 0)
      send(ExtractedProperty::Number("System.Audio.ChannelCount", audio->channels(), ExtractedProperty::kUnsigned));
    if (const int bits = BitsPerSample(audio); bits > 0 && bits <= 64)
      send(ExtractedProperty::Number("System.Audio.SampleSize", bits, ExtractedProperty::kUnsigned));
  }
  // TagLib gives an AIFF no stream facts unless it holds sound data ('SSND'); its header
  // ('COMM') still says what it is, as other readers show.
  const bool aiff = extension == "aif" || extension == "aiff" || extension == "aifc";
  if (AiffCommon common; aiff && (!ref->audioProperties() || ref->audioProperties()->sampleRate() == 0) &&
                         ReadAiffCommon(Head(input, 64 * 1024), &common)) {
    const int64_t ticks = int64_t{common.sample_frames} * 10'000'000 / common.sample_rate;
    if (ticks > 0) send(ExtractedProperty::Number("System.Media.Duration", ticks, ExtractedProperty::kUnsigned));
    if (common.uncompressed && common.bits_per_sample > 0)
      send(ExtractedProperty::Number("System.Audio.EncodingBitrate",
                                     int64_t{common.sample_rate} * common.channels * common.bits_per_sample,
                                     ExtractedProperty::kUnsigned));
    send(ExtractedProperty::Number("System.Audio.SampleRate", common.sample_rate, ExtractedProperty::kUnsigned));
    send(ExtractedProperty::Number("System.Audio.ChannelCount", common.channels, ExtractedProperty::kUnsigned));
    if (common.bits_per_sample > 0 && common.bits_per_sample <= 64)
      send(ExtractedProperty::Number("System.Audio.SampleSize", common.bits_per_sample, ExtractedProperty::kUnsigned));
  }
  return sending ? Outcome::Ok() : Outcome::Fail(kEndCancelled, "cancelled");
}

}  // namespace trovix::extract
