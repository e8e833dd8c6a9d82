// What the search tests share: a sink that keeps everything a search tells it, and rules made
// the way a user types them (a catalogue name and the text of a rule box).
//
//   CollectingSink sink;
//   panel.Start(...);  // or RunSearch, a route, the volume scan
//   EXPECT_EQ(sink.Names(root), (std::vector<std::string>{"a.txt", "b/c.txt"}));
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/results/result_sink.h"
#include "props/catalogue.h"
#include "rules/rule.h"
#include "rules/rule_set.h"
#include "rules/value/value_syntax.h"

namespace trovix::testing {

// Records every event. A search may call it from its workers, so each record takes the lock.
class CollectingSink : public engine::ResultSink {
 public:
  void SetStatus(const std::string& text) override {
    std::lock_guard lock(mutex_);
    statuses.push_back(text);
  }
  void SearchState(bool running, std::shared_ptr<const rules::RuleSet>) override {
    std::lock_guard lock(mutex_);
    states.push_back(running);
  }
  int AddResult(const props::ShellItemPtr& item) override {
    std::lock_guard lock(mutex_);
    items.push_back(item);
    paths.push_back(item->path());
    excerpts[item->path()] = item->hit_excerpt();
    // Refusing after `refuse_after` items plays a list that stops taking them.
    return refuse_after >= 0 && static_cast<int>(paths.size()) > refuse_after ? 1 : 0;
  }
  void ShowAdvice(uint32_t bit, const std::string& text) override {
    std::lock_guard lock(mutex_);
    advice_bit = bit;
    advice = text;
  }
  void ReportError(const std::string& path, int error) override {
    std::lock_guard lock(mutex_);
    errors.emplace_back(path, error);
  }
  void ReportUnread(const std::vector<engine::UnreadCount>& counts) override {
    std::lock_guard lock(mutex_);
    unread = counts;
  }
  void Notice(const std::string& text) override {
    std::lock_guard lock(mutex_);
    notices.push_back(text);
  }

  std::vector<std::string> Sorted() const {
    std::lock_guard lock(mutex_);
    auto copy = paths;
    std::sort(copy.begin(), copy.end());
    return copy;
  }
  // The paths below `root`, relative to it, sorted.
  std::vector<std::string> Names(const std::string& root) const {
    std::vector<std::string> names;
    for (const std::string& p : Sorted()) {
      if (p.size() > root.size() && p.compare(0, root.size(), root) == 0) names.push_back(p.substr(root.size() + 1));
    }
    return names;
  }

  std::vector<props::ShellItemPtr> items;
  std::vector<std::string> paths;
  std::vector<std::string> statuses;
  std::vector<bool> states;
  std::map<std::string, std::string> excerpts;
  std::vector<std::pair<std::string, int>> errors;
  std::vector<engine::UnreadCount> unread;
  std::vector<std::string> notices;
  uint32_t advice_bit = 0;
  std::string advice = "(none)";
  int refuse_after = -1;

 private:
  mutable std::mutex mutex_;
};

// A property as a user names it: canonical name, label or common word.
inline const props::PropertyInfo& Prop(std::string_view name) {
  const props::PropertyInfo* info = props::DefaultCatalogue().Resolve(name);
  if (!info) ADD_FAILURE() << "no property " << name;
  return info ? *info : *props::DefaultCatalogue().FindProperty("System.ItemNameDisplay");
}

// A rule on `property` from the text a user would type into its box.
inline rules::RulePtr MakeRule(std::string_view property, const char* text, int32_t context = 0,
                               int32_t indent = 0) {
  auto rule = rules::Rule::CreateFor(Prop(property));
  EXPECT_TRUE(rules::ParseRuleText(*rule, text)) << property << ": " << text;
  rule->SetContext(context);
  rule->SetIndent(indent);
  return rule;
}

inline std::unique_ptr<rules::RuleSet> Compile(const std::vector<rules::RulePtr>& list) {
  auto set = std::make_unique<rules::RuleSet>();
  EXPECT_TRUE(set->Compile(list));
  return set;
}

}  // namespace trovix::testing
