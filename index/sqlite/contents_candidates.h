// Narrowing a contents query to the rare trigrams of its words before it runs.
//
// The contents table keeps no positions, so a lookup asks it for the pieces that hold every
// trigram of a word or phrase and confirms each on the kept text. Asking for a trigram costs
// its whole doclist however rare the others are (the table's AND steps through every list),
// and most trigrams of a rare word are common ones ("lighthouse": "igh", "hou", "use" are in
// nearly every piece). A few rows of each trigram tell the rare ones from the common ones;
// the lookup then asks for the rare ones alone, which are read in a fraction of the time, and
// the confirmation keeps the answer exact: leaving trigrams out only adds candidates.
//
// Thread-safety: as the connection's.
#pragma once

#include <sqlite3.h>

#include <cstdint>

#include "index/sqlite/sqlite_translation.h"

namespace trovix::engine::index {

// A trigram in fewer pieces than this counts as rare. Reading a row of a doclist costs about
// a two-hundredth of confirming a candidate piece, so a list of this length costs about as
// much as confirming a handful of pieces. Counting further costs what it would spare: a row
// counted through SQL costs more than one read by the AND of the lookup itself.
inline constexpr int64_t kRareTrigramPieces = 256;

// Rewrites the FTS query of every contents lookup of `query` (its parameters) to ask for its
// rare trigrams only; a lookup none of whose trigrams is rare keeps every one (the phrase of
// common words is narrowed best by all of them together). A trigram in no piece at all makes
// the lookup ask for it alone: nothing can match. Leaves the query as it is when the table
// cannot be asked.
void NarrowContentsLookups(sqlite3* db, SqliteQuery* query);

}  // namespace trovix::engine::index
