#include "app/settings/profile_file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "base/ascii.h"
#include "base/utf.h"
#include "platform/regular_file.h"

namespace trovix::app {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

std::string Fold(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

bool IsQuote(char c) { return c == '"' || c == '\''; }

std::string_view Unquote(std::string_view v) {
  if (v.size() >= 2 && IsQuote(v.front()) && v.back() == v.front()) {
    v.remove_prefix(1);
    v.remove_suffix(1);
  }
  return v;
}

// Quotes a value whose reading would otherwise lose its end blanks or a pair of quotes.
std::string QuoteForWriting(std::string_view v) {
  bool needs = !v.empty() && (IsBlank(v.front()) || IsBlank(v.back()) ||
                              (v.size() >= 2 && IsQuote(v.front()) && v.back() == v.front()));
  if (!needs) return std::string(v);
  std::string out;
  out.reserve(v.size() + 2);
  out += '"';
  out += v;
  out += '"';
  return out;
}

bool HasLineBreak(std::string_view s) {
  return s.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

bool ValidSectionName(std::string_view s) {
  return !HasLineBreak(s) && s.find(']') == std::string_view::npos;
}

bool ValidValueName(std::string_view name) {
  name = Trim(name);
  return !name.empty() && name.front() != '[' && !HasLineBreak(name) &&
         name.find('=') == std::string_view::npos;
}

// Cuts to at most `limit` bytes without splitting a UTF-8 sequence.
std::string_view CutUtf8(std::string_view s, size_t limit) {
  if (s.size() <= limit) return s;
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) --end;
  return s.substr(0, end);
}


// The text to parse: UTF-16LE files (with their mark) are converted, a UTF-8 mark dropped,
// ill-formed UTF-8 repaired.
std::string DecodeText(std::string_view bytes, ProfileParseReport* report) {
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    bytes.remove_prefix(2);
    std::u16string wide = base::ReadUtf16LE(reinterpret_cast<const uint8_t*>(bytes.data()),
                                            bytes.size() / 2);
    std::string text = base::Utf16ToUtf8(wide);
    if (text.find('\0') != std::string::npos) {
      report->binary = true;
      return {};
    }
    return text;
  }
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  if (bytes.find('\0') != std::string_view::npos) {
    report->binary = true;
    return {};
  }
  if (!base::IsValidUtf8(bytes)) {
    report->invalid_utf8 = true;
    return base::ToDisplayUtf8(bytes);
  }
  return std::string(bytes);
}

}  // namespace

ProfileFile ProfileFile::Parse(std::string_view bytes, ProfileParseReport* report) {
  ProfileParseReport local;
  if (report == nullptr) report = &local;
  *report = ProfileParseReport{};

  ProfileFile file;
  const std::string text = DecodeText(bytes, report);
  std::string_view rest = text;
  Section* current = nullptr;
  while (!rest.empty()) {
    size_t end = rest.find_first_of("\r\n");
    std::string_view line = rest.substr(0, end);
    if (end == std::string_view::npos) {
      rest = {};
    } else {
      size_t skip = (rest[end] == '\r' && end + 1 < rest.size() && rest[end + 1] == '\n') ? 2 : 1;
      rest.remove_prefix(end + skip);
    }

    std::string_view body = Trim(line);
    if (!body.empty() && body.front() == '[') {
      body.remove_prefix(1);
      size_t close = body.find(']');
      std::string_view name = Trim(body.substr(0, close));
      file.sections_.push_back(Section{std::string(name), true, {}});
      current = &file.sections_.back();
      continue;
    }
    if (current == nullptr) {
      file.sections_.push_back(Section{"", false, {}});
      current = &file.sections_.back();
    }
    Line entry;
    size_t eq = body.find('=');
    std::string_view name = eq == std::string_view::npos ? std::string_view() : Trim(body.substr(0, eq));
    if (!name.empty()) {
      entry.is_value = true;
      entry.name = std::string(name);
      entry.value = std::string(Unquote(Trim(body.substr(eq + 1))));
    } else {
      entry.raw = std::string(line);
      if (!body.empty()) ++report->ignored_lines;
    }
    current->lines.push_back(std::move(entry));
  }
  file.Reindex();
  return file;
}

