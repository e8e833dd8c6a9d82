/* A plugin that takes for ever. Field 0 ("Polite") gives up when the host calls
 * ContentStopGetValue; field 1 ("Stubborn") ignores it and must be killed. */
#include <stdatomic.h>
#include <time.h>

#include "plugin_abi.h"

static atomic_int g_stop;

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  static const char* const kNames[] = {"Polite", "Stubborn"};
  if (index < 0 || index > 1) return FT_NOMOREFIELDS;
  CopyText(name, kNames[index], maxlen);
  CopyText(units, "", maxlen);
  return FT_STRING;
}

EXPORT void ContentStopGetValue(char* file) {
  (void)file;
  atomic_store(&g_stop, 1);
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)file; (void)unit; (void)flags; (void)maxlen; (void)value;
  atomic_store(&g_stop, 0);
  struct timespec pause = {0, 10 * 1000 * 1000};
  for (;;) {
    if (field == 0 && atomic_load(&g_stop)) return FT_FIELDEMPTY;
    nanosleep(&pause, 0);
  }
}
