// XmlSkipper: leaves out a whole element with everything inside it while a reader walks on
// (tracked deletions, fallback copies of text boxes). Call Skipping() for every node first.
#pragma once

#include "extract/safe_xml.h"

namespace trovix::extract {

class XmlSkipper {
 public:
  // True while the current node lies inside a skipped element (its end included).
  bool Skipping(const SafeXmlReader& r) {
    if (depth_ < 0) return false;
    if (r.type() == XML_READER_TYPE_END_ELEMENT && r.depth() == depth_) depth_ = -1;
    return true;
  }
  // Skips the element the reader is on (nothing to do for an empty one).
  void Skip(const SafeXmlReader& r) {
    if (!r.is_empty_element()) depth_ = r.depth();
  }

 private:
  int depth_ = -1;
};

}  // namespace trovix::extract
