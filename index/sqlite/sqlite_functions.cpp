#include "index/sqlite/sqlite_functions.h"

#include <string_view>

#include "index/dialect/like_pattern.h"
#include "index/sqlite/text_pieces.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

std::string_view TextArg(sqlite3_value* v) {
  const auto* p = reinterpret_cast<const char*>(sqlite3_value_text(v));
  return p == nullptr ? std::string_view() : std::string_view(p, static_cast<size_t>(sqlite3_value_bytes(v)));
}

bool AnyNull(int argc, sqlite3_value** argv) {
  for (int i = 0; i < argc; ++i)
    if (sqlite3_value_type(argv[i]) == SQLITE_NULL) return true;
  return false;
}

void Fold(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return sqlite3_result_null(ctx);
  const std::string folded = rules::detail::FoldText(TextArg(argv[0]));
  sqlite3_result_text(ctx, folded.data(), static_cast<int>(folded.size()), SQLITE_TRANSIENT);
}

void Like(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return sqlite3_result_null(ctx);
  // The pattern is the same for every row of a statement: compile it once.
  auto* pattern = static_cast<LikePattern*>(sqlite3_get_auxdata(ctx, 1));
  if (pattern == nullptr) {
    pattern = new LikePattern(TextArg(argv[1]));
    sqlite3_set_auxdata(ctx, 1, pattern, [](void* p) { delete static_cast<LikePattern*>(p); });
    // SQLite may have deleted it already when it could not keep it.
    pattern = static_cast<LikePattern*>(sqlite3_get_auxdata(ctx, 1));
    if (pattern == nullptr) {
      const LikePattern once(TextArg(argv[1]));
      return sqlite3_result_int(ctx, once.Match(TextArg(argv[0])) ? 1 : 0);
    }
  }
  sqlite3_result_int(ctx, pattern->Match(TextArg(argv[0])) ? 1 : 0);
}

void Contains(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return sqlite3_result_null(ctx);
  // Folded UTF-8 on both sides: a byte search finds exactly the character substrings.
  sqlite3_result_int(ctx, TextArg(argv[0]).find(TextArg(argv[1])) != std::string_view::npos ? 1 : 0);
}

// A kept text piece (texts.body) holds the literal: confirms what the trigram table proposes.
void TextContains(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return sqlite3_result_null(ctx);
  const auto* blob = static_cast<const char*>(sqlite3_value_blob(argv[0]));
  const std::string_view body(blob, blob == nullptr ? 0 : static_cast<size_t>(sqlite3_value_bytes(argv[0])));
  sqlite3_result_int(ctx, CompressedTextHolds(body, TextArg(argv[1])) ? 1 : 0);
}

// A kept piece's seam set allows the literal: most pieces that hold its words but not the
// phrase are ruled out here, before tx_text_contains inflates them.
void SeamsMay(sqlite3_context* ctx, int argc, sqlite3_value** argv) {
  if (AnyNull(argc, argv)) return sqlite3_result_int(ctx, 1);
  const auto* blob = static_cast<const char*>(sqlite3_value_blob(argv[0]));
  const std::string_view seams(blob, blob == nullptr ? 0 : static_cast<size_t>(sqlite3_value_bytes(argv[0])));
  sqlite3_result_int(ctx, SeamsMayHold(seams, TextArg(argv[1])) ? 1 : 0);
}

}  // namespace

int RegisterIndexFunctions(sqlite3* db) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  int rc = sqlite3_create_function_v2(db, "tx_fold", 1, kFlags, nullptr, Fold, nullptr, nullptr, nullptr);
  if (rc == SQLITE_OK)
    rc = sqlite3_create_function_v2(db, "tx_like", 2, kFlags, nullptr, Like, nullptr, nullptr, nullptr);
  if (rc == SQLITE_OK)
    rc = sqlite3_create_function_v2(db, "tx_contains", 2, kFlags, nullptr, Contains, nullptr, nullptr, nullptr);
  if (rc == SQLITE_OK)
    rc = sqlite3_create_function_v2(db, "tx_seams_may", 2, kFlags, nullptr, SeamsMay, nullptr, nullptr, nullptr);
  if (rc == SQLITE_OK)
    rc = sqlite3_create_function_v2(db, "tx_text_contains", 2, kFlags, nullptr, TextContains, nullptr, nullptr,
                                    nullptr);
  return rc;
}

}  // namespace trovix::engine::index
