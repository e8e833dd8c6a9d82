/* Two ordinary fields, a full-text field (index 2) and a field after it that a host never
 * offers. The full text is handed out in chunks, the unit index being the offset of the text
 * already read; -1 says the reader has had enough. */
#include <string.h>

#include "plugin_abi.h"

static int g_aborted;

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  static const char* const kNames[] = {"Title", "Lines", "Text", "After"};
  static const int kTypes[] = {FT_STRING, FT_NUMERIC_32, FT_FULLTEXT, FT_STRING};
  if (index < 0 || index > 3) return FT_NOMOREFIELDS;
  CopyText(name, kNames[index], maxlen);
  CopyText(units, "", maxlen);
  return kTypes[index];
}

/* "line 0\nline 1\n..." up to 3000 lines: more than one chunk. */
static int TextAt(long offset, char* out, int maxlen) {
  static char text[40000];
  static long length;
  if (!length) {
    for (int i = 0; i < 3000; ++i) {
      char line[32];
      int n = 0, v = i;
      char digits[16];
      int d = 0;
      do { digits[d++] = (char)('0' + v % 10); v /= 10; } while (v);
      memcpy(line, "line ", 5); n = 5;
      while (d) line[n++] = digits[--d];
      line[n++] = '\n';
      memcpy(text + length, line, (size_t)n);
      length += n;
    }
  }
  if (offset >= length) return 0;
  long n = length - offset;
  if (n > maxlen / 2) n = maxlen / 2;  /* small chunks, so a reader needs many calls */
  memcpy(out, text + offset, (size_t)n);
  out[n] = 0;
  return (int)n;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)flags;
  if (strstr(file, "empty")) return FT_FIELDEMPTY;
  switch (field) {
    case 0: CopyText(value, "a title", maxlen); return FT_STRING;
    case 1: *(int32_t*)value = 3000; return FT_NUMERIC_32;
    case 2:
      if (unit < 0) { ++g_aborted; return FT_FIELDEMPTY; }
      return TextAt(unit, value, maxlen) > 0 ? FT_FULLTEXT : FT_FIELDEMPTY;
    case 3: CopyText(value, "never asked", maxlen); return FT_STRING;
    default: return FT_NOSUCHFIELD;
  }
}
