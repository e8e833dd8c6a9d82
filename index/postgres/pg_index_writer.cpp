#include "index/postgres/pg_index_writer.h"

#include <cstdio>
#include <sys/stat.h>

#include <unordered_map>
#include <unordered_set>

#include "base/file_name.h"
#include "index/postgres/pg_schema.h"
#include "index/sqlite/index_database.h"
#include "index/sqlite/index_schema.h"
#include "index/sqlite/text_pieces.h"
#include "platform/sqlite_statement.h"
#include "rules/patterns/folding.h"

namespace trovix::engine::index {
namespace {

using rules::detail::FoldText;

// JSON text of a string: PostgreSQL takes only UTF-8 without NULs, so bytes that are not UTF-8
// go in as their key-text stand-ins and NULs are dropped.
void AppendJsonString(std::string* out, std::string_view text) {
  *out += '"';
  for (char c : KeyText(text)) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      *out += '\\';
      *out += c;
    } else if (u == 0) {
      continue;
    } else if (u < 0x20) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", u);
      *out += buffer;
    } else {
      *out += c;
    }
  }
  *out += '"';
}

std::string PathOf(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

// The folded text values a row is searched by besides its name and path.
std::vector<std::pair<std::string, SqlParam>> KeyedProps(const PgItemRow& row) {
  std::vector<std::pair<std::string, SqlParam>> keyed = row.props;
  if (row.extension) keyed.emplace_back("System.FileExtension", *row.extension);
  if (row.kind) keyed.emplace_back("System.Kind", *row.kind);
  if (row.mime) keyed.emplace_back("System.MIMEType", *row.mime);
  return keyed;
}

PgParam Optional(const std::optional<int64_t>& v) { return v ? PgInt(*v) : PgNull(); }
PgParam Optional(const std::optional<std::string>& v) { return v ? PgText(KeyText(*v)) : PgNull(); }

// The columns of items in the order of WriteItem's parameters and of COPY.
constexpr const char* kItemColumns =
    "id, folder, name, name_key, folder_key, path_key, extension, is_folder, size, modified, created, "
    "attributes, kind, mime, state, props, prop_keys, owner, grp, mode, chain_owner, chain_group, chain_mode";

// An integer array's text form, "{1,2,3}"; null when the chain is not known.
PgParam ChainArray(const std::vector<PgAccess>& chain, uint32_t PgAccess::*field) {
  if (chain.empty()) return PgNull();
  std::string text = "{";
  for (const PgAccess& a : chain) text += (text.size() > 1 ? "," : "") + std::to_string(a.*field);
  return PgText(text + "}");
}

PgParam AccessField(const std::optional<PgAccess>& access, uint32_t PgAccess::*field) {
  return access ? PgInt((*access).*field) : PgNull();
}

std::vector<PgParam> ItemParams(const PgItemRow& row) {
  return {PgInt(row.id),
          PgBytes(row.folder),
          PgBytes(row.name),
          PgText(KeyText(FoldText(row.name))),
          PgText(KeyText(FoldText(row.folder))),
          PgText(KeyText(FoldText(PathOf(row.folder, row.name)))),
          Optional(row.extension),
          PgText(row.is_folder ? "true" : "false"),
          Optional(row.size),
          Optional(row.modified),
          Optional(row.created),
          Optional(row.attributes),
          Optional(row.kind),
          Optional(row.mime),
          PgInt(row.state),
          PgText(PropsJson(row.props, false)),
          PgText(PropsJson(KeyedProps(row), true)),
          AccessField(row.access, &PgAccess::uid),
          AccessField(row.access, &PgAccess::gid),
          AccessField(row.access, &PgAccess::mode),
          ChainArray(row.chain, &PgAccess::uid),
          ChainArray(row.chain, &PgAccess::gid),
          ChainArray(row.chain, &PgAccess::mode)};
}

}  // namespace

std::string PropsJson(const std::vector<std::pair<std::string, SqlParam>>& props, bool folded) {
  std::string out = "{";
  for (const auto& [name, value] : props) {
    const auto* text = std::get_if<std::string>(&value);
    if (folded && text == nullptr) continue;
    if (out.size() > 1) out += ',';
    AppendJsonString(&out, name);
    out += ':';
    if (text != nullptr) {
      AppendJsonString(&out, folded ? FoldText(*text) : *text);
    } else if (IndexedPropertyType(name, nullptr) == ColumnType::kBool) {
      const bool truth = std::holds_alternative<int64_t>(value) ? std::get<int64_t>(value) != 0 : std::get<double>(value) != 0;
      out += truth ? "true" : "false";
    } else if (const auto* n = std::get_if<int64_t>(&value)) {
      out += std::to_string(*n);
    } else {
      char buffer[32];
      std::snprintf(buffer, sizeof buffer, "%.17g", std::get<double>(value));
      // JSON has no infinity or NaN: such a value is no value.
      out += std::string(buffer).find_first_of("ni") == std::string::npos ? buffer : "null";
    }
  }
  return out + "}";
}

