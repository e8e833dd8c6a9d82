#include "props/prop_value.h"

#include <charconv>
#include <cmath>
#include <cstdio>

#include "base/bits.h"

namespace trovix::props {

PropValue PropValue::Int32(int32_t v) {
  PropValue p;
  p.tag_ = VT_I4;
  p.i_ = v;
  return p;
}
PropValue PropValue::UInt32(uint32_t v) {
  PropValue p;
  p.tag_ = VT_UI4;
  p.u_ = v;
  return p;
}
PropValue PropValue::Int64(int64_t v) {
  PropValue p;
  p.tag_ = VT_I8;
  p.i_ = v;
  return p;
}
PropValue PropValue::UInt64(uint64_t v) {
  PropValue p;
  p.tag_ = VT_UI8;
  p.u_ = v;
  return p;
}
PropValue PropValue::Double(double v) {
  PropValue p;
  p.tag_ = VT_R8;
  p.d_ = v;
  return p;
}
PropValue PropValue::Bool(bool v) {
  PropValue p;
  p.tag_ = VT_BOOL;
  p.i_ = v ? -1 : 0;
  return p;
}
PropValue PropValue::FileTime(base::FileTime v) {
  PropValue p;
  p.tag_ = VT_FILETIME;
  p.i_ = v;
  return p;
}
PropValue PropValue::Text(std::string utf8) {
  PropValue p;
  if (utf8.empty()) return p;
  p.tag_ = VT_LPWSTR;
  p.text_ = std::move(utf8);
  return p;
}
PropValue PropValue::TextVector(std::vector<std::string> items) {
  PropValue p;
  if (items.empty()) return p;
  p.tag_ = VT_VECTOR | VT_LPWSTR;
  p.texts_ = std::move(items);
  return p;
}
PropValue PropValue::DoubleVector(std::vector<double> items) {
  PropValue p;
  if (items.empty()) return p;
  p.tag_ = VT_VECTOR | VT_R8;
  p.doubles_ = std::move(items);
  return p;
}

int64_t PropValue::AsInt64() const {
  switch (tag_) {
    case VT_I4:
    case VT_I8:
    case VT_BOOL:
    case VT_FILETIME:
      return i_;
    case VT_UI4:
    case VT_UI8:
      return static_cast<int64_t>(u_);
    case VT_R8:
      return std::isfinite(d_) && std::fabs(d_) < 9.2e18 ? static_cast<int64_t>(d_) : 0;
    case VT_LPWSTR: {
      int64_t v = 0;
      auto [ptr, ec] = std::from_chars(text_.data(), text_.data() + text_.size(), v);
      return ec == std::errc() && ptr == text_.data() + text_.size() ? v : 0;
    }
    case VT_VECTOR | VT_R8:
      return doubles_.empty() ? 0 : static_cast<int64_t>(doubles_[0]);
    default:
      return 0;
  }
}

double PropValue::AsDouble() const {
  switch (tag_) {
    case VT_R8:
      return d_;
    case VT_UI4:
    case VT_UI8:
      return static_cast<double>(u_);
    case VT_VECTOR | VT_R8:
      return doubles_.empty() ? 0.0 : doubles_[0];
    case VT_LPWSTR: {
      char* end = nullptr;
      double v = std::strtod(text_.c_str(), &end);
      return end && *end == '\0' ? v : 0.0;
    }
    default:
      return static_cast<double>(AsInt64());
  }
}

uint64_t PropValue::AsRuleBits(bool want_float) const {
  if (want_float) return base::DoubleAsBits(AsDouble());
  return static_cast<uint64_t>(AsInt64());
}

std::string PropValue::ToDisplayText() const {
  char buf[64];
  switch (tag_) {
    case VT_EMPTY:
      return {};
    case VT_I4:
    case VT_I8:
      return std::to_string(i_);
    case VT_UI4:
    case VT_UI8:
      return std::to_string(u_);
    case VT_BOOL:
      return i_ ? "Yes" : "No";
    case VT_R8:
      std::snprintf(buf, sizeof buf, "%.15g", d_);
      return buf;
    case VT_FILETIME: {
      base::CivilTime c = base::CivilFromFileTime(base::UtcToLocal(i_));
      std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", c.year, c.month, c.day, c.hour,
                    c.minute, c.second);
      return buf;
    }
    case VT_LPWSTR:
      return text_;
    case VT_VECTOR | VT_LPWSTR: {
      std::string out;
      for (const auto& t : texts_) out += (out.empty() ? "" : "; ") + t;
      return out;
    }
    case VT_VECTOR | VT_R8: {
      std::string out;
      for (double d : doubles_) {
        std::snprintf(buf, sizeof buf, "%.15g", d);
        out += (out.empty() ? "" : "; ") + std::string(buf);
      }
      return out;
    }
    default:
      return {};
  }
}

}  // namespace trovix::props
