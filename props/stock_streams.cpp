// Size on disk and named streams, in one pass. What a file occupies is its allocated main
// stream plus every named stream, each rounded up to whole allocation units: a stream never
// costs less than one unit however small it is. The count includes the main stream on purpose:
// rules written against Stock.ADS rely on an ordinary file counting 1, and 0 then means the
// file could not be read at all.
#include <cerrno>
#include <string>
#include <vector>

#include "base/utf.h"
#include "platform/named_streams.h"
#include "props/stock.h"
#include "props/stock_internal.h"

namespace trovix::props::internal {
namespace {

struct StreamFacts {
  uint64_t size_on_disk = 0;
  uint32_t count = 0;
  std::string names;  // the last stream met first, "; " between
};

uint64_t RoundToClusters(uint64_t bytes, uint64_t cluster) {
  if (bytes == 0) return cluster;
  return (bytes + cluster - 1) / cluster * cluster;
}

StreamFacts ReadStreamFacts(ShellItem& item, platform::StreamSystem& streams) {
  StreamFacts facts;
  const uint64_t cluster = streams.ClusterSize(item.path());
  // A status that cannot be had leaves the main stream uncounted, as its size is unknown.
  if (const platform::FileStatus* st = item.Status()) facts.size_on_disk = RoundToClusters(st->allocated, cluster);

  std::vector<platform::NamedStream> named;
  const int error = streams.List(item.path(), item.follow_links(), &named);
  // A file system without such attributes still holds the main stream; an item that cannot
  // be opened counts nothing and has no names.
  if (error != 0 && error != ENOTSUP) return facts;
  facts.count = 1 + static_cast<uint32_t>(named.size());
  for (auto it = named.rbegin(); it != named.rend(); ++it) {
    if (!facts.names.empty()) facts.names += "; ";
    facts.names += base::ToDisplayUtf8(it->name);
    // A stream that vanished while being listed is named but costs nothing.
    if (it->size >= 0) facts.size_on_disk += RoundToClusters(static_cast<uint64_t>(it->size), cluster);
  }
  return facts;
}

}  // namespace

HRESULT ComputeStreams(uint32_t stock_index, ShellItem& item, PropValue* out) {
  if (!item.IsFileSystem()) return E_FAIL;
  StreamFacts facts = ReadStreamFacts(item, platform::DefaultStreamSystem());
  PropValue values[3] = {PropValue::UInt64(facts.size_on_disk), PropValue::UInt32(facts.count),
                         PropValue::Text(std::move(facts.names))};
  constexpr uint32_t kIndexes[3] = {stock::kTotalFileSize, stock::kAds, stock::kAdsNames};
  for (int i = 0; i < 3; ++i) {
    if (kIndexes[i] == stock_index) {
      *out = std::move(values[i]);
    } else if (!item.FindCached(StockHash(kIndexes[i]))) {
      item.AddCached(StockHash(kIndexes[i]), std::move(values[i]));
    }
  }
  return S_OK;
}

}  // namespace trovix::props::internal