bool PgIndexWriter::Open(std::string* error) {
  if (!EnsurePgSchema(db_, error)) return false;
  return true;
}

bool PgIndexWriter::Exec(std::string_view sql, std::string* error) {
  std::string e;
  if (db_.Exec(std::string(sql), &e)) return true;
  error_ = e;
  if (error) *error = e;
  return false;
}

std::string PgIndexWriter::Meta(std::string_view key, std::string_view fallback) {
  PgResult r = db_.Query("SELECT value FROM meta WHERE key = $1", {PgText(key)}, &error_);
  if (!r || PQntuples(r.get()) == 0) return std::string(fallback);
  return PQgetvalue(r.get(), 0, 0);
}

bool PgIndexWriter::SetMeta(std::string_view key, std::string_view value) {
  return db_.Query("INSERT INTO meta(key, value) VALUES($1, $2) ON CONFLICT (key) DO UPDATE SET value = $2",
                   {PgText(key), PgText(value)}, &error_) != nullptr;
}

int64_t PgIndexWriter::PropertyId(std::string_view name, bool create) {
  PgResult r = db_.Query("SELECT id FROM prop_names WHERE name = $1", {PgText(name)}, &error_);
  if (r && PQntuples(r.get()) > 0) return std::atoll(PQgetvalue(r.get(), 0, 0));
  if (!create) return 0;
  r = db_.Query("INSERT INTO prop_names(name) VALUES($1) ON CONFLICT (name) DO UPDATE SET name = $1 RETURNING id",
                {PgText(name)}, &error_);
  return r && PQntuples(r.get()) > 0 ? std::atoll(PQgetvalue(r.get(), 0, 0)) : 0;
}

bool PgIndexWriter::WriteItem(const PgItemRow& row) {
  static const std::string sql =
      std::string("INSERT INTO items(") + kItemColumns +
      ") VALUES($1, $2::bytea, $3::bytea, $4, $5, $6, $7, $8::boolean, $9::bigint, $10::bigint, $11::bigint, "
      "$12::bigint, $13, $14, $15::smallint, $16::jsonb, $17::jsonb, $18::integer, $19::integer, $20::integer, "
      "$21::integer[], $22::integer[], $23::integer[]) "
      "ON CONFLICT (id) DO UPDATE SET folder = EXCLUDED.folder, name = EXCLUDED.name, name_key = EXCLUDED.name_key, "
      "folder_key = EXCLUDED.folder_key, path_key = EXCLUDED.path_key, extension = EXCLUDED.extension, "
      "is_folder = EXCLUDED.is_folder, size = EXCLUDED.size, modified = EXCLUDED.modified, created = EXCLUDED.created, "
      "attributes = EXCLUDED.attributes, kind = EXCLUDED.kind, mime = EXCLUDED.mime, state = EXCLUDED.state, "
      "props = EXCLUDED.props, prop_keys = EXCLUDED.prop_keys, owner = EXCLUDED.owner, grp = EXCLUDED.grp, "
      "mode = EXCLUDED.mode, chain_owner = EXCLUDED.chain_owner, chain_group = EXCLUDED.chain_group, "
      "chain_mode = EXCLUDED.chain_mode";
  return db_.Query(sql, ItemParams(row), &error_) != nullptr;
}

bool PgIndexWriter::WriteText(int64_t item, const std::vector<std::string>& pieces) {
  if (!db_.Query("DELETE FROM texts WHERE item = $1", {PgInt(item)}, &error_)) return false;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (!db_.Query("INSERT INTO texts(item, piece, body) VALUES($1, $2, $3)",
                   {PgInt(item), PgInt(static_cast<int64_t>(i)), PgText(KeyText(pieces[i]))}, &error_))
      return false;
  }
  return true;
}

bool PgIndexWriter::Forget(const std::string& path, bool with_self) {
  const auto [lo, hi] = FolderPathsBelow(path);
  std::string sql = "DELETE FROM items WHERE folder = $1::bytea OR (folder >= $2::bytea AND folder < $3::bytea)";
  std::vector<PgParam> params = {PgBytes(path), PgBytes(lo), PgBytes(hi)};
  if (with_self && path != "/") {
    const size_t slash = path.rfind('/');
    sql += " OR (folder = $4::bytea AND name = $5::bytea)";
    params.push_back(PgBytes(slash == 0 ? "/" : path.substr(0, slash)));
    params.push_back(PgBytes(path.substr(slash + 1)));
  }
  return db_.Query(sql, params, &error_) != nullptr;
}