std::string ProfileFile::Serialize() const {
  std::string out;
  for (const Section& section : sections_) {
    if (section.has_header) {
      out += '[';
      out += section.name;
      out += "]\n";
    }
    for (const Line& line : section.lines) {
      if (line.is_value) {
        out += line.name;
        out += '=';
        out += QuoteForWriting(line.value);
      } else {
        out += line.raw;
      }
      out += '\n';
    }
  }
  // A file that starts with U+FEFF as text (a name beginning with it) would lose that
  // character to the byte-order-mark rule when read back: write a mark in front of it.
  if (out.compare(0, 3, "\xEF\xBB\xBF") == 0) out.insert(0, "\xEF\xBB\xBF");
  return out;
}

int ProfileFile::Load(const std::string& path, ProfileParseReport* report) {
  *this = ProfileFile();
  if (report != nullptr) *report = ProfileParseReport{};
  std::string bytes;
  if (int err = platform::ReadRegularFile(path, &bytes, kProfileFileSizeLimit); err != 0) {
    return err;
  }
  *this = Parse(bytes, report);
  return 0;
}

int ProfileFile::Save(const std::string& path, const platform::BeforeRenameHook& before_rename) const {
  return platform::WriteFileAtomically(path, Serialize(), before_rename);
}

void ProfileFile::Reindex() {
  index_.clear();
  for (size_t i = 0; i < sections_.size(); ++i) {
    if (sections_[i].has_header) index_.emplace(Fold(sections_[i].name), i);
  }
}

const ProfileFile::Section* ProfileFile::Find(std::string_view section) const {
  auto it = index_.find(Fold(Trim(section)));
  return it == index_.end() ? nullptr : &sections_[it->second];
}

ProfileFile::Section* ProfileFile::Find(std::string_view section) {
  auto it = index_.find(Fold(Trim(section)));
  return it == index_.end() ? nullptr : &sections_[it->second];
}

ProfileFile::Section& ProfileFile::FindOrAdd(std::string_view section) {
  if (Section* found = Find(section)) return *found;
  // A blank line before a new section, as people lay these files out by hand.
  if (!sections_.empty()) {
    auto& lines = sections_.back().lines;
    if (!lines.empty() && !(lines.back().is_value == false && Trim(lines.back().raw).empty())) {
      lines.push_back(Line{});
    }
  }
  sections_.push_back(Section{std::string(Trim(section)), true, {}});
  index_.emplace(Fold(Trim(section)), sections_.size() - 1);
  return sections_.back();
}

const ProfileFile::Line* ProfileFile::FindValue(const Section& s, std::string_view name) const {
  name = Trim(name);
  for (const Line& line : s.lines) {
    if (line.is_value && SameName(line.name, name)) return &line;
  }
  return nullptr;
}

bool ProfileFile::GetString(std::string_view section, std::string_view name, std::string* value,
                            size_t limit) const {
  const Section* s = Find(section);
  const Line* line = s == nullptr ? nullptr : FindValue(*s, name);
  if (line == nullptr) return false;
  value->assign(CutUtf8(line->value, limit));
  return true;
}

uint32_t ProfileFile::GetInt(std::string_view section, std::string_view name,
                             uint32_t default_value) const {
  std::string text;
  if (!GetString(section, name, &text)) return default_value;
  std::string_view s = Trim(text);
  bool negative = false;
  if (!s.empty() && (s.front() == '+' || s.front() == '-')) {
    negative = s.front() == '-';
    s.remove_prefix(1);
  }
  uint32_t result = 0;
  for (char c : s) {
    if (c < '0' || c > '9') break;
    result = result * 10u + static_cast<uint32_t>(c - '0');
  }
  return negative ? 0u - result : result;
}

bool ProfileFile::GetStruct(std::string_view section, std::string_view name, uint8_t* data,
                            size_t size) const {
  std::string text;
  if (!GetString(section, name, &text)) return false;
  return DecodeStruct(text, data, size);
}

bool ProfileFile::SetString(std::string_view section, std::string_view name,
                            std::string_view value) {
  if (!ValidSectionName(section) || !ValidValueName(name) || HasLineBreak(value)) return false;
  Section& s = FindOrAdd(section);
  name = Trim(name);
  for (Line& line : s.lines) {
    if (line.is_value && SameName(line.name, name)) {
      line.value = std::string(value);
      return true;
    }
  }
  // New values go after the last value, so that blank lines and comments that end the section
  // stay between it and the next one.
  size_t at = s.lines.size();
  while (at > 0 && !s.lines[at - 1].is_value) --at;
  Line line;
  line.is_value = true;
  line.name = std::string(name);
  line.value = std::string(value);
  s.lines.insert(s.lines.begin() + static_cast<std::ptrdiff_t>(at), std::move(line));
  return true;
}

