#include "props/handler_registry.h"

#include <mutex>
#include <unordered_map>

#include "props/system_property_table.h"

namespace trovix::props {
namespace {

// Hash -> handlers producing that property, rebuilt after each registration. Properties
// whose names are not in the system table cannot be produced (they have no key).
// Like the registry itself, never destroyed: nothing is left to clean up at exit.
std::unordered_map<uint32_t, std::vector<const PropertyHandler*>>& ByHash() {
  static auto* map = new std::unordered_map<uint32_t, std::vector<const PropertyHandler*>>;
  return *map;
}

}  // namespace

HandlerRegistry& HandlerRegistry::Instance() {
  // Lives for the whole process; destroying the handlers at exit would only cost time.
  static HandlerRegistry* registry = new HandlerRegistry;
  return *registry;
}

void HandlerRegistry::Register(std::unique_ptr<PropertyHandler> handler) {
  const auto table = SystemPropertyTable();
  by_row_.resize(table.size());
  for (const ProducedProperty& p : handler->Produces()) {
    const SystemPropertyRow* row = FindSystemProperty(p.name);
    if (!row) continue;
    ByHash()[row->key.Hash()].push_back(handler.get());
    const ProducedProperty*& first = by_row_[static_cast<size_t>(row - table.data())];
    if (!first) first = &p;
  }
  handlers_.push_back(std::move(handler));
}

const ProducedProperty* HandlerRegistry::Produced(std::string_view name) const {
  if (const SystemPropertyRow* row = FindSystemProperty(name)) return Produced(*row);
  // A name outside the table is never a catalogue entry, but a handler may still declare it.
  for (const auto& h : handlers_)
    for (const ProducedProperty& p : h->Produces())
      if (p.name == name) return &p;
  return nullptr;
}

const ProducedProperty* HandlerRegistry::Produced(const SystemPropertyRow& row) const {
  const size_t index = static_cast<size_t>(&row - SystemPropertyTable().data());
  return index < by_row_.size() ? by_row_[index] : nullptr;
}

const std::vector<const PropertyHandler*>& HandlerRegistry::HandlersFor(uint32_t hash) const {
  static const std::vector<const PropertyHandler*> kNone;
  auto it = ByHash().find(hash);
  return it == ByHash().end() ? kNone : it->second;
}

std::unique_ptr<PropertyHandler> MakeFileSystemHandler();
std::vector<std::unique_ptr<PropertyHandler>> MakeOwnPropertyHandlers();
std::unique_ptr<PropertyHandler> MakeKindHandler();

void RegisterBuiltinHandlers() {
  static std::once_flag once;
  std::call_once(once, [] {
    HandlerRegistry::Instance().Register(MakeFileSystemHandler());
    HandlerRegistry::Instance().Register(MakeKindHandler());
    for (auto& handler : MakeOwnPropertyHandlers()) HandlerRegistry::Instance().Register(std::move(handler));
  });
}

}  // namespace trovix::props
