/* The published content-plugin interface as the test plugins see it: the entry points a host
 * looks up by name, the field types and the results below 1. Written from the interface's
 * description; the wide character is a 16-bit UTF-16 unit. */
#ifndef TROVIX_TEST_PLUGIN_ABI_H
#define TROVIX_TEST_PLUGIN_ABI_H

#include <stdint.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint16_t WCHAR16;

enum {
  FT_NOMOREFIELDS = 0, FT_NUMERIC_32 = 1, FT_NUMERIC_64 = 2, FT_NUMERIC_FLOATING = 3, FT_DATE = 4,
  FT_TIME = 5, FT_BOOLEAN = 6, FT_MULTIPLECHOICE = 7, FT_STRING = 8, FT_FULLTEXT = 9,
  FT_DATETIME = 10, FT_STRINGW = 11,
  FT_NOSUCHFIELD = -1, FT_FILEERROR = -2, FT_FIELDEMPTY = -3
};

typedef struct {
  int32_t size;
  uint32_t version_low;
  uint32_t version_high;
  char ini_name[260];
} ContentDefaultParamStruct;

/* Copies `text` into `out` of `maxlen` bytes, always terminated. */
static inline void CopyText(char* out, const char* text, int maxlen) {
  int i = 0;
  for (; text[i] && i < maxlen - 1; ++i) out[i] = text[i];
  out[i] = 0;
}

/* The part of `path` after its last period ("" when none). */
static inline const char* Extension(const char* path) {
  const char* dot = 0;
  for (const char* p = path; *p; ++p) {
    if (*p == '.') dot = p;
    if (*p == '/') dot = 0;
  }
  return dot ? dot + 1 : "";
}

#endif
