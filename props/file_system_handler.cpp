// The file-system property handler: the facts every path item has (names, folder, size,
// times, owner, link target), read from the item's lazily filled status. It is this
// platform's answer for the innate System.* properties.
#include <iterator>
#include <string>
#include <vector>

#include "base/utf.h"
#include "props/handler_registry.h"
#include "props/property_key.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

enum class Fact { kName, kPath, kFolderPath, kFolderName, kExtension, kSize, kModified, kCreated, kAccessed, kOwner, kLinkTarget, kComment };

struct FactRow {
  const char* name;
  const char* label;
  const char* description;
  uint16_t flags;
  Fact fact;
};

constexpr uint16_t kIndexedInnate = kPropIndexed | kPropInnate;

constexpr FactRow kFacts[] = {
    {"System.ItemNameDisplay", "Name", "The item's name as shown, with its extension", kIndexedInnate, Fact::kName},
    {"System.ItemPathDisplay", "Path", "The item's full path", kIndexedInnate, Fact::kPath},
    {"System.ItemFolderPathDisplay", "Folder path", "The full path of the folder that holds the item", kIndexedInnate, Fact::kFolderPath},
    {"System.ItemFolderNameDisplay", "Folder name", "The name of the folder that holds the item", kPropInnate, Fact::kFolderName},
    {"System.FileExtension", "File extension", "The extension of the item's name, with its period", kIndexedInnate, Fact::kExtension},
    {"System.Size", "Size", "The size of the file's contents in bytes", kIndexedInnate, Fact::kSize},
    {"System.DateModified", "Date modified", "When the item was last written", kIndexedInnate, Fact::kModified},
    {"System.DateCreated", "Date created", "When the item was created (its birth time where the file system keeps one)", kIndexedInnate, Fact::kCreated},
    {"System.DateAccessed", "Date accessed", "When the item was last read", kPropInnate, Fact::kAccessed},
    {"System.FileOwner", "Owner", "The user who owns the item", kPropInnate, Fact::kOwner},
    {"System.Link.TargetParsingPath", "Link target", "The path a symbolic link points to", kPropInnate, Fact::kLinkTarget},
    // The comment kept beside the item (its folder's desktop entry, its comment stream) is
    // the fetcher's fall-back, asked after the document handlers; this row only offers it.
    {"System.Comment", "Comments", "The item's comment", 0, Fact::kComment},
};

class FileSystemHandler : public PropertyHandler {
 public:
  FileSystemHandler() {
    produces_.reserve(std::size(kFacts));
    facts_.reserve(std::size(kFacts));
    for (const FactRow& row : kFacts) {
      produces_.push_back(ProducedProperty{row.name, row.label, row.description, row.flags, nullptr});
      if (const SystemPropertyRow* sys = FindSystemProperty(row.name)) facts_.push_back({sys->key.Hash(), row.fact});
    }
  }

  std::string_view Name() const override { return "file system"; }
  const std::vector<ProducedProperty>& Produces() const override { return produces_; }
  bool Accepts(ShellItem& item) const override { return item.IsFileSystem(); }

  HRESULT GetValue(ShellItem& item, const PropertyInfo& property, PropValue* out) const override {
    for (const auto& [hash, fact] : facts_)
      if (hash == property.hash) return Get(item, fact, out);
    return E_FAIL;
  }

 private:
  static HRESULT Get(ShellItem& item, Fact fact, PropValue* out) {
    switch (fact) {
      case Fact::kName:
        *out = PropValue::Text(item.DisplayName());
        return S_OK;
      case Fact::kPath:
        *out = PropValue::Text(item.DisplayPath());
        return S_OK;
      case Fact::kFolderPath:
      case Fact::kFolderName: {
        std::string path = item.DisplayPath();
        size_t slash = path.find_last_of('/');
        if (slash == std::string::npos) return S_FALSE;
        std::string folder = slash == 0 ? "/" : path.substr(0, slash);
        if (fact == Fact::kFolderName) {
          size_t prev = folder.find_last_of('/');
          folder = prev == std::string::npos || folder == "/" ? folder : folder.substr(prev + 1);
        }
        *out = PropValue::Text(folder);
        return S_OK;
      }
      case Fact::kComment:
        return S_FALSE;
      case Fact::kExtension: {
        if (item.IsFolder()) return S_FALSE;
        std::string_view ext = item.extension();
        *out = ext.empty() ? PropValue() : PropValue::Text("." + std::string(ext));
        return S_OK;
      }
      default:
        break;
    }
    const platform::FileStatus* st = item.Status();
    if (!st) return E_FAIL;
    switch (fact) {
      case Fact::kSize:
        // A folder, and a link that is not followed, have no size of their own.
        if (st->IsDirectory() || st->IsSymlink()) return S_FALSE;
        *out = PropValue::UInt64(st->size);
        return S_OK;
      // A time of 0 (1601-01-01) is one the source never gave: an archive member carries its
      // modification time at most, and "no value" is the honest answer for the others.
      case Fact::kModified:
        return TimeValue(st->modified, out);
      case Fact::kCreated:
        return TimeValue(st->created, out);
      case Fact::kAccessed:
        return TimeValue(st->accessed, out);
      case Fact::kOwner:
        return OwnerName(*st, out);
      case Fact::kLinkTarget:
        return LinkTarget(item, out);
      default:
        return E_FAIL;
    }
  }

  static HRESULT TimeValue(base::FileTime time, PropValue* out) {
    if (time == 0) return S_FALSE;
    *out = PropValue::FileTime(time);
    return S_OK;
  }

  static HRESULT OwnerName(const platform::FileStatus& st, PropValue* out) {
    *out = PropValue::Text(platform::UserName(st.uid));
    return S_OK;
  }

  static HRESULT LinkTarget(ShellItem& item, PropValue* out) {
    std::string target;
    if (!platform::ReadLinkTarget(item.path(), &target)) return S_FALSE;
    *out = PropValue::Text(base::ToDisplayUtf8(target));
    return S_OK;
  }

  std::vector<ProducedProperty> produces_;
  std::vector<std::pair<uint32_t, Fact>> facts_;
};

}  // namespace

std::unique_ptr<PropertyHandler> MakeFileSystemHandler() { return std::make_unique<FileSystemHandler>(); }

}  // namespace trovix::props
