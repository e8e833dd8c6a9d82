#include "engine/extraction/own_properties.h"

#include <cmath>
#include <limits>

#include "engine/extraction/contents_reader.h"
#include "engine/extraction/extraction_service.h"
#include "props/stock.h"
#include "props/system_property_table.h"

namespace trovix::engine {
namespace {

using extract::ExtractedProperty;
using props::PropValue;

bool IsWhole(const ExtractedProperty& p) {
  return p.type == ExtractedProperty::kInteger || p.type == ExtractedProperty::kUnsigned ||
         p.type == ExtractedProperty::kFlag;
}

template <typename T>
bool Fits(int64_t v) {
  return v >= static_cast<int64_t>(std::numeric_limits<T>::min()) &&
         static_cast<uint64_t>(v) <= static_cast<uint64_t>(std::numeric_limits<T>::max());
}

}  // namespace

PropValue ToPropValue(const ExtractedProperty& p, uint32_t vartype) {
  const bool vector = (vartype & props::VT_VECTOR) != 0;
  switch (vartype & ~props::VT_VECTOR) {
    case props::VT_LPWSTR:
    case props::VT_BSTR:
    case props::VT_LPSTR: {
      if (p.texts.empty()) return {};
      if (vector) return PropValue::TextVector(p.texts);
      std::string joined;
      for (const std::string& t : p.texts) joined += (joined.empty() ? "" : "; ") + t;
      return PropValue::Text(std::move(joined));
    }
    case props::VT_FILETIME:
      return p.type == ExtractedProperty::kTime ? PropValue::FileTime(p.integer) : PropValue();
    case props::VT_BOOL:
      return IsWhole(p) ? PropValue::Bool(p.integer != 0) : PropValue();
    case props::VT_I2:
    case props::VT_I4:
    case props::VT_INT:
      return IsWhole(p) && Fits<int32_t>(p.integer) ? PropValue::Int32(static_cast<int32_t>(p.integer)) : PropValue();
    case props::VT_UI1:
    case props::VT_UI2:
    case props::VT_UI4:
    case props::VT_UINT:
      return IsWhole(p) && Fits<uint32_t>(p.integer) ? PropValue::UInt32(static_cast<uint32_t>(p.integer)) : PropValue();
    case props::VT_I8:
      return IsWhole(p) ? PropValue::Int64(p.integer) : PropValue();
    case props::VT_UI8:
      return IsWhole(p) && (p.type == ExtractedProperty::kUnsigned || p.integer >= 0)
                 ? PropValue::UInt64(static_cast<uint64_t>(p.integer))
                 : PropValue();
    case props::VT_R4:
    case props::VT_R8:
      if (p.reals.empty()) return {};
      if (vector) return PropValue::DoubleVector(p.reals);
      return std::isfinite(p.reals[0]) ? PropValue::Double(p.reals[0]) : PropValue();
    default:
      return {};
  }
}

bool ServicePropertySource::ReadProperties(props::ShellItem& item, std::vector<props::NamedValue>* out) {
  ExtractionService& service = service_ ? *service_ : ExtractionService::Shared();
  extract::ExtractRequest request;
  request.op = extract::kOpProps;
  if (const props::ArchiveLocation* archive = item.archive()) {
    request.path = archive->container;
    request.members = archive->members;
  } else {
    request.path = item.path();
  }
  std::vector<ExtractedProperty> found;
  ExtractOutcome outcome = service.Properties(request, IdentityOf(item), &found);
  if (outcome.status != props::ContentsStatus::kText) return false;
  for (const ExtractedProperty& p : found) {
    uint32_t vartype = 0;
    if (const props::SystemPropertyRow* row = props::FindSystemProperty(p.name)) vartype = row->vartype;
    else if (const props::StockRow* stock = props::FindStockRow(p.name)) vartype = stock->var_type;
    else continue;
    PropValue value = ToPropValue(p, vartype);
    if (!value.IsEmpty()) out->push_back({p.name, std::move(value)});
  }
  return true;
}

void InstallOwnPropertySource() {
  static ServicePropertySource* source = [] {
    auto* s = new ServicePropertySource;  // lives as long as the process, like the service
    props::SetPropertySource(s);
    return s;
  }();
  (void)source;
}

}  // namespace trovix::engine
