// File kinds: named, user-editable lists of extension patterns ("pictures" = "bmp,ico,jpg,...")
// that give the value of Stock.Kind and the categories of a "Type" rule. A kind accepts an item
// when the keyword-list matcher of the text patterns accepts the item's extension against the
// kind's comma-separated pattern list (wildcards, "+" and "-" terms as in keyword lists).
//
// The table is kept sorted by name without regard to case, so matching goes in alphabetical
// order and the first kind that accepts an extension decides, whatever order the user defined
// the kinds in.
//
// The process-wide table is set by the application after it has loaded its settings
// (SetFileKinds); until then the default kinds apply. This layer never reads the settings
// itself. Thread-safety: SetFileKinds and CurrentFileKinds may be called from any thread; a
// FileKindTable is immutable once made and compiles its pattern lists once, on first use,
// under a once-flag, so it may be matched from any number of threads.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "props/property_info.h"
#include "props/shell_item.h"

namespace trovix::rules {
class KeywordProgram;
}

namespace trovix::props {

struct FileKind {
  std::string name;      // shown to the user and the value of Stock.Kind
  std::string patterns;  // comma-separated extension patterns
};

class FileKindTable {
 public:
  // Sorts `kinds` by name (case-insensitive; a kind goes before the first one whose name sorts
  // after its own, so equal names keep their order).
  explicit FileKindTable(std::vector<FileKind> kinds);
  ~FileKindTable();
  FileKindTable(const FileKindTable&) = delete;
  FileKindTable& operator=(const FileKindTable&) = delete;

  const std::vector<FileKind>& kinds() const { return kinds_; }
  // The kind names in table order: the drop-down list of a "Type" rule and of Stock.Kind.
  std::vector<std::string> Names() const;
  // The same names as the text options of an enumerated rule on Stock.Kind (each option
  // matches its kind's name), made once per table.
  std::shared_ptr<const OptionList> Options() const;

  // The name of the first kind accepting `extension` (given without its period); nullopt when
  // none does or the extension is empty. A kind with an empty or unusable pattern list accepts
  // nothing.
  std::optional<std::string> KindOfExtension(std::string_view extension) const;

 private:
  void Compile() const;

  std::vector<FileKind> kinds_;
  mutable std::once_flag compiled_;
  mutable std::once_flag options_made_;
  mutable std::shared_ptr<const OptionList> options_;
  mutable std::vector<std::unique_ptr<rules::KeywordProgram>> programs_;
};

// The eight default kinds (names from the string table, lists fixed), sorted by name. A
// default whose name text is empty is left out.
std::vector<FileKind> DefaultFileKinds();

// Replaces the process-wide table; an empty list brings back the defaults. Tables handed out
// before stay valid for whoever holds them.
void SetFileKinds(std::vector<FileKind> kinds);
std::shared_ptr<const FileKindTable> CurrentFileKinds();

// The kind of an item for Stock.Kind: nullopt for an item without an extension or one that no
// kind accepts. Folders are the caller's business (they are "Folder", not a kind).
std::optional<std::string> KindOf(ShellItem& item);

}  // namespace trovix::props
