/* A plugin that dies on every file whose name holds "boom", and answers for the others. */
#include <signal.h>
#include <string.h>

#include "plugin_abi.h"

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  if (index != 0) return FT_NOMOREFIELDS;
  CopyText(name, "Fine", maxlen);
  CopyText(units, "", maxlen);
  return FT_STRING;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)unit; (void)flags;
  if (field != 0) return FT_NOSUCHFIELD;
  if (strstr(file, "boom")) raise(SIGSEGV);
  CopyText(value, "fine", maxlen);
  return FT_STRING;
}
