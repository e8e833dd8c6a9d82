// Makes an NTFS image of N empty files in folders of 1,000 for bench/ntfs_speed.sh, through
// libntfs-3g without mounting. Built by the script itself: the library is no dependency of
// the product.
//
//   make_ntfs_image IMAGE FILES
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>  // libntfs-3g's headers use time types without including it
#include <string>

extern "C" {
#include <ntfs-3g/types.h>
#include <ntfs-3g/volume.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/unistr.h>
}

static ntfs_inode* Create(ntfs_inode* dir, const std::string& name, mode_t type) {
  ntfschar* uname = nullptr;
  const int len = ntfs_mbstoucs(name.c_str(), &uname);
  ntfs_inode* ni = len > 0 ? ntfs_create(dir, const_cpu_to_le32(0), uname, static_cast<u8>(len), type) : nullptr;
  free(uname);
  return ni;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: make_ntfs_image IMAGE FILES\n");
    return 2;
  }
  const long files = std::atol(argv[2]);
  ntfs_volume* vol = ntfs_mount(argv[1], NTFS_MNT_NONE);
  if (vol == nullptr) {
    std::perror("ntfs_mount");
    return 1;
  }
  ntfs_inode* root = ntfs_pathname_to_inode(vol, nullptr, "/");
  ntfs_inode* folder = nullptr;
  for (long i = 0; i < files; ++i) {
    if (i % 1000 == 0) {
      if (folder != nullptr) ntfs_inode_close(folder);
      folder = Create(root, "folder " + std::to_string(i / 1000), S_IFDIR);
      if (folder == nullptr) return 1;
    }
    ntfs_inode* ni = Create(folder, "file " + std::to_string(i) + (i % 10 == 0 ? ".txt" : ".dat"), S_IFREG);
    if (ni == nullptr) {
      std::perror("ntfs_create");
      return 1;
    }
    ntfs_inode_close(ni);
  }
  if (folder != nullptr) ntfs_inode_close(folder);
  ntfs_inode_close(root);
  return ntfs_umount(vol, FALSE) == 0 ? 0 : 1;
}
