// The handlers for the properties files carry about themselves: documents (title, authors,
// pages ...), pictures (camera, date taken, GPS position ...) and sound and film files
// (artists, album, length ...). Each family accepts only its own file types, so a rule on an
// artist never sends a PDF to be read. They answer from the item's value cache, which the
// first question fills with everything the file holds through the process's property source
// (props/property_source.h): a file is read once, however many properties are asked of it.
#include <atomic>
#include <string>
#include <vector>

#include "base/file_name.h"
#include "base/document_types.h"
#include "props/handler_registry.h"
#include "props/property_source.h"
#include "props/stock.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

std::atomic<PropertySource*> g_source{nullptr};

struct Row {
  const char* name;
  const char* label;
  const char* description;
  uint16_t flags;
};

// Reading them means a round trip to a helper that parses the file: tested after cheap rules.
constexpr uint16_t kReadFromFile = kPropIndexed | kPropCostly;

constexpr Row kDocumentRows[] = {
    {"System.Title", "Title", "The title the file gives itself", kReadFromFile},
    {"System.Author", "Authors", "The people who made the file", kReadFromFile},
    {"System.Subject", "Subject", "The document's subject", kReadFromFile},
    {"System.Keywords", "Tags", "Keywords the file was tagged with", kReadFromFile},
    {"System.Comment", "Comments", "The comment or description the document carries", kReadFromFile},
    {"System.Category", "Categories", "The categories the document was filed under", kReadFromFile},
    {"System.Company", "Company", "The company named in the document", kReadFromFile},
    {"System.ApplicationName", "Program name", "The program that made the document", kReadFromFile},
    {"System.Document.LastAuthor", "Last saved by", "Who saved the document last", kReadFromFile},
    {"System.Document.DateCreated", "Content created", "When the document's content was created", kReadFromFile},
    {"System.Document.DateSaved", "Date last saved", "When the document was saved last", kReadFromFile},
    {"System.Document.PageCount", "Pages", "The number of pages", kReadFromFile},
    {"System.Document.WordCount", "Word count", "The number of words", kReadFromFile},
    {"System.Document.CharacterCount", "Character count", "The number of characters", kReadFromFile},
    {"System.Document.SlideCount", "Slides", "The number of slides", kReadFromFile},
    {"System.Message.FromAddress", "From address", "The addresses a mail is from", kReadFromFile},
    {"System.Message.FromName", "From", "The names a mail is from", kReadFromFile},
    {"System.Message.ToAddress", "To address", "The addresses a mail was sent to", kReadFromFile},
    {"System.Message.ToName", "To", "The names a mail was sent to", kReadFromFile},
    {"System.Message.DateSent", "Date sent", "When the mail was sent", kReadFromFile},
    {"System.Message.HasAttachments", "Has attachments", "Whether the mail carries attachments", kReadFromFile},
    {"System.Message.AttachmentNames", "Attachments", "The file names of the mail's attachments", kReadFromFile},
};

constexpr Row kPhotoRows[] = {
    {"System.Title", "Title", "The title the file gives itself", kReadFromFile},
    {"System.Author", "Authors", "The people who made the file", kReadFromFile},
    {"System.Keywords", "Tags", "Keywords the file was tagged with", kReadFromFile},
    {"System.Photo.CameraManufacturer", "Camera maker", "Who made the camera that took the picture", kReadFromFile},
    {"System.Photo.CameraModel", "Camera model", "The model of the camera that took the picture", kReadFromFile},
    {"System.Photo.DateTaken", "Date taken", "When the picture was taken", kReadFromFile},
    {"System.Photo.Orientation", "Orientation", "How the picture is turned (EXIF orientation 1 to 8)", kReadFromFile},
    {"System.Photo.ExposureTime", "Exposure time", "The exposure time in seconds", kReadFromFile},
    {"System.Photo.FNumber", "F-stop", "The aperture's f-number", kReadFromFile},
    {"System.Photo.ISOSpeed", "ISO speed", "The sensitivity the picture was taken with", kReadFromFile},
    {"System.Photo.FocalLength", "Focal length", "The lens's focal length in millimetres", kReadFromFile},
    {"System.Photo.Flash", "Flash mode", "The EXIF flash value", kReadFromFile},
    {"System.Image.HorizontalSize", "Width", "The picture's width in pixels", kReadFromFile},
    {"System.Image.VerticalSize", "Height", "The picture's height in pixels", kReadFromFile},
    {"System.Image.BitDepth", "Bit depth", "Bits per pixel", kReadFromFile},
    {"System.GPS.Latitude", "Latitude", "Degrees, minutes and seconds north or south", kReadFromFile},
    {"System.GPS.LatitudeRef", "Latitude reference", "N or S", kReadFromFile},
    {"System.GPS.LatitudeDecimal", "Latitude (decimal)", "Degrees, negative in the south", kReadFromFile},
    {"System.GPS.Longitude", "Longitude", "Degrees, minutes and seconds east or west", kReadFromFile},
    {"System.GPS.LongitudeRef", "Longitude reference", "E or W", kReadFromFile},
    {"System.GPS.LongitudeDecimal", "Longitude (decimal)", "Degrees, negative in the west", kReadFromFile},
    {"System.GPS.Altitude", "Altitude", "Metres above sea level", kReadFromFile},
};