bool ProfileFile::SetStruct(std::string_view section, std::string_view name, const uint8_t* data,
                            size_t size) {
  if (data == nullptr && size != 0) return false;
  return SetString(section, name, EncodeStruct(data, size));
}

bool ProfileFile::DeleteValue(std::string_view section, std::string_view name) {
  Section* s = Find(section);
  if (s == nullptr) return false;
  name = Trim(name);
  bool removed = false;
  for (auto it = s->lines.begin(); it != s->lines.end();) {
    if (it->is_value && SameName(it->name, name)) {
      it = s->lines.erase(it);
      removed = true;
    } else {
      ++it;
    }
  }
  return removed;
}

bool ProfileFile::DeleteSection(std::string_view section) {
  std::string folded = Fold(Trim(section));
  size_t before = sections_.size();
  std::erase_if(sections_, [&](const Section& s) { return s.has_header && Fold(s.name) == folded; });
  if (sections_.size() == before) return false;
  Reindex();
  return true;
}

bool ProfileFile::ClearSection(std::string_view section) {
  if (!ValidSectionName(section)) return false;
  std::string folded = Fold(Trim(section));
  // Later copies of the section go too, or they would show through once the first is empty.
  bool first = true;
  std::erase_if(sections_, [&](const Section& s) {
    if (!s.has_header || Fold(s.name) != folded) return false;
    if (first) {
      first = false;
      return false;
    }
    return true;
  });
  Reindex();
  // The blank lines and comments that end the section separate it from the next one; keeping
  // them lets a section that is cleared and written again come out as it was.
  std::vector<Line>& lines = FindOrAdd(section).lines;
  size_t keep_from = lines.size();
  while (keep_from > 0 && !lines[keep_from - 1].is_value) --keep_from;
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(keep_from));
  return true;
}

bool ProfileFile::HasSection(std::string_view section) const { return Find(section) != nullptr; }

std::vector<std::string> ProfileFile::SectionNames() const {
  std::vector<std::string> names;
  std::unordered_set<std::string> seen;
  for (const Section& s : sections_) {
    if (s.has_header && seen.insert(Fold(s.name)).second) names.push_back(s.name);
  }
  return names;
}

std::vector<std::string> ProfileFile::ValueNames(std::string_view section) const {
  std::vector<std::string> names;
  const Section* s = Find(section);
  if (s == nullptr) return names;
  std::unordered_set<std::string> seen;
  for (const Line& line : s->lines) {
    if (line.is_value && seen.insert(Fold(line.name)).second) names.push_back(line.name);
  }
  return names;
}

std::string ProfileFile::EncodeStruct(const uint8_t* data, size_t size) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(2 * size + 2);
  uint8_t sum = 0;
  for (size_t i = 0; i < size; ++i) {
    text += kHex[data[i] >> 4];
    text += kHex[data[i] & 15];
    sum = static_cast<uint8_t>(sum + data[i]);
  }
  text += kHex[sum >> 4];
  text += kHex[sum & 15];
  return text;
}

bool ProfileFile::DecodeStruct(std::string_view text, uint8_t* data, size_t size) {
  if (text.size() != 2 * size + 2) return false;
  // Check everything before touching `data`, so a damaged block leaves the caller's default.
  uint8_t sum = 0;
  for (size_t i = 0; i <= size; ++i) {
    int hi = HexDigitValue(text[2 * i]);
    int lo = HexDigitValue(text[2 * i + 1]);
    if (hi < 0 || lo < 0) return false;
    uint8_t byte = static_cast<uint8_t>(hi << 4 | lo);
    if (i == size) {
      if (byte != sum) return false;
    } else {
      sum = static_cast<uint8_t>(sum + byte);
    }
  }
  for (size_t i = 0; i < size; ++i) {
    data[i] = static_cast<uint8_t>(HexDigitValue(text[2 * i]) << 4 | HexDigitValue(text[2 * i + 1]));
  }
  return true;
}

}  // namespace trovix::app
