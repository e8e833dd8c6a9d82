#include "props/file_kinds.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>

#include "base/string_table.h"
#include "rules/patterns/text_pattern.h"

namespace trovix::props {
namespace {

// Extensions are matched whole ("c" must not accept "cpp") and without regard to case.
constexpr uint32_t kKindMatchFlags = rules::kPatternIgnoreCase | rules::kPatternExact;

bool NameLess(const FileKind& a, const FileKind& b) {
  return icu::UnicodeString::fromUTF8(a.name).caseCompare(
             icu::UnicodeString::fromUTF8(b.name), U_FOLD_CASE_DEFAULT) < 0;
}

std::mutex& TableMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<const FileKindTable>& TableSlot() {
  static std::shared_ptr<const FileKindTable> table;
  return table;
}

}  // namespace

FileKindTable::FileKindTable(std::vector<FileKind> kinds) : kinds_(std::move(kinds)) {
  std::stable_sort(kinds_.begin(), kinds_.end(), NameLess);
}

FileKindTable::~FileKindTable() = default;

std::vector<std::string> FileKindTable::Names() const {
  std::vector<std::string> names;
  names.reserve(kinds_.size());
  for (const FileKind& kind : kinds_) names.push_back(kind.name);
  return names;
}

std::shared_ptr<const OptionList> FileKindTable::Options() const {
  std::call_once(options_made_, [this] {
    auto list = std::make_shared<OptionList>();
    list->kind = OptionList::Kind::kText;
    for (const FileKind& kind : kinds_) list->options.push_back(PropertyOption{kind.name, 0, 0, kind.name});
    options_ = std::move(list);
  });
  return options_;
}

void FileKindTable::Compile() const {
  programs_.reserve(kinds_.size());
  for (const FileKind& kind : kinds_) {
    // A list that does not compile (an unbalanced bracket the user typed) leaves a null
    // program: that kind accepts nothing, the others still work.
    programs_.push_back(
        kind.patterns.empty()
            ? nullptr
            : rules::KeywordProgram::CompileTerms(kind.patterns, ',', kKindMatchFlags));
  }
}

std::optional<std::string> FileKindTable::KindOfExtension(std::string_view extension) const {
  if (extension.empty()) return std::nullopt;
  std::call_once(compiled_, [this] { Compile(); });
  for (size_t i = 0; i < kinds_.size(); ++i) {
    if (programs_[i] && programs_[i]->Match(extension)) return kinds_[i].name;
  }
  return std::nullopt;
}

std::vector<FileKind> DefaultFileKinds() {
  struct Default {
    uint32_t string_id;
    std::string_view patterns;
  };
  static constexpr Default kDefaults[] = {
      {11240, "wav,mp3,wma,mpa,cda,snd,aif,ogg,ac3,m4a,m3u,mid,flac,mod"},
      {11241, "wmv,avi,mov,mpg,asx,3gp,mkv,flv,mp4,asf,mts,tts,wvx,m1v,qt"},
      {11242, "txt,pdf,xls*,ppt*,rtf,doc*"},
      {11243, "bmp,ico,jpg,gif,img,pcx,png,tif,xcf,raw,emf,tga"},
      {11244, "exe,dll,bat,cmd,com,ps1"},
      {11245, "c,h,cpp,hpp,rc,m,f,cs"},
      {11246, "plg,aps,ncb,opt,idb,obj,pch,sbr,ilk"},
      {11247, "htm*,php,asp,css,xml,htc,js,mht"},
  };
  std::vector<FileKind> kinds;
  for (const Default& d : kDefaults) {
    // The names follow the user-interface language; a translation without one drops the kind.
    std::string_view name = base::LoadString(d.string_id);
    if (name.empty()) continue;
    kinds.push_back(FileKind{std::string(name), std::string(d.patterns)});
  }
  std::stable_sort(kinds.begin(), kinds.end(), NameLess);
  return kinds;
}

void SetFileKinds(std::vector<FileKind> kinds) {
  auto table = std::make_shared<const FileKindTable>(kinds.empty() ? DefaultFileKinds()
                                                                   : std::move(kinds));
  std::lock_guard lock(TableMutex());
  TableSlot() = std::move(table);
}

std::shared_ptr<const FileKindTable> CurrentFileKinds() {
  std::lock_guard lock(TableMutex());
  std::shared_ptr<const FileKindTable>& slot = TableSlot();
  if (!slot) slot = std::make_shared<const FileKindTable>(DefaultFileKinds());
  return slot;
}

std::optional<std::string> KindOf(ShellItem& item) {
  std::string_view extension = item.extension();
  if (extension.empty()) return std::nullopt;
  return CurrentFileKinds()->KindOfExtension(extension);
}

}  // namespace trovix::props
