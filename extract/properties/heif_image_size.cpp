#include "extract/properties/heif_image_size.h"

#include <string>
#include <utility>
#include <vector>

#include "extract/properties/iso_boxes.h"

namespace trovix::extract {
namespace {

// The meta box holds item tables and properties: kilobytes. Beyond this it is not read.
constexpr uint64_t kMaxMetaBytes = 16ull << 20;

const unsigned char* Bytes(std::string_view s) { return reinterpret_cast<const unsigned char*>(s.data()); }

// The property indices (1-based into 'ipco') that one 'ipma' box associates with `item`.
void AssociationsOf(std::string_view ipma, uint32_t item, std::vector<uint32_t>* indices) {
  if (ipma.size() < 8) return;
  const unsigned version = Bytes(ipma)[0];
  const bool wide_index = (Bytes(ipma)[3] & 1) != 0;
  const uint64_t entries = BigEndian(Bytes(ipma) + 4, 4);
  size_t at = 8;
  const size_t id_bytes = version < 1 ? 2 : 4;
  const size_t index_bytes = wide_index ? 2 : 1;
  for (uint64_t e = 0; e < entries; ++e) {
    if (ipma.size() - at < id_bytes + 1) return;
    const uint64_t id = BigEndian(Bytes(ipma) + at, static_cast<int>(id_bytes));
    const size_t count = Bytes(ipma)[at + id_bytes];
    at += id_bytes + 1;
    if ((ipma.size() - at) / index_bytes < count) return;
    if (id == item) {
      for (size_t i = 0; i < count; ++i) {
        const uint64_t v = BigEndian(Bytes(ipma) + at + i * index_bytes, static_cast<int>(index_bytes));
        // The top bit marks an essential property; the rest is the index.
        indices->push_back(static_cast<uint32_t>(wide_index ? v & 0x7FFF : v & 0x7F));
      }
    }
    at += count * index_bytes;
  }
}

}  // namespace

bool ImageSizeInMeta(std::string_view meta, ImageSize* size) {
  if (meta.size() < 4) return false;
  meta.remove_prefix(4);  // a full box: version and flags
  bool have_primary = false;
  uint32_t primary = 0;
  // 'ipco' in order, as (type, contents): index 1 is the first.
  std::vector<std::pair<std::string_view, std::string_view>> properties;
  std::vector<std::string_view> associations;
  ForEachBox(meta, [&](std::string_view type, std::string_view body) {
    if (type == "pitm" && body.size() >= 6) {
      const bool wide = Bytes(body)[0] != 0 && body.size() >= 8;
      primary = static_cast<uint32_t>(BigEndian(Bytes(body) + 4, wide ? 4 : 2));
      have_primary = true;
    } else if (type == "iprp") {
      ForEachBox(body, [&](std::string_view t, std::string_view inner) {
        if (t == "ipco") {
          ForEachBox(inner, [&](std::string_view pt, std::string_view p) {
            properties.emplace_back(pt, p);
            return true;
          });
        } else if (t == "ipma") {
          associations.push_back(inner);  // read once every property is known
        }
        return true;
      });
    }
    return true;
  });
  if (!have_primary) return false;
  std::vector<uint32_t> indices;
  for (std::string_view ipma : associations) AssociationsOf(ipma, primary, &indices);
  for (uint32_t index : indices) {
    if (index == 0 || index > properties.size() || properties[index - 1].first != "ispe") continue;
    std::string_view ispe = properties[index - 1].second;
    if (ispe.size() < 12) continue;
    ImageSize found{static_cast<uint32_t>(BigEndian(Bytes(ispe) + 4, 4)),
                    static_cast<uint32_t>(BigEndian(Bytes(ispe) + 8, 4))};
    if (found.width == 0 || found.height == 0) continue;
    *size = found;
    return true;
  }
  return false;
}

bool ReadHeifImageSize(const DocumentInput& input, ImageSize* size) {
  std::string meta;
  return ReadTopLevelBox(input, "meta", kMaxMetaBytes, &meta) && ImageSizeInMeta(meta, size);
}

}  // namespace trovix::extract
