#include "engine/results/property_listing.h"

#include "engine/extraction/own_properties.h"
#include "props/fetcher.h"
#include "rules/value/value_format.h"

namespace trovix::engine {

std::vector<PropertyText> ListProperties(props::ShellItem& item, const props::Catalogue& catalogue) {
  InstallOwnPropertySource();
  std::vector<PropertyText> list;
  for (const auto& e : catalogue.entries()) {
    if (e->name == "System.Search.Contents" || e->has_flag(props::kPropFreeText)) continue;
    const props::CachedValue* node = props::GetCachedValue(item, *e);
    if (node == nullptr || node->value.IsEmpty()) continue;
    list.push_back({e.get(), node->value, rules::DisplayValue(*e, node->value)});
  }
  return list;
}

}  // namespace trovix::engine
