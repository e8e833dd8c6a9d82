#include "index/sqlite/sqlite_functions.h"

#include <cstdint>
#include <string_view>

#include "index/dialect/like_pattern.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

std::string_view TextArg(sqlite3_value* v) {
  const auto* p = reinterpret_cast<const char*>(sqlite3_value_text(v));
  return p == nullptr ? std::string_view() : std::string_view(p, static_cast<size_t>(sqlite3_value_bytes(v)));
}

std::string_view BlobArg(sqlite3_value* v) {
  const auto* p = static_cast<const char*>(sqlite3_value_blob(v));
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

// What a statement remembers per literal: the last piece asked about and the last item found
// to hold the literal.
struct PieceMemo {
  int64_t last_piece = -1;
  int64_t found_item = -1;
};

// A kept text piece holds the literal: confirms what the trigram table proposes. Its seam set
// rules out most pieces that hold the words but not the phrase before anything is inflated,
// and a piece of an item another piece already confirmed is not inflated at all.
void PieceHolds(sqlite3_context* ctx, int /*argc*/, sqlite3_value** argv) {
  if (sqlite3_value_type(argv[2]) == SQLITE_NULL || sqlite3_value_type(argv[3]) == SQLITE_NULL)
    return sqlite3_result_null(ctx);
  const int64_t piece = sqlite3_value_int64(argv[0]);
  const int64_t item = ItemOfTextPiece(piece);
  auto* memo = static_cast<PieceMemo*>(sqlite3_get_auxdata(ctx, 3));
  if (memo == nullptr) {
    sqlite3_set_auxdata(ctx, 3, new PieceMemo, [](void* p) { delete static_cast<PieceMemo*>(p); });
    memo = static_cast<PieceMemo*>(sqlite3_get_auxdata(ctx, 3));  // null when SQLite could not keep it
  }
  if (memo != nullptr) {
    // Pieces come in ascending order within one run of the statement; one that does not is
    // the start of another run, which remembers nothing of this one.
    if (piece <= memo->last_piece) memo->found_item = -1;
    memo->last_piece = piece;
    if (item == memo->found_item) return sqlite3_result_int(ctx, 1);
  }
  const std::string_view literal = TextArg(argv[3]);
  if (sqlite3_value_type(argv[1]) != SQLITE_NULL && !SeamsMayHold(BlobArg(argv[1]), literal))
    return sqlite3_result_int(ctx, 0);
  const bool holds = CompressedTextHolds(BlobArg(argv[2]), literal);
  if (holds && memo != nullptr) memo->found_item = item;
  sqlite3_result_int(ctx, holds ? 1 : 0);
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
    // Not deterministic: another piece of an item already found answers for its item.
    rc = sqlite3_create_function_v2(db, "tx_piece_holds", 4, SQLITE_UTF8 | SQLITE_INNOCUOUS, nullptr, PieceHolds,
                                    nullptr, nullptr, nullptr);
  return rc;
}

}  // namespace trovix::engine::index