bool PgIndexWriter::BeginFirstBuild() { return DropSearchIndexes(db_, &error_); }
bool PgIndexWriter::EndFirstBuild() { return MakeSearchIndexes(db_, &error_) && Exec("ANALYZE items; ANALYZE texts"); }

bool PgIndexWriter::RemoveAllBut(const std::unordered_set<int64_t>& kept, int64_t* removed) {
  if (!Exec("CREATE TEMP TABLE IF NOT EXISTS kept(id bigint PRIMARY KEY); TRUNCATE kept")) return false;
  std::string data;
  for (int64_t id : kept) data += std::to_string(id) + '\n';
  if (!db_.CopyIn("COPY kept(id) FROM STDIN", data, &error_)) return false;
  PgResult r = db_.Query("DELETE FROM items i WHERE NOT EXISTS (SELECT 1 FROM kept k WHERE k.id = i.id)", {}, &error_);
  if (!r) return false;
  *removed = std::atoll(PQcmdTuples(r.get()));
  return true;
}

bool PgIndexWriter::CopyItems(const std::vector<PgItemRow>& rows,
                              const std::vector<std::pair<int64_t, std::vector<std::string>>>& texts) {
  std::string data;
  for (const PgItemRow& row : rows) {
    const std::vector<PgParam> params = ItemParams(row);
    for (size_t i = 0; i < params.size(); ++i) {
      if (i > 0) data += '\t';
      if (params[i].null) data += "\\N";
      else if (i == 1 || i == 2) AppendCopyBytes(&data, i == 1 ? row.folder : row.name);
      else AppendCopyField(&data, params[i].text);
    }
    data += '\n';
  }
  if (!db_.CopyIn(std::string("COPY items(") + kItemColumns + ") FROM STDIN", data, &error_)) return false;
  data.clear();
  for (const auto& [item, pieces] : texts) {
    for (size_t i = 0; i < pieces.size(); ++i) {
      data += std::to_string(item) + '\t' + std::to_string(i) + '\t';
      AppendCopyField(&data, KeyText(pieces[i]));
      data += '\n';
    }
  }
  return db_.CopyIn("COPY texts(item, piece, body) FROM STDIN", data, &error_);
}

namespace {

// Reads the local index's rows, a batch at a time, in id order.
class LocalRows {
 public:
  explicit LocalRows(IndexDatabase& db)
      : rows_(db.db(),
              "SELECT i.id, f.path, i.name, i.is_folder, i.size, i.modified, i.created, i.attributes, i.extension, "
              "i.kind, i.mime, i.state FROM items i JOIN folders f ON f.id = i.parent WHERE i.id > ? ORDER BY i.id "
              "LIMIT ?"),
        props_(db.db(), "SELECT n.name, p.value FROM props p JOIN prop_names n ON n.id = p.prop WHERE p.item = ?"),
        pieces_(db.db(), "SELECT body FROM texts WHERE id >= ? AND id < ? ORDER BY id") {}

  bool ok() const { return rows_.ok() && props_.ok() && pieces_.ok(); }

  // The next batch after `after`; empty at the end.
  void Next(int64_t after, std::vector<PgItemRow>* rows, std::vector<std::pair<int64_t, std::vector<std::string>>>* texts) {
    rows->clear();
    texts->clear();
    rows_.Bind(1, after).Bind(2, static_cast<int64_t>(kMirrorBatch));
    while (rows_.Step() == SQLITE_ROW) {
      PgItemRow row;
      row.id = rows_.Int(0);
      row.folder = std::string(rows_.Text(1));
      row.name = std::string(rows_.Blob(2));
      row.is_folder = rows_.Int(3) != 0;
      auto number = [&](int column) { return rows_.IsNull(column) ? std::optional<int64_t>() : rows_.Int(column); };
      auto text = [&](int column) {
        return rows_.IsNull(column) ? std::optional<std::string>() : std::string(rows_.Text(column));
      };
      row.size = number(4);
      row.modified = number(5);
      row.created = number(6);
      row.attributes = number(7);
      row.extension = text(8);
      row.kind = text(9);
      row.mime = text(10);
      row.state = static_cast<int>(rows_.Int(11));
      AccessOf(row);
      props_.Bind(1, row.id);
      while (props_.Step() == SQLITE_ROW) {
        std::string name(props_.Text(0));
        switch (props_.Type(1)) {
          case SQLITE_INTEGER: row.props.emplace_back(std::move(name), props_.Int(1)); break;
          case SQLITE_FLOAT: row.props.emplace_back(std::move(name), props_.Double(1)); break;
          case SQLITE_NULL: break;
          default: row.props.emplace_back(std::move(name), std::string(props_.Text(1)));
        }
      }
      props_.Reset();
      std::vector<std::string> pieces;
      pieces_.Bind(1, TextPieceId(row.id, 0)).Bind(2, TextPieceId(row.id + 1, 0));
      std::string piece;
      while (pieces_.Step() == SQLITE_ROW)
        if (InflateText(pieces_.Blob(0), &piece)) pieces.push_back(piece);
      pieces_.Reset();
      if (!pieces.empty()) texts->emplace_back(row.id, std::move(pieces));
      rows->push_back(std::move(row));
    }
    rows_.Reset();
  }

