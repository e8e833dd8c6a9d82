// The handler for the properties documents carry about themselves (title, authors, subject,
// keywords, comments, dates, pages, words ...). It answers from the item's value cache, which
// the first question fills with everything the file holds through the process's property
// source (props/property_source.h): a document is read once, however many properties are
// asked of it.
#include <atomic>
#include <string>
#include <vector>

#include "base/file_name.h"
#include "props/document_types.h"
#include "props/handler_registry.h"
#include "props/property_source.h"
#include "props/system_property_table.h"

namespace trovix::props {
namespace {

std::atomic<PropertySource*> g_source{nullptr};

struct Row {
  const char* name;
  const char* label;
  const char* description;
  uint16_t flags;
};

// Reading them means a round trip to a helper that parses the file: tested after cheap rules.
constexpr uint16_t kReadFromFile = kPropIndexed | kPropCostly;

constexpr Row kRows[] = {
    {"System.Title", "Title", "The title the document gives itself", kReadFromFile},
    {"System.Author", "Authors", "The people who wrote the document", kReadFromFile},
    {"System.Subject", "Subject", "The document's subject", kReadFromFile},
    {"System.Keywords", "Tags", "Keywords the document was tagged with", kReadFromFile},
    {"System.Comment", "Comments", "The comment or description the document carries", kReadFromFile},
    {"System.Category", "Categories", "The categories the document was filed under", kReadFromFile},
    {"System.Company", "Company", "The company named in the document", kReadFromFile},
    {"System.ApplicationName", "Program name", "The program that made the document", kReadFromFile},
    {"System.Document.LastAuthor", "Last saved by", "Who saved the document last", kReadFromFile},
    {"System.Document.DateCreated", "Content created", "When the document's content was created", kReadFromFile},
    {"System.Document.DateSaved", "Date last saved", "When the document was saved last", kReadFromFile},
    {"System.Document.PageCount", "Pages", "The number of pages", kReadFromFile},
    {"System.Document.WordCount", "Word count", "The number of words", kReadFromFile},
    {"System.Document.CharacterCount", "Character count", "The number of characters", kReadFromFile},
    {"System.Document.SlideCount", "Slides", "The number of slides", kReadFromFile},
};

class DocumentPropertyHandler : public PropertyHandler {
 public:
  DocumentPropertyHandler() {
    for (const Row& row : kRows) produces_.push_back(ProducedProperty{row.name, row.label, row.description, row.flags, nullptr});
  }

  std::string_view Name() const override { return "document properties"; }
  const std::vector<ProducedProperty>& Produces() const override { return produces_; }

  bool Accepts(ShellItem& item) const override {
    return !item.IsFolder() && HasDocumentPropertyReader(LowerExtension(item.path()));
  }

  HRESULT GetValue(ShellItem& item, const PropertyInfo& property, PropValue* out) const override {
    if (item.own_properties_read()) return S_FALSE;  // what the file holds is cached already
    item.set_own_properties_read();
    PropertySource* source = g_source.load();
    std::vector<NamedValue> values;
    if (source == nullptr || !source->ReadProperties(item, &values)) return E_FAIL;
    for (NamedValue& v : values) {
      const SystemPropertyRow* row = FindSystemProperty(v.name);
      if (row == nullptr || v.value.IsEmpty()) continue;
      const uint32_t hash = row->key.Hash();
      if (hash == property.hash) {
        *out = std::move(v.value);
      } else if (item.FindCached(hash) == nullptr) {
        item.AddCached(hash, std::move(v.value));
      }
    }
    return out->IsEmpty() ? S_FALSE : S_OK;
  }

 private:
  std::vector<ProducedProperty> produces_;
};

}  // namespace

void SetPropertySource(PropertySource* source) { g_source.store(source); }
PropertySource* CurrentPropertySource() { return g_source.load(); }

std::unique_ptr<PropertyHandler> MakeDocumentPropertyHandler() { return std::make_unique<DocumentPropertyHandler>(); }

}  // namespace trovix::props
