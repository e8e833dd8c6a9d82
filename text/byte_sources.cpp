// The two kinds of input a text reader gets: an open file and a block of memory.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "text/text_reader.h"
#include "platform/regular_file.h"

namespace trovix::text {
namespace {

constexpr off_t kSequentialHintBytes = 128 * 1024;

class FileSource : public ByteSource {
 public:
  FileSource(int fd, int64_t size) : fd_(fd), size_(size) {}
  ~FileSource() override { close(fd_); }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  long Read(char* buffer, size_t size) override {
    for (;;) {
      ssize_t n = read(fd_, buffer, size);
      if (n >= 0) return static_cast<long>(n);
      if (errno != EINTR) return -1;
    }
  }
  int64_t Size() const override { return size_; }

 private:
  int fd_;
  int64_t size_;
};

class BlockSource : public ByteSource {
 public:
  explicit BlockSource(std::string bytes) : bytes_(std::move(bytes)) {}
  long Read(char* buffer, size_t size) override {
    size_t n = std::min(size, bytes_.size() - position_);
    if (n > 0) std::memcpy(buffer, bytes_.data() + position_, n);
    position_ += n;
    return static_cast<long>(n);
  }
  int64_t Size() const override { return static_cast<int64_t>(bytes_.size()); }

 private:
  std::string bytes_;
  size_t position_ = 0;
};

}  // namespace

std::unique_ptr<ByteSource> OpenFileSource(const std::string& path) {
  // Opening a named pipe must not stall a search: it is refused, as a device is.
  int fd = -1;
  struct stat st;
  const int error = platform::OpenRegularFile(path, &fd, &st);
  if (error != 0) {
    errno = error == platform::kNotRegularFile ? EINVAL : error;
    return nullptr;
  }
  // Contents searches read each file once from front to back: let the kernel read ahead far.
  // A file within the kernel's usual read-ahead (128 KiB) gains nothing by it, and most text
  // files are that small: for them the call would be one system call more per file.
  if (st.st_size > kSequentialHintBytes) posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  return std::make_unique<FileSource>(fd, static_cast<int64_t>(st.st_size));
}

std::unique_ptr<ByteSource> MemorySource(std::string bytes) {
  return std::make_unique<BlockSource>(std::move(bytes));
}

}  // namespace trovix::text
