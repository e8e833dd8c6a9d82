// The key index: format identifier -> (ascending property numbers, parallel type words).
// Lookup walks the list of format identifiers linearly (16-byte compare), then searches the
// numbers. Insertion keeps the numbers ascending; arrays grow by doubling from one element.
// In replace mode inserting a number already present overwrites its type word.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "props/property_key.h"

namespace trovix::props {

class KeyIndex {
 public:
  explicit KeyIndex(bool replace_mode) : replace_mode_(replace_mode) {}

  void Insert(const PropertyKey& key, uint32_t type_word);
  // The type word of a key, if present.
  std::optional<uint32_t> Find(const PropertyKey& key) const;

  struct Group {
    Guid fmtid;
    std::unique_ptr<uint32_t[]> numbers;
    std::unique_ptr<uint32_t[]> type_words;
    size_t count = 0;
    size_t capacity = 0;
  };
  const std::vector<Group>& groups() const { return groups_; }
  bool replace_mode() const { return replace_mode_; }

 private:
  bool replace_mode_;
  std::vector<Group> groups_;
};

}  // namespace trovix::props
