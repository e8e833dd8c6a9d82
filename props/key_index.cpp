#include "props/key_index.h"

#include <algorithm>

namespace trovix::props {
namespace {

// Grows both parallel arrays by doubling, starting at one element.
void Grow(KeyIndex::Group& g) {
  size_t capacity = g.capacity == 0 ? 1 : g.capacity * 2;
  auto numbers = std::make_unique<uint32_t[]>(capacity);
  auto words = std::make_unique<uint32_t[]>(capacity);
  std::copy_n(g.numbers.get(), g.count, numbers.get());
  std::copy_n(g.type_words.get(), g.count, words.get());
  g.numbers = std::move(numbers);
  g.type_words = std::move(words);
  g.capacity = capacity;
}

// Field by field: the same answer as comparing the 16 bytes, without laying them out first.
bool SameFormat(const Guid& a, const Guid& b) { return a == b; }

}  // namespace

void KeyIndex::Insert(const PropertyKey& key, uint32_t type_word) {
  auto it = std::find_if(groups_.begin(), groups_.end(),
                         [&](const Group& g) { return SameFormat(g.fmtid, key.fmtid); });
  if (it == groups_.end()) {
    groups_.emplace_back();
    it = groups_.end() - 1;
    it->fmtid = key.fmtid;
  }
  Group& g = *it;
  uint32_t* begin = g.numbers.get();
  uint32_t* pos = std::lower_bound(begin, begin + g.count, key.pid);
  size_t at = static_cast<size_t>(pos - begin);
  if (at < g.count && g.numbers[at] == key.pid && replace_mode_) {
    g.type_words[at] = type_word;
    return;
  }
  if (g.count == g.capacity) Grow(g);
  // Shift the tail of both arrays to make room, keeping the numbers ascending.
  for (size_t i = g.count; i > at; --i) {
    g.numbers[i] = g.numbers[i - 1];
    g.type_words[i] = g.type_words[i - 1];
  }
  g.numbers[at] = key.pid;
  g.type_words[at] = type_word;
  ++g.count;
}

std::optional<uint32_t> KeyIndex::Find(const PropertyKey& key) const {
  for (const Group& g : groups_) {
    if (!SameFormat(g.fmtid, key.fmtid)) continue;
    const uint32_t* begin = g.numbers.get();
    const uint32_t* pos = std::lower_bound(begin, begin + g.count, key.pid);
    if (pos != begin + g.count && *pos == key.pid) return g.type_words[pos - begin];
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace trovix::props
