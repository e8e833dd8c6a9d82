/* A well-behaved plugin with one field of every type of the interface, a date and a time field
 * that a host skips, and a floating value under a field declared as a 64-bit number. It also
 * tells what ContentSetDefaultParams and the environment gave it. */
#include <stdlib.h>
#include <string.h>

#include "plugin_abi.h"

static char g_ini[260];
static int g_default_params_calls;

static const struct { const char* name; int type; const char* units; } kFields[] = {
    {"Int32", FT_NUMERIC_32, ""},           /* 0 */
    {"Int64", FT_NUMERIC_64, ""},           /* 1 */
    {"Float", FT_NUMERIC_FLOATING, ""},     /* 2 */
    {"Date", FT_DATE, ""},                  /* 3: skipped */
    {"Time", FT_TIME, ""},                  /* 4: skipped */
    {"Flag", FT_BOOLEAN, ""},               /* 5 */
    {"Choice", FT_MULTIPLECHOICE, "red|green|blue"}, /* 6 */
    {"Text", FT_STRING, ""},                /* 7 */
    {"Stamp", FT_DATETIME, ""},             /* 8 */
    {"Wide", FT_STRINGW, ""},               /* 9 */
    {"Rounded", FT_NUMERIC_64, "bytes|kB"}, /* 10: answers with a floating value */
    {"Ini", FT_STRING, ""},                 /* 11: the settings file it was given */
    {"Env", FT_STRING, ""},                 /* 12: COMMANDER_INI as it sees it */
    {"Calls", FT_NUMERIC_32, ""},           /* 13: how often its defaults were set */
    {"Empty", FT_STRING, ""},               /* 14: always an empty string */
    {"Fractional", FT_NUMERIC_64, ""},      /* 15: a floating value that is not whole */
};

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  if (index < 0 || index >= (int)(sizeof kFields / sizeof kFields[0])) return FT_NOMOREFIELDS;
  CopyText(name, kFields[index].name, maxlen);
  CopyText(units, kFields[index].units, maxlen);
  return kFields[index].type;
}

EXPORT void ContentSetDefaultParams(ContentDefaultParamStruct* params) {
  ++g_default_params_calls;
  memcpy(g_ini, params->ini_name, sizeof g_ini);
  g_ini[sizeof g_ini - 1] = 0;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)file; (void)unit; (void)flags;
  switch (field) {
    case 0: *(int32_t*)value = -123456; return FT_NUMERIC_32;
    case 1: *(int64_t*)value = 9000000000LL; return FT_NUMERIC_64;
    case 2: *(double*)value = 2.5; return FT_NUMERIC_FLOATING;
    case 5: *(int32_t*)value = 1; return FT_BOOLEAN;
    case 6: CopyText(value, "green", maxlen); return FT_MULTIPLECHOICE;
    case 7: CopyText(value, "caf\xc3\xa9", maxlen); return FT_STRING;
    case 8: {
      /* 2020-01-03 02:44:05 UTC as FILETIME: low half, then high half. */
      uint64_t ticks = 132224930450000000ULL;
      uint32_t halves[2] = {(uint32_t)ticks, (uint32_t)(ticks >> 32)};
      memcpy(value, halves, sizeof halves);
      return FT_DATETIME;
    }
    case 10: *(double*)value = 41.00000001; return FT_NUMERIC_FLOATING;
    case 11: CopyText(value, g_ini, maxlen); return FT_STRING;
    case 12: {
      const char* env = getenv("COMMANDER_INI");
      CopyText(value, env ? env : "", maxlen);
      return FT_STRING;
    }
    case 13: *(int32_t*)value = g_default_params_calls; return FT_NUMERIC_32;
    case 14: CopyText(value, "", maxlen); return FT_STRING;
    case 15: *(double*)value = 41.5; return FT_NUMERIC_FLOATING;
    default: return FT_NOSUCHFIELD;
  }
}

/* Wide file names: the wide fields answer through this one, the rest through the ANSI one. */
EXPORT int ContentGetValueW(WCHAR16* file, int field, int unit, void* value, int maxlen, int flags) {
  if (field == 9) {
    static const WCHAR16 kText[] = {0x65E5, 0x672C, 0xD83D, 0xDE00, 0};  /* "日本😀" */
    memcpy(value, kText, sizeof kText);
    return FT_STRINGW;
  }
  char name[1024];
  int i = 0;
  for (; file[i] && i < 1023; ++i) name[i] = file[i] < 0x80 ? (char)file[i] : '?';
  name[i] = 0;
  return ContentGetValue(name, field, unit, value, maxlen, flags);
}
