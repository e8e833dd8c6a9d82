// The property source of the search process (props/property_source.h): a file's own
// properties are read by the extraction helpers, one request per file, and turned from the
// helper's plain values into typed values of the property's declared type.
#pragma once

#include <vector>

#include "platform/extract_protocol.h"
#include "props/property_source.h"

namespace trovix::engine {

class ExtractionService;

class ServicePropertySource : public props::PropertySource {
 public:
  explicit ServicePropertySource(ExtractionService* service = nullptr) : service_(service) {}
  bool ReadProperties(props::ShellItem& item, std::vector<props::NamedValue>* out) override;

 private:
  ExtractionService* service_;  // null: the process's shared service
};

// Installs a ServicePropertySource over the shared service as the process's source, once.
void InstallOwnPropertySource();

// A helper's value as the property's declared type (vartype of the system property table);
// the empty value when the two cannot meet (text for a number, say).
props::PropValue ToPropValue(const extract::ExtractedProperty& property, uint32_t vartype);

}  // namespace trovix::engine
