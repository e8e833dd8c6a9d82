#include "engine/walk/ignore_pruner.h"

#include <sys/stat.h>

#include <filesystem>

#include "platform/regular_file.h"

namespace trovix::engine {
namespace {

struct Layer {
  std::vector<IgnorePattern> patterns;
};

// What a folder's children are judged by: each layer with the path of this folder relative to
// the layer's own folder ("" for its own folder, "sub/dir/" further down), shallowest first.
struct State {
  std::string from_root;  // this folder relative to the search root, "" or ending in "/"
  std::vector<std::pair<std::shared_ptr<const Layer>, std::string>> layers;
  bool in_work_tree = false;
};

std::vector<IgnorePattern> ReadIgnoreFile(const std::string& path) {
  std::string text;
  if (platform::ReadRegularFile(path, &text) != 0) return {};
  return ParseIgnoreText(text);
}

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// The layers a folder adds: its .gitignore (in a work tree), then its .ignore, which wins.
void AddFolderLayers(const std::string& folder, bool in_work_tree, const std::string& prefix, State* state) {
  for (const char* file : {".gitignore", ".ignore"}) {
    if (!in_work_tree && std::string_view(file) == ".gitignore") continue;
    std::vector<IgnorePattern> patterns = ReadIgnoreFile(folder + "/" + file);
    if (!patterns.empty()) state->layers.emplace_back(std::make_shared<Layer>(Layer{std::move(patterns)}), prefix);
  }
}

std::string LastComponent(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

IgnorePruner::IgnorePruner(const std::vector<std::string>& exclude_globs, bool use_vcs_ignores)
    : vcs_(use_vcs_ignores) {
  for (const std::string& glob : exclude_globs)
    if (auto p = ParseIgnoreLine(glob)) excludes_.push_back(std::move(*p));
}

WalkPruner::FolderState IgnorePruner::EnterFolder(const FolderState& parent, const std::string& folder_path,
                                                  int /*folder_fd*/) const {
  auto state = std::make_shared<State>();
  if (parent) {
    const State& up = *static_cast<const State*>(parent.get());
    const std::string step = LastComponent(folder_path) + "/";
    state->from_root = up.from_root + step;
    state->in_work_tree = up.in_work_tree;
    state->layers = up.layers;
    for (auto& [layer, prefix] : state->layers) prefix += step;
    if (vcs_) AddFolderLayers(folder_path, state->in_work_tree, "", state.get());
    return state;
  }
  if (!vcs_) return state;
  // The root: find the work tree it lies in, and the ignore files on the way down to it.
  std::error_code ec;
  std::filesystem::path root = std::filesystem::absolute(folder_path, ec).lexically_normal();
  if (!root.has_filename() && root.has_parent_path() && root != root.root_path()) root = root.parent_path();
  std::vector<std::filesystem::path> above;  // the root's ancestors, nearest first
  for (std::filesystem::path p = root.parent_path(); !ec; p = p.parent_path()) {
    above.push_back(p);
    if (p == p.root_path() || p.empty()) break;
  }
  std::filesystem::path top;
  if (Exists(root.string() + "/.git")) top = root;
  if (top.empty())
    for (const std::filesystem::path& p : above)
      if (Exists((p / ".git").string())) {
        top = p;
        break;
      }
  state->in_work_tree = !top.empty();
  auto relative = [&](const std::filesystem::path& from) {
    std::string r = root.lexically_relative(from).generic_string();
    return r == "." || r.empty() ? std::string() : r + "/";
  };
  if (state->in_work_tree) {
    std::vector<IgnorePattern> exclude = ReadIgnoreFile((top / ".git/info/exclude").string());
    if (!exclude.empty()) state->layers.emplace_back(std::make_shared<Layer>(Layer{std::move(exclude)}), relative(top));
  }
  // Ancestors from the farthest that counts down to the root's parent: the top of the work
  // tree, or every ancestor for .ignore files outside one.
  for (auto it = above.rbegin(); it != above.rend(); ++it) {
    if (state->in_work_tree && it->string().size() < top.string().size()) continue;
    AddFolderLayers(it->string(), state->in_work_tree, relative(*it), state.get());
  }
  AddFolderLayers(folder_path, state->in_work_tree, "", state.get());
  return state;
}

bool IgnorePruner::Excluded(const FolderState& folder, std::string_view name, bool is_folder) const {
  const State* state = static_cast<const State*>(folder.get());
  if (state == nullptr) return false;
  if (!excludes_.empty()) {
    const std::string path = state->from_root + std::string(name);
    if (Decide(excludes_, path, is_folder) == IgnoreVerdict::kIgnored) return true;
  }
  if (!vcs_) return false;
  if (state->in_work_tree && name == ".git") return true;
  // The deepest layer with an opinion decides.
  for (auto it = state->layers.rbegin(); it != state->layers.rend(); ++it) {
    const IgnoreVerdict verdict = Decide(it->first->patterns, it->second + std::string(name), is_folder);
    if (verdict != IgnoreVerdict::kNone) return verdict == IgnoreVerdict::kIgnored;
  }
  return false;
}

}  // namespace trovix::engine
