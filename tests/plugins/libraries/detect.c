/* A plugin with a detect string: only text and markdown files. Its one field gives the
 * extension it was asked about, so a test can tell it was never asked about another. */
#include "plugin_abi.h"

EXPORT void ContentGetDetectString(char* text, int maxlen) { CopyText(text, "EXT=\"TXT\" | EXT=\"MD\"", maxlen); }

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  if (index != 0) return FT_NOMOREFIELDS;
  CopyText(name, "Seen", maxlen);
  CopyText(units, "", maxlen);
  return FT_STRING;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)unit; (void)flags;
  if (field != 0) return FT_NOSUCHFIELD;
  CopyText(value, Extension(file), maxlen);
  return FT_STRING;
}
