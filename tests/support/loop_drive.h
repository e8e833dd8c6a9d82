// Drives the tests make: a file-system image of its own (ext4 or FAT), loop-mounted where a
// test says and unmounted when it goes. Mounting needs root, a loop device and the kernel's
// driver; WhyNoMounts says which is missing, so that a test can skip and say why.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/run_program.h"

namespace trovix::testing {

// Why drives cannot be mounted here, or empty when they can.
inline std::string WhyNoMounts(const std::string& fs_type) {
  if (::geteuid() != 0) return "mounting images needs root";
  if (::access("/dev/loop-control", R_OK | W_OK) != 0) return "no loop device (/dev/loop-control)";
  const std::string mkfs = "mkfs." + fs_type;
  if (RunProgram("/bin/sh", {"-c", "command -v " + mkfs}).status != 0) return mkfs + " is not installed";
  std::ifstream known("/proc/filesystems");
  std::string line;
  bool driver = false;
  while (std::getline(known, line)) {
    const size_t tab = line.find('\t');
    driver |= tab != std::string::npos && line.substr(tab + 1) == fs_type;
  }
  if (!driver) return "this kernel has no " + fs_type + " driver (/proc/filesystems)";
  return {};
}

// A file-system image of its own, mounted where the test says; unmounted when it goes.
class LoopDrive {
 public:
  LoopDrive(std::string fs_type, std::string image) : fs_type_(std::move(fs_type)), image_(std::move(image)) {}
  ~LoopDrive() { Unmount(); }

  // Makes the file system; empty on success, else why not.
  std::string Make() {
    std::ofstream(image_).close();
    std::filesystem::resize_file(image_, 16u << 20);
    const ProgramRun run = fs_type_ == "vfat" ? RunProgram("mkfs.vfat", {"-n", "STICK", image_})
                                              : RunProgram("mkfs.ext4", {"-q", "-F", image_});
    return run.status == 0 ? std::string() : "mkfs." + fs_type_ + " failed";
  }
  bool Mount(const std::string& at) {
    std::filesystem::create_directories(at);
    if (RunProgram("mount", {"-t", fs_type_, "-o", "loop", image_, at}).status != 0) return false;
    at_ = at;
    return true;
  }
  void Unmount() {
    if (at_.empty()) return;
    RunProgram("umount", {at_});
    at_.clear();
  }

 private:
  std::string fs_type_, image_, at_;
};

}  // namespace trovix::testing
