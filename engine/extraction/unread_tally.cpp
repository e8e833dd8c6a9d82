#include "engine/extraction/unread_tally.h"

#include <algorithm>

namespace trovix::engine {
namespace {

// What follows the colon, for each reason but the search-zip one, which the front end words.
const char* Why(UnreadReason reason) {
  switch (reason) {
    case UnreadReason::kNeedsSearchZip: return "";
    case UnreadReason::kDocumentsOff: return "reading documents is switched off (binSearchFlags 0x8)";
    case UnreadReason::kMembersOff: return "reading inside archives is switched off (nMaxStreamExtractSize)";
    case UnreadReason::kTooLarge: return "larger than the extraction size limit (nMaxStreamExtractSize)";
    case UnreadReason::kReaderMissing: return "their reader could not be used";
    case UnreadReason::kEncrypted: return "encrypted";
    case UnreadReason::kDamaged: return "they could not be opened or are damaged";
    case UnreadReason::kNotText: return "not text, and nothing reads their type";
  }
  return "";
}

std::string Files(int64_t n, std::string_view type) {
  std::string out = GroupedCount(n) + " ";
  if (!type.empty()) (out += '.') += type, out += ' ';
  out += n == 1 ? "file" : "files";
  if (type.empty()) out += n == 1 ? " without an extension" : " without extensions";
  return out;
}

}  // namespace

void UnreadTally::Add(std::string_view type, UnreadReason reason, int64_t files) {
  std::lock_guard lock(mutex_);
  counts_[{std::string(type), reason}] += files;
}

void UnreadTally::Clear() {
  std::lock_guard lock(mutex_);
  counts_.clear();
}

std::vector<UnreadCount> UnreadTally::Counts() const {
  std::vector<UnreadCount> out;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [key, n] : counts_) out.push_back({key.first, key.second, n});
  }
  std::stable_sort(out.begin(), out.end(), [](const UnreadCount& a, const UnreadCount& b) {
    if (a.reason != b.reason) return a.reason < b.reason;
    return a.files > b.files;  // the map gave them in type order already
  });
  return out;
}

bool UnreadTally::Met(std::string_view type) const {
  std::lock_guard lock(mutex_);
  for (const auto& [key, n] : counts_)
    if (key.first == type && n > 0) return true;
  return false;
}

std::vector<std::string> DescribeUnread(const std::vector<UnreadCount>& counts, const UnreadWording& wording,
                                        size_t max_sentences) {
  std::vector<std::string> out;
  std::vector<const UnreadCount*> named, rest;
  for (const UnreadCount& c : counts) {
    if (c.files <= 0) continue;
    (c.reason == UnreadReason::kNotText ? rest : named).push_back(&c);
  }
  if (max_sentences == 0 || (named.empty() && rest.empty())) return out;
  // Files nothing reads are many and alike (pictures, programs): they share the last sentence,
  // and so do the groups beyond the last sentence there is room for.
  const bool overflow = named.size() > max_sentences || (named.size() == max_sentences && !rest.empty());
  const size_t room = overflow || !rest.empty() ? max_sentences - 1 : max_sentences;
  bool rest_alike = true;
  for (size_t i = 0; i < named.size(); ++i) {
    const UnreadCount& c = *named[i];
    if (i >= room) {
      rest.push_back(&c);
      rest_alike = false;
      continue;
    }
    const std::string why = c.reason == UnreadReason::kNeedsSearchZip ? wording.search_zip : Why(c.reason);
    out.push_back(Files(c.files, c.type) + " not read: " + why);
  }
  if (rest.empty()) return out;
  int64_t files = 0;
  for (const UnreadCount* c : rest) files += c->files;
  std::stable_sort(rest.begin(), rest.end(),
                   [](const UnreadCount* a, const UnreadCount* b) { return a->files > b->files; });
  // The commonest types, each once (a type may be in the rest for two reasons).
  std::vector<std::string_view> types;
  bool more = false;
  for (const UnreadCount* c : rest) {
    if (c->type.empty() || std::find(types.begin(), types.end(), c->type) != types.end()) continue;
    if (types.size() == 3) {
      more = true;
      break;
    }
    types.push_back(c->type);
  }
  std::string sentence = GroupedCount(files) + (out.empty() ? " " : " other ") + (files == 1 ? "file" : "files") +
                         " not read: " + (rest_alike ? Why(UnreadReason::kNotText) : "for these and other reasons");
  if (!types.empty()) {
    sentence += " (";
    for (size_t i = 0; i < types.size(); ++i) (sentence += i ? ", ." : ".") += types[i];
    sentence += more ? ", ...)" : ")";
  }
  out.push_back(std::move(sentence));
  return out;
}

std::string GroupedCount(int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return n < 0 ? "-" + out : out;
}

}  // namespace trovix::engine
