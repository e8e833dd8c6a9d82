#include "props/fetcher.h"

#include "props/handler_registry.h"
#include "props/item_comment.h"
#include "props/plugins/plugin_columns.h"
#include "props/stock.h"

namespace trovix::props {
namespace {

// The text fall-backs for the properties every item can answer from its path and status.
HRESULT FallBack(ShellItem& item, const PropertyInfo& property, PropValue* out) {
  switch (property.hash) {
    case hash::kFileExtension: {
      if (item.IsFolder()) return S_FALSE;
      std::string_view ext = item.extension();
      if (!ext.empty()) *out = PropValue::Text("." + std::string(ext));
      return S_OK;
    }
    case hash::kItemPathDisplay:
      *out = PropValue::Text(item.DisplayPath());
      return S_OK;
    case hash::kItemFolderPathDisplay: {
      std::string path = item.DisplayPath();
      size_t slash = path.find_last_of('/');
      *out = PropValue::Text(slash == std::string::npos ? std::string() : path.substr(0, slash));
      return S_OK;
    }
    case hash::kItemNameDisplay:
      *out = PropValue::Text(item.DisplayName());
      return S_OK;
    case hash::kComment:
      // Only after every handler found no comment inside the document itself.
      *out = PropValue::Text(ReadItemComment(item));
      return out->IsEmpty() ? S_FALSE : S_OK;
    case hash::kDateModified:
    case hash::kDateCreated:
    case hash::kSize:
      break;
    default:
      return E_FAIL;  // nothing to fall back on; and no reason to ask the file system
  }
  const platform::FileStatus* st = item.Status();
  if (!st) return E_FAIL;
  switch (property.hash) {
    case hash::kDateModified:
      *out = PropValue::FileTime(st->modified);
      return S_OK;
    case hash::kDateCreated:
      *out = PropValue::FileTime(st->created);
      return S_OK;
    case hash::kSize:
      if (st->IsDirectory() || st->IsSymlink()) return S_FALSE;
      *out = PropValue::UInt64(st->size);
      return S_OK;
    default:
      return E_FAIL;
  }
}

}  // namespace

HRESULT FetchValue(ShellItem& item, const PropertyInfo& property, PropValue* out) {
  if (!out) return E_POINTER;
  *out = PropValue();
  HRESULT hr = E_FAIL;
  if (property.stock_index != 0) {
    hr = ComputeStock(property.stock_index, item, out);
  } else if (property.provider != 0) {
    hr = GetItemData(item, property, out);
  } else if (property.hash == hash::kItemPathDisplay && item.IsFileSystem()) {
    *out = PropValue::Text(item.DisplayPath());
    hr = S_OK;
  } else {
    for (const PropertyHandler* handler : HandlerRegistry::Instance().HandlersFor(property.hash)) {
      if (!handler->Accepts(item)) continue;
      hr = handler->GetValue(item, property, out);
      if (hr == S_OK && !out->IsEmpty()) break;
    }
    if (out->IsEmpty()) hr = FallBack(item, property, out);
  }
  if (Failed(hr)) {
    *out = PropValue();
    return hr;
  }
  return out->IsEmpty() ? S_FALSE : S_OK;
}

const CachedValue* GetCachedValue(ShellItem& item, const PropertyInfo& property) {
  if (CachedValue* node = item.FindCached(property.hash)) return node;
  PropValue value;
  FetchValue(item, property, &value);
  return item.AddCached(property.hash, std::move(value));
}

}  // namespace trovix::props
