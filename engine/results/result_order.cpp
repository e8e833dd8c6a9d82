#include "engine/results/result_order.h"

#include <unicode/coll.h>

#include <memory>
#include <string_view>

#include "props/catalogue.h"
#include "props/fetcher.h"

namespace trovix::engine {

using props::PropValue;

ValueClass ClassOf(const PropValue& v) {
  switch (v.tag()) {
    case props::VT_EMPTY:
      return ValueClass::kEmpty;
    case props::VT_R8:
    case props::VT_R4:
      return ValueClass::kFloat;
    case props::VT_LPWSTR:
      return ValueClass::kText;
    default:
      return v.IsVector() ? ValueClass::kText : ValueClass::kInteger;
  }
}

namespace {

// ICU collators are safe to use from several threads for comparing.
const icu::Collator* MakeCollator(bool natural) {
  UErrorCode status = U_ZERO_ERROR;
  // The POSIX locale's collation orders by code point, case included: use the root order.
  icu::Locale locale = icu::Locale::getDefault();
  if (std::string_view(locale.getVariant()) == "POSIX" || locale.isBogus()) locale = icu::Locale::getRoot();
  icu::Collator* c = icu::Collator::createInstance(locale, status);
  if (U_FAILURE(status) || !c) return nullptr;
  c->setStrength(icu::Collator::SECONDARY);
  if (natural) c->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  return c;
}

}  // namespace

const icu::Collator* ResultCollator(bool natural) {
  static const icu::Collator* plain = MakeCollator(false);
  static const icu::Collator* numeric = MakeCollator(true);
  return natural ? numeric : plain;
}

namespace {

int CompareText(const std::string& a, const std::string& b, bool natural) {
  const icu::Collator* coll = ResultCollator(natural);
  if (!coll) return a.compare(b);
  UErrorCode status = U_ZERO_ERROR;
  UCollationResult r = coll->compareUTF8(icu::StringPiece(a.data(), static_cast<int32_t>(a.size())),
                                         icu::StringPiece(b.data(), static_cast<int32_t>(b.size())), status);
  if (U_FAILURE(status)) return a.compare(b);
  return r == UCOL_LESS ? -1 : r == UCOL_GREATER ? 1 : 0;
}

const PropValue& ValueOf(props::ShellItem& item, const props::PropertyInfo& property) {
  return props::GetCachedValue(item, property)->value;
}

const props::PropertyInfo& NameProperty() {
  static const props::PropertyInfo* name = props::DefaultCatalogue().FindProperty("System.ItemNameDisplay");
  return *name;
}

}  // namespace

int CompareValues(const PropValue& a, const PropValue& b, bool natural) {
  ValueClass ca = ClassOf(a), cb = ClassOf(b);
  if (ca == ValueClass::kEmpty || cb == ValueClass::kEmpty) {
    return (ca == ValueClass::kEmpty ? 0 : 1) - (cb == ValueClass::kEmpty ? 0 : 1);
  }
  if (ca == ValueClass::kText || cb == ValueClass::kText)
    return CompareText(a.ToDisplayText(), b.ToDisplayText(), natural);
  if (ca == ValueClass::kFloat || cb == ValueClass::kFloat) {
    double x = a.AsDouble(), y = b.AsDouble();
    return x < y ? -1 : x > y ? 1 : 0;
  }
  int64_t x = a.AsInt64(), y = b.AsInt64();
  return x < y ? -1 : x > y ? 1 : 0;
}

int CompareItems(props::ShellItem& a, props::ShellItem& b, const SortOptions& options) {
  if (options.folders_first) {
    bool fa = a.GetAttributes(props::SFGAO_FOLDER) != 0;
    bool fb = b.GetAttributes(props::SFGAO_FOLDER) != 0;
    if (fa != fb) return fa ? -1 : 1;
  }
  const props::PropertyInfo& name = NameProperty();
  bool name_is_key = false;
  for (const SortKey& key : options.keys) {
    if (!key.property) continue;
    if (key.property->hash == name.hash) name_is_key = true;
    int r = CompareValues(ValueOf(a, *key.property), ValueOf(b, *key.property), options.natural_numbers);
    if (r != 0) return key.ascending ? r : -r;
  }
  if (name_is_key) return 0;
  int r = CompareValues(ValueOf(a, name), ValueOf(b, name), options.natural_numbers);
  return options.name_ascending ? r : -r;
}

}  // namespace trovix::engine
