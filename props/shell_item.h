// ShellItem: the result item on every route (walk, index, volume scan). On this platform it
// wraps a path of the file system (raw bytes: names that are not valid UTF-8 stay exactly as
// the file system has them) and fills everything else lazily:
//   - the file status (statx), asked once;
//   - the shell-attribute cache: a known mask and the answers, so each bit is computed once;
//   - the file-attribute word, 0xDEADBEEF until asked, 0xFFFFFFFF when unknown;
//   - the per-item cache of property values, one node per property asked for.
//
// An item inside an archive (a member of a virtual folder) is not in the file system: its path
// is the archive's path followed by the member's path ("/x/a.zip/docs/b.pdf"), its status is
// what the archive's listing said, and its archive location says where its bytes are.
//
// Linux counterparts of the shell attributes: FOLDER a directory (a symbolic link to a
// directory counts as a folder), FILESYSTEM every path item (not archive members), FILESYSANCESTOR and HASSUBFOLDER
// directories, HIDDEN a name beginning with ".", LINK a symbolic link, CANCOPY every
// item, ISSLOW never.
//
// Items are shared by reference (std::shared_ptr); whoever keeps one holds a reference. An
// item is used by one thread at a time: nothing in it is locked.
#pragma once

#include <cstdint>
#include <forward_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file_status.h"
#include "props/prop_value.h"

namespace trovix::props {

// Shell attribute bits (the platform's SFGAO_* values).
enum ShellAttribute : uint32_t {
  SFGAO_CANCOPY = 0x00000001,
  SFGAO_ISSLOW = 0x00004000,
  SFGAO_LINK = 0x00010000,
  SFGAO_HIDDEN = 0x00080000,
  SFGAO_STREAM = 0x00400000,
  SFGAO_FILESYSANCESTOR = 0x10000000,
  SFGAO_FOLDER = 0x20000000,
  SFGAO_FILESYSTEM = 0x40000000,
  SFGAO_HASSUBFOLDER = 0x80000000,
};

// Where an archive member's bytes are: the archive file, then the member path inside it, then
// (for an archive inside the archive) the member path inside that, and so on.
struct ArchiveLocation {
  std::string container;             // the archive in the file system
  std::vector<std::string> members;  // at least one
};

// One node of the per-item value cache: the property's hash, its value and two text slots
// that the display layer fills (for example the formatted column text).
struct CachedValue {
  uint32_t hash = 0;
  PropValue value;
  std::string display[2];
};

class ShellItem {
 public:
  // An item for an absolute (or working-folder relative) path. `follow_links` makes a
  // symbolic link take its target's properties; otherwise the link is an item of its own.
  static std::shared_ptr<ShellItem> FromPath(std::string path, bool follow_links = false);
  // An item from a folder listing, with the type the listing reported (kUnknown when it
  // reported none), so that no stat is needed until a rule or column asks for more.
  static std::shared_ptr<ShellItem> FromListing(std::string path, platform::FileType listed_type,
                                                bool follow_links = false);

  // A member of an archive, with the status its listing gave (type, size, times).
  static std::shared_ptr<ShellItem> FromArchiveMember(ArchiveLocation location,
                                                      const platform::FileStatus& status);

  const std::string& path() const { return path_; }
  std::string_view name() const;
  // Valid UTF-8 for showing: ill-formed bytes become U+FFFD.
  std::string DisplayPath() const;
  std::string DisplayName() const;
  // The extension without its period ("txt"); empty when the name has none.
  std::string_view extension() const;

  bool IsFileSystem() const { return archive_ == nullptr; }
  // Where a member's bytes are; nullptr for items of the file system.
  const ArchiveLocation* archive() const { return archive_.get(); }
  bool follow_links() const { return follow_links_; }

  // The file status, asked once; nullptr when the item has vanished or cannot be asked.
  const platform::FileStatus* Status();
  // The status errno of the last ask (0 when it succeeded or was not made).
  int status_error() const { return status_error_; }
  // Hands over a status asked while listing the item's folder, exactly as Status() would
  // have asked it (error: its errno). Status() then asks nothing more.
  void SetListedStatus(int error, const platform::FileStatus& status);
  // The type without a stat when the listing told it; asks the file system otherwise.
  platform::FileType Type();
  bool IsFolder();

  // Shell attributes: asks only for the bits not yet known, then returns values & mask.
  uint32_t GetAttributes(uint32_t mask);
  // The file-attribute word. Not strict: 0xFFFFFFFF when unknown; strict: 0 when unknown.
  uint32_t FileAttributes(bool strict = false);

  // The per-item value cache. Find returns nullptr when the property was not fetched yet.
  CachedValue* FindCached(uint32_t hash);
  CachedValue* AddCached(uint32_t hash, PropValue value);

  // Where a contents rule found its text, on one line, for the results' excerpt column; set
  // by the search when the item matched.
  const std::string& hit_excerpt() const { return hit_excerpt_; }
  void set_hit_excerpt(std::string excerpt) { hit_excerpt_ = std::move(excerpt); }
  // Whether the file's own properties were read into the value cache already (one read
  // gives them all; see props/property_source.h).
  bool own_properties_read() const { return own_properties_read_; }
  void set_own_properties_read() { own_properties_read_ = true; }
  // Whether a search already counted this file among those whose text it could not read.
  bool unread_counted() const { return unread_counted_; }
  void set_unread_counted() { unread_counted_ = true; }
  // Whether the item lies on a drive that is not mounted: it came from the index's catalogue,
  // and its status and values are what the index kept then (none of it can be read now).
  bool offline() const { return offline_; }
  void set_offline() { offline_ = true; }

 private:
  // Only the factories make items; the key lets them use std::make_shared (one allocation
  // for the item and its reference count, which a walk over many items notices).
  struct Key {
    explicit Key() = default;
  };

 public:
  ShellItem(Key, std::string path, platform::FileType listed_type, bool follow_links);

 private:
  uint32_t ComputeShellAttributes(uint32_t mask, bool* ok);

  std::string path_;
  size_t name_offset_ = 0;
  size_t name_end_ = 0;
  platform::FileType listed_type_;
  bool follow_links_;
  enum class StatState : uint8_t { kNotAsked, kOk, kFailed } stat_state_ = StatState::kNotAsked;
  int status_error_ = 0;
  platform::FileStatus status_;
  uint32_t known_mask_ = 0;
  uint32_t shell_attributes_ = 0;
  uint32_t file_attributes_ = platform::kAttributesNotAsked;
  std::forward_list<CachedValue> cache_;
  std::unique_ptr<ArchiveLocation> archive_;
  std::string hit_excerpt_;
  bool own_properties_read_ = false;
  bool unread_counted_ = false;
  bool offline_ = false;
};

using ShellItemPtr = std::shared_ptr<ShellItem>;

// Status reads of items in this process: every stat ShellItem::Status makes, and every one a
// folder listing makes on an item's behalf (CountStatusRead). What a search pays the file
// system beyond its listings; tests read it to hold the walk to the rules that need it.
void CountStatusRead();
uint64_t StatusReadCount();

}  // namespace trovix::props
