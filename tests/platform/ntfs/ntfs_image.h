// NtfsImage: a small NTFS image made with mkntfs and filled through libntfs-3g, without
// mounting (no kernel driver and no root needed). A line per item, as the walk tests' trees:
//   NtfsImage image;  image.Folder("/docs");  image.File("/docs/a.txt", kHidden);
// Close() writes everything out; the reader under test then opens path().
#pragma once

#include <cstdint>
#include <string>

namespace trovix::testing {

class NtfsImage {
 public:
  // An empty volume of `megabytes`; ok() is false (with error()) when mkntfs failed.
  explicit NtfsImage(int megabytes = 16);
  ~NtfsImage();
  NtfsImage(const NtfsImage&) = delete;
  NtfsImage& operator=(const NtfsImage&) = delete;

  bool ok() const { return volume_ != nullptr; }
  const std::string& error() const { return error_; }
  const std::string& path() const { return path_; }

  // Each returns the new file's record number, or 0 on failure. `attributes` are file
  // attribute bits (0x2 hidden, 0x4 system) set in the standard information; `data_bytes` of
  // contents take clusters, which is how a test makes the growing table break into pieces.
  uint64_t Folder(const std::string& path, uint32_t attributes = 0);
  uint64_t File(const std::string& path, uint32_t attributes = 0, size_t data_bytes = 0);
  // Another name (hard link) for an existing file.
  bool Link(const std::string& existing, const std::string& new_path);
  // Sets the DOS (8.3) name of an existing file beside its long name.
  bool SetDosName(const std::string& path, const std::string& dos_name);
  bool Remove(const std::string& path);
  // Writes everything out and lets go of the volume; the image can then be read.
  bool Close();

 private:
  uint64_t Create(const std::string& path, uint32_t attributes, bool folder, size_t data_bytes);
  std::string dir_;
  std::string path_;
  std::string error_;
  void* volume_ = nullptr;  // ntfs_volume*
};

}  // namespace trovix::testing
