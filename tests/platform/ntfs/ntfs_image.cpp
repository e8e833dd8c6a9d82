#include "tests/platform/ntfs/ntfs_image.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>  // libntfs-3g's headers use time types without including it
#include <filesystem>

extern "C" {
#include <ntfs-3g/types.h>
#include <ntfs-3g/volume.h>
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/unistr.h>
}

namespace trovix::testing {
namespace {

ntfs_volume* Vol(void* v) { return static_cast<ntfs_volume*>(v); }

void Split(const std::string& path, std::string* parent, std::string* name) {
  const size_t slash = path.rfind('/');
  *parent = slash == 0 ? "/" : path.substr(0, slash);
  *name = path.substr(slash + 1);
}

}  // namespace

NtfsImage::NtfsImage(int megabytes) {
  char pattern[] = "/tmp/trovix-ntfs-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    error_ = "mkdtemp failed";
    return;
  }
  dir_ = pattern;
  path_ = dir_ + "/volume.img";
  const std::string command = "truncate -s " + std::to_string(megabytes) + "M " + path_ +
                              " && mkntfs -q -F -f -L test " + path_ + " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) {
    error_ = "mkntfs failed";
    return;
  }
  volume_ = ntfs_mount(path_.c_str(), NTFS_MNT_NONE);
  if (volume_ == nullptr) error_ = "ntfs_mount failed";
}

NtfsImage::~NtfsImage() {
  Close();
  if (!dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
}

bool NtfsImage::Close() {
  if (volume_ == nullptr) return true;
  const int rc = ntfs_umount(Vol(volume_), FALSE);
  volume_ = nullptr;
  return rc == 0;
}

uint64_t NtfsImage::Create(const std::string& path, uint32_t attributes, bool folder, size_t data_bytes) {
  if (volume_ == nullptr) return 0;
  std::string parent, name;
  Split(path, &parent, &name);
  ntfs_inode* dir = ntfs_pathname_to_inode(Vol(volume_), nullptr, parent.c_str());
  if (dir == nullptr) return 0;
  ntfschar* uname = nullptr;
  const int len = ntfs_mbstoucs(name.c_str(), &uname);
  uint64_t number = 0;
  if (len > 0) {
    ntfs_inode* ni = ntfs_create(dir, const_cpu_to_le32(0), uname, static_cast<u8>(len), folder ? S_IFDIR : S_IFREG);
    if (ni != nullptr) {
      number = ni->mft_no;
      if (attributes != 0) {
        ni->flags = static_cast<FILE_ATTR_FLAGS>(ni->flags | cpu_to_le32(attributes));
        NInoSetDirty(ni);
      }
      if (data_bytes > 0) {
        ntfs_attr* data = ntfs_attr_open(ni, AT_DATA, AT_UNNAMED, 0);
        const std::string bytes(data_bytes, 'd');
        if (data == nullptr || ntfs_attr_pwrite(data, 0, static_cast<s64>(bytes.size()), bytes.data()) !=
                                   static_cast<s64>(bytes.size()))
          number = 0;
        if (data != nullptr) ntfs_attr_close(data);
      }
      // Closing a file whose size changed updates its entry in the folder's index; with the
      // folder already open here, it must be told so, or the library opens a second copy of the
      // folder and never lets go of it.
      if (ntfs_inode_close_in_dir(ni, dir) != 0) number = 0;
    }
  }
  free(uname);
  ntfs_inode_close(dir);
  return number;
}

uint64_t NtfsImage::Folder(const std::string& path, uint32_t attributes) { return Create(path, attributes, true, 0); }
uint64_t NtfsImage::File(const std::string& path, uint32_t attributes, size_t data_bytes) {
  return Create(path, attributes, false, data_bytes);
}

bool NtfsImage::Link(const std::string& existing, const std::string& new_path) {
  if (volume_ == nullptr) return false;
  std::string parent, name;
  Split(new_path, &parent, &name);
  ntfs_inode* ni = ntfs_pathname_to_inode(Vol(volume_), nullptr, existing.c_str());
  ntfs_inode* dir = ntfs_pathname_to_inode(Vol(volume_), nullptr, parent.c_str());
  ntfschar* uname = nullptr;
  const int len = ntfs_mbstoucs(name.c_str(), &uname);
  const bool ok = ni != nullptr && dir != nullptr && len > 0 && ntfs_link(ni, dir, uname, static_cast<u8>(len)) == 0;
  free(uname);
  if (ni != nullptr) ntfs_inode_close(ni);
  if (dir != nullptr) ntfs_inode_close(dir);
  return ok;
}

bool NtfsImage::SetDosName(const std::string& path, const std::string& dos_name) {
  if (volume_ == nullptr) return false;
  std::string parent, name;
  Split(path, &parent, &name);
  ntfs_inode* ni = ntfs_pathname_to_inode(Vol(volume_), nullptr, path.c_str());
  ntfs_inode* dir = ntfs_pathname_to_inode(Vol(volume_), nullptr, parent.c_str());
  if (ni == nullptr || dir == nullptr) {
    if (ni != nullptr) ntfs_inode_close(ni);
    if (dir != nullptr) ntfs_inode_close(dir);
    return false;
  }
  // The call closes both inodes itself, whatever it answers.
  return ntfs_set_ntfs_dos_name(ni, dir, dos_name.c_str(), dos_name.size(), 0) == 0;
}

bool NtfsImage::Remove(const std::string& path) {
  if (volume_ == nullptr) return false;
  std::string parent, name;
  Split(path, &parent, &name);
  ntfs_inode* ni = ntfs_pathname_to_inode(Vol(volume_), nullptr, path.c_str());
  ntfs_inode* dir = ntfs_pathname_to_inode(Vol(volume_), nullptr, parent.c_str());
  ntfschar* uname = nullptr;
  const int len = ntfs_mbstoucs(name.c_str(), &uname);
  // ntfs_delete closes both inodes.
  const bool ok = ni != nullptr && dir != nullptr && len > 0 &&
                  ntfs_delete(Vol(volume_), path.c_str(), ni, dir, uname, static_cast<u8>(len)) == 0;
  free(uname);
  return ok;
}

}  // namespace trovix::testing
