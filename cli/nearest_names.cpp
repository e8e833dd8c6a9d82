#include "cli/nearest_names.h"

#include <algorithm>

namespace trovix::cli {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (Lower(a[i - 1]) == Lower(b[j - 1]) ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

std::vector<std::string> NearestNames(std::string_view typed, const std::vector<std::string>& names) {
  // A third of the typed length, at least one and at most three edits, is what typos look like.
  const size_t limit = std::clamp<size_t>(typed.size() / 3, 1, 3);
  std::vector<std::pair<size_t, const std::string*>> near;
  for (const std::string& name : names) {
    size_t d = Distance(typed, name);
    if (d <= limit) near.emplace_back(d, &name);
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
  std::vector<std::string> out;
  for (const auto& [d, name] : near) {
    if (std::find(out.begin(), out.end(), *name) != out.end()) continue;
    out.push_back(*name);
    if (out.size() == 3) break;
  }
  return out;
}

std::string JoinAlternatives(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace trovix::cli
