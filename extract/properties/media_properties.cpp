#include "extract/properties/media_properties.h"

#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/tpropertymap.h>

#include <cctype>
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

}  // namespace

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

  const TagLib::PropertyMap tags = ref->file()->properties();
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
  }
  return sending ? Outcome::Ok() : Outcome::Fail(kEndCancelled, "cancelled");
}

}  // namespace trovix::extract
