#include "index/postgres/pg_index_writer.h"

#include <cstdio>


#include "base/file_name.h"
#include "index/postgres/pg_schema.h"
#include "index/sqlite/index_schema.h"
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
    "attributes, kind, mime, state, props, prop_keys, owner, grp, mode, chain_owner, chain_group, chain_mode, "
    "device, inode, change_ns, volume, listed, share";

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
          ChainArray(row.chain, &PgAccess::mode),
          Optional(row.device),
          Optional(row.inode),
          Optional(row.change),
          Optional(row.volume),
          PgText(row.listed ? "true" : "false"),
          PgInt(row.share)};
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
      "$21::integer[], $22::integer[], $23::integer[], $24::bigint, $25::bigint, $26::bigint, $27::bigint, "
      "$28::boolean, $29::integer) "
      "ON CONFLICT (share, id) DO UPDATE SET folder = EXCLUDED.folder, name = EXCLUDED.name, name_key = EXCLUDED.name_key, "
      "folder_key = EXCLUDED.folder_key, path_key = EXCLUDED.path_key, extension = EXCLUDED.extension, "
      "is_folder = EXCLUDED.is_folder, size = EXCLUDED.size, modified = EXCLUDED.modified, created = EXCLUDED.created, "
      "attributes = EXCLUDED.attributes, kind = EXCLUDED.kind, mime = EXCLUDED.mime, state = EXCLUDED.state, "
      "props = EXCLUDED.props, prop_keys = EXCLUDED.prop_keys, owner = EXCLUDED.owner, grp = EXCLUDED.grp, "
      "mode = EXCLUDED.mode, chain_owner = EXCLUDED.chain_owner, chain_group = EXCLUDED.chain_group, "
      "chain_mode = EXCLUDED.chain_mode, device = EXCLUDED.device, inode = EXCLUDED.inode, "
      "change_ns = EXCLUDED.change_ns, volume = EXCLUDED.volume, listed = EXCLUDED.listed";
  return db_.Query(sql, ItemParams(row), &error_) != nullptr;
}

bool PgIndexWriter::WriteText(int64_t item, const std::vector<std::string>& pieces) {
  if (!db_.Query("DELETE FROM texts WHERE item = $1", {PgInt(item)}, &error_)) return false;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (!db_.Query("INSERT INTO texts(share, item, piece, body) SELECT share, id, $2::integer, $3::text FROM items WHERE id = $1::bigint",
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
  // The names an exclusion took out of the folders that go, go with them.
  return db_.Query(sql, params, &error_) != nullptr &&
         db_.Query("DELETE FROM excluded WHERE folder = $1::bytea OR (folder >= $2::bytea AND folder < $3::bytea)",
                   {params[0], params[1], params[2]}, &error_) != nullptr;
}

bool PgIndexWriter::BeginFirstBuild() { return DropSearchIndexes(db_, &error_); }
bool PgIndexWriter::EndFirstBuild() { return MakeSearchIndexes(db_, &error_) && Exec("ANALYZE items; ANALYZE texts"); }

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
  if (!rows.empty() && !db_.CopyIn(std::string("COPY items(") + kItemColumns + ") FROM STDIN", data, &error_))
    return false;
  if (texts.empty()) return true;
  data.clear();
  for (const auto& [item, pieces] : texts) {
    for (size_t i = 0; i < pieces.size(); ++i) {
      data += std::to_string(item) + '\t' + std::to_string(i) + '\t';
      AppendCopyField(&data, KeyText(pieces[i]));
      data += '\n';
    }
  }
  // The pieces take their items' shares on the server.
  return db_.Exec("CREATE TEMP TABLE IF NOT EXISTS new_texts(item bigint, piece integer, body text); "
                  "DELETE FROM new_texts",
                  &error_) &&
         db_.CopyIn("COPY new_texts FROM STDIN", data, &error_) &&
         db_.Exec("INSERT INTO texts(share, item, piece, body) SELECT i.share, n.item, n.piece, n.body "
                  "FROM new_texts n JOIN items i ON i.id = n.item; DELETE FROM new_texts",
                  &error_);
}

}  // namespace trovix::engine::index
