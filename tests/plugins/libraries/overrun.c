/* A plugin that writes past the buffer it was given (by 100 bytes), as a careless one does
 * with a long string, and a second field that stays inside it. */
#include <string.h>

#include "plugin_abi.h"

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  static const char* const kNames[] = {"Long", "Short"};
  if (index < 0 || index > 1) return FT_NOMOREFIELDS;
  CopyText(name, kNames[index], maxlen);
  CopyText(units, "", maxlen);
  return FT_STRING;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)file; (void)unit; (void)flags;
  if (field == 0) {
    memset(value, 'x', (size_t)maxlen + 100);
    ((char*)value)[maxlen + 99] = 0;
    return FT_STRING;
  }
  CopyText(value, "short", maxlen);
  return FT_STRING;
}
