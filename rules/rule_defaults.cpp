// The flags and context that the next new rule starts from: whatever the user last applied
// to a rule of the same kind. Shared by every frame, so the words are atomics.
#include <atomic>

#include "rules/rule.h"

namespace trovix::rules {
namespace {

constexpr uint32_t kInitialNumber = 0;
constexpr uint32_t kInitialDate = cf::kDateKind;
constexpr uint32_t kInitialFloat = cf::kFloatKind;
constexpr uint32_t kInitialText = cf::kIgnoreCase;  // mode 0 "Simple (one expression)"

std::atomic<uint32_t> g_number{kInitialNumber};
std::atomic<uint32_t> g_date{kInitialDate};
std::atomic<uint32_t> g_float{kInitialFloat};
std::atomic<uint32_t> g_text{kInitialText};
std::atomic<int32_t> g_context{kContextAnd};

std::atomic<uint32_t>* SlotFor(int32_t kind) {
  if (kind == kKindNumber) return &g_number;
  if (kind == kKindDate) return &g_date;
  if (kind == kKindFloat) return &g_float;
  if (IsTextKind(kind)) return &g_text;
  return nullptr;
}

}  // namespace

uint32_t DefaultFlags(int32_t kind) {
  std::atomic<uint32_t>* slot = SlotFor(kind);
  return slot ? slot->load(std::memory_order_relaxed) : 0;
}

int32_t DefaultContext() { return g_context.load(std::memory_order_relaxed); }

void RememberDefaults(const Rule& rule) {
  const int32_t kind = rule.Kind();
  if (std::atomic<uint32_t>* slot = SlotFor(kind)) {
    uint32_t word = rule.Flags();
    if (IsTextKind(kind)) {
      word = (static_cast<uint32_t>(kind - kKindText) << cf::kHighShift) | (word & 0xFFFF);
    }
    slot->store(word, std::memory_order_relaxed);
  }
  g_context.store(rule.Context(), std::memory_order_relaxed);
}

void ResetDefaults() {
  g_number = kInitialNumber;
  g_date = kInitialDate;
  g_float = kInitialFloat;
  g_text = kInitialText;
  g_context = kContextAnd;
}

}  // namespace trovix::rules
