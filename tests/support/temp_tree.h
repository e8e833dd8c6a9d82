// TempTree: a temporary folder with a fixture tree built from one line per entry, removed
// (with everything in it, links not followed) when the object goes out of scope.
//
//   trovix::testing::TempTree tree({"a/b.txt", "a/.hidden/c.txt=some text", "empty/", "link->a"});
//   tree.path("a/b.txt")  // absolute path of an entry
//
// Entry syntax (paths relative to the tree's root, missing parent folders are created):
//   "dir/"          a folder (trailing slash)
//   "file"          an empty regular file
//   "file=text"     a regular file holding `text` (the first "=" splits; names with "=" need File())
//   "name->target"  a symbolic link; `target` is stored as written, so it is relative to the
//                   link's own folder ("a/loop->.." points back at "a"'s parent)
//   "name|fifo"     a named pipe
// Names are bytes: "\xff.txt" makes a name that is not valid UTF-8.
//
// Failures to build the tree are reported as a GoogleTest failure (ADD_FAILURE) naming the
// entry. Not thread-safe; one tree per test.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>

namespace trovix::testing {

class TempTree {
 public:
  explicit TempTree(std::initializer_list<std::string_view> entries = {}) {
    const char* tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/trovix-tree-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) {
      ADD_FAILURE() << "cannot create a temporary folder under " << templ;
      return;
    }
    root_ = templ;
    for (std::string_view e : entries) Add(e);
  }
  ~TempTree() {
    std::error_code ec;
    if (!root_.empty()) std::filesystem::remove_all(root_, ec);
  }
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  // The absolute path of the root, or of `relative` inside it.
  const std::string& root() const { return root_; }
  std::string path(std::string_view relative) const {
    return relative.empty() ? root_ : root_ + "/" + std::string(relative);
  }

  // One entry in the syntax above.
  void Add(std::string_view entry) {
    if (size_t arrow = entry.find("->"); arrow != std::string_view::npos) {
      Link(entry.substr(0, arrow), entry.substr(arrow + 2));
    } else if (entry.size() > 5 && entry.substr(entry.size() - 5) == "|fifo") {
      Fifo(entry.substr(0, entry.size() - 5));
    } else if (!entry.empty() && entry.back() == '/') {
      Dir(entry.substr(0, entry.size() - 1));
    } else if (size_t eq = entry.find('='); eq != std::string_view::npos) {
      File(entry.substr(0, eq), entry.substr(eq + 1));
    } else {
      File(entry, "");
    }
  }

  void Dir(std::string_view relative) {
    std::error_code ec;
    std::filesystem::create_directories(path(relative), ec);
    if (ec) ADD_FAILURE() << "folder " << relative << ": " << ec.message();
  }
  void File(std::string_view relative, std::string_view text) {
    MakeParent(relative);
    std::ofstream out(path(relative), std::ios::binary | std::ios::trunc);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!out) ADD_FAILURE() << "file " << relative;
  }
  void Link(std::string_view relative, std::string_view target) {
    MakeParent(relative);
    if (symlink(std::string(target).c_str(), path(relative).c_str()) != 0)
      ADD_FAILURE() << "link " << relative << " -> " << target;
  }
  void Fifo(std::string_view relative) {
    MakeParent(relative);
    if (mkfifo(path(relative).c_str(), 0644) != 0) ADD_FAILURE() << "fifo " << relative;
  }
  // Removes one entry (a folder with its contents); for items that vanish mid-walk.
  void Remove(std::string_view relative) {
    std::error_code ec;
    std::filesystem::remove_all(path(relative), ec);
  }

 private:
  void MakeParent(std::string_view relative) {
    size_t slash = relative.rfind('/');
    if (slash != std::string_view::npos) Dir(relative.substr(0, slash));
  }

  std::string root_;
};

}  // namespace trovix::testing