constexpr Row kMediaRows[] = {
    {"System.Title", "Title", "The title the file gives itself", kReadFromFile},
    {"System.Music.Artist", "Contributing artists", "The artists of the recording", kReadFromFile},
    {"System.Music.AlbumArtist", "Album artist", "The artist the album is filed under", kReadFromFile},
    {"System.Music.AlbumTitle", "Album", "The album the track belongs to", kReadFromFile},
    {"System.Music.TrackNumber", "#", "The track's number on its album", kReadFromFile},
    {"System.Music.Genre", "Genre", "The genres of the recording", kReadFromFile},
    {"System.Music.Composer", "Composers", "Who wrote the music", kReadFromFile},
    {"System.Media.Year", "Year", "The year of the recording", kReadFromFile},
    {"System.Media.Duration", "Length", "How long it plays", kReadFromFile | kPropDuration},
    {"System.Audio.EncodingBitrate", "Bit rate", "Bits per second of the encoded sound", kReadFromFile},
    {"System.Audio.SampleRate", "Sample rate", "Samples per second", kReadFromFile},
    {"System.Audio.ChannelCount", "Channels", "The number of sound channels", kReadFromFile},
    {"System.Video.FrameWidth", "Frame width", "The film's width in pixels", kReadFromFile},
    {"System.Video.FrameHeight", "Frame height", "The film's height in pixels", kReadFromFile},
};

class OwnPropertyHandler : public PropertyHandler {
 public:
  template <size_t N>
  OwnPropertyHandler(std::string_view name, const Row (&rows)[N], bool (*accepts)(std::string_view))
      : name_(name), accepts_(accepts) {
    produces_.reserve(N);
    for (const Row& row : rows) produces_.push_back(ProducedProperty{row.name, row.label, row.description, row.flags, nullptr});
  }

  std::string_view Name() const override { return name_; }
  const std::vector<ProducedProperty>& Produces() const override { return produces_; }

  bool Accepts(ShellItem& item) const override {
    return !item.IsFolder() && accepts_(LowerExtension(item.path()));
  }

  HRESULT GetValue(ShellItem& item, const PropertyInfo& property, PropValue* out) const override {
    return FetchOwnProperty(item, property.hash, out);
  }

 private:
  std::string_view name_;
  bool (*accepts_)(std::string_view);
  std::vector<ProducedProperty> produces_;
};

bool AcceptsDocument(std::string_view extension) { return base::HasDocumentPropertyReader(extension); }
bool AcceptsPhoto(std::string_view extension) { return base::HasPhotoPropertyReader(extension); }
bool AcceptsMedia(std::string_view extension) { return base::HasMediaPropertyReader(extension); }

}  // namespace

// The hash of a property the source names: a System.* property of the table, or a stock one.
uint32_t OwnPropertyHash(std::string_view name) {
  if (const SystemPropertyRow* row = FindSystemProperty(name)) return row->key.Hash();
  if (const StockRow* row = FindStockRow(name)) return PropertyKey{*Guid::Parse(row->fmtid), row->pid}.Hash();
  return 0;
}

HRESULT FetchOwnProperty(ShellItem& item, uint32_t hash, PropValue* out) {
  if (item.own_properties_read()) return S_FALSE;  // what the file holds is cached already
  item.set_own_properties_read();
  PropertySource* source = g_source.load();
  std::vector<NamedValue> values;
  if (source == nullptr || !source->ReadProperties(item, &values)) return E_FAIL;
  for (NamedValue& v : values) {
    const uint32_t h = OwnPropertyHash(v.name);
    if (h == 0 || v.value.IsEmpty()) continue;
    if (h == hash) {
      *out = std::move(v.value);
    } else if (item.FindCached(h) == nullptr) {
      item.AddCached(h, std::move(v.value));
    }
  }
  return out->IsEmpty() ? S_FALSE : S_OK;
}

void SetPropertySource(PropertySource* source) { g_source.store(source); }
PropertySource* CurrentPropertySource() { return g_source.load(); }

std::vector<std::unique_ptr<PropertyHandler>> MakeOwnPropertyHandlers() {
  std::vector<std::unique_ptr<PropertyHandler>> handlers;
  handlers.push_back(std::make_unique<OwnPropertyHandler>("document properties", kDocumentRows, AcceptsDocument));
  handlers.push_back(std::make_unique<OwnPropertyHandler>("picture properties", kPhotoRows, AcceptsPhoto));
  handlers.push_back(std::make_unique<OwnPropertyHandler>("sound and film properties", kMediaRows, AcceptsMedia));
  return handlers;
}

}  // namespace trovix::props