 private:
  // The item's owner, group and mode and its folders', as they are on disk now: the indexer
  // that runs on the file server sees what its users see.
  void AccessOf(PgItemRow& row) {
    struct stat st {};
    if (lstat(PathOf(row.folder, row.name).c_str(), &st) == 0) row.access = PgAccess{st.st_uid, st.st_gid, st.st_mode & 07777};
    row.chain = Chain(row.folder);
  }

  const std::vector<PgAccess>& Chain(const std::string& folder) {
    auto found = chains_.find(folder);
    if (found != chains_.end()) return found->second;
    std::vector<PgAccess> chain;
    if (folder != "/") {
      const size_t slash = folder.rfind('/');
      chain = Chain(slash == 0 ? "/" : folder.substr(0, slash));
    }
    struct stat st {};
    // A folder that cannot be asked leaves the chain unknown: its rows are nobody's.
    if (!(folder != "/" && chain.empty()) && stat(folder.c_str(), &st) == 0)
      chain.push_back(PgAccess{st.st_uid, st.st_gid, st.st_mode & 07777});
    else
      chain.clear();
    // Bounded: past this many folders they are asked again.
    if (chains_.size() > 4096) chains_.clear();
    return chains_.emplace(folder, std::move(chain)).first->second;
  }

  platform::Statement rows_, props_, pieces_;
  std::unordered_map<std::string, std::vector<PgAccess>> chains_;
};

}  // namespace

bool MirrorLocalIndex(IndexDatabase& local, PgIndexWriter& writer, MirrorStats* stats, std::string* error) {
  LocalRows source(local);
  if (!source.ok()) return *error = "the local index cannot be read: " + local.LastError(), false;
  std::vector<PgItemRow> rows;
  std::vector<std::pair<int64_t, std::vector<std::string>>> texts;
  auto fail = [&] {
    *error = writer.LastError();
    writer.Rollback();
    return false;
  };
  const bool first = writer.Meta("mirrored").empty();
  stats->first_build = first;
  std::unordered_set<int64_t> seen;
  int64_t after = 0;
  if (first) {
    // One transaction: a first build that stops half way leaves nothing, and starts again.
    if (!writer.Begin()) return fail();
    if (!writer.Exec("DELETE FROM items") || !writer.BeginFirstBuild()) return fail();
  }
  while (true) {
    source.Next(after, &rows, &texts);
    if (rows.empty()) break;
    after = rows.back().id;
    stats->items += static_cast<int64_t>(rows.size());
    for (const auto& t : texts) stats->pieces += static_cast<int64_t>(t.second.size());
    if (first) {
      if (!writer.CopyItems(rows, texts)) return fail();
      continue;
    }
    if (!writer.Begin()) return fail();
    size_t t = 0;
    for (const PgItemRow& row : rows) {
      seen.insert(row.id);
      if (!writer.WriteItem(row)) return fail();
      static const std::vector<std::string> kNone;
      const bool has_text = t < texts.size() && texts[t].first == row.id;
      if (!writer.WriteText(row.id, has_text ? texts[t].second : kNone)) return fail();
      if (has_text) ++t;
    }
    if (!writer.Commit()) return fail();
  }
  if (first) {
    if (!writer.EndFirstBuild() || !writer.SetMeta("mirrored", "1") || !writer.Commit()) return fail();
    return true;
  }
  // Rows the local index no longer has.
  int64_t removed = 0;
  if (!writer.Begin() || !writer.RemoveAllBut(seen, &removed) || !writer.Commit()) return fail();
  stats->removed = removed;
  return true;
}

}  // namespace trovix::engine::index
