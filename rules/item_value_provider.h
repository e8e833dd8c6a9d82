// The value provider over real items: for each matcher a rule set is about to evaluate, it
// fetches the property's value for the current item through the catalogue's fetcher and the
// item's value cache, and loads it into the matcher in the form the matcher asks for. An
// absent value reaches a number matcher as the no-value sentinel and a text matcher as empty
// text, so neither matches.
//
// Ownership: holds a reference to the current item. Thread-safety: one search thread, like
// the item's cache.
#pragma once

#include "props/shell_item.h"
#include "rules/rule_set.h"

namespace trovix::rules {

class ItemValueProvider final : public ValueProvider {
 public:
  void set_item(props::ShellItemPtr item) { item_ = std::move(item); }
  const props::ShellItemPtr& item() const { return item_; }
  // Where contents rules and grep() read the item's text; not owned; null: they find none.
  void set_contents_source(props::ContentsSource* source) { contents_ = source; }

  void LoadValue(RuleMatcher& matcher, int32_t operand, size_t position) override;

 private:
  props::ShellItemPtr item_;
  props::ContentsSource* contents_ = nullptr;
};

// The text a text matcher compares: text as it is, vectors joined by "; ", other values in
// their display form; empty for no value.
std::string RuleText(const props::PropValue& value);

}  // namespace trovix::rules
