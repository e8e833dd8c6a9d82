// Included once by the main file of each program that loads the web engine (the desktop
// program and its test programs). The engine's own code (Chromium) frees some objects through
// a base type of another size; the address sanitizer would stop the program there, in code
// that is not ours, so that one check is off in these programs. Only sanitized builds see it.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
extern "C" const char* __asan_default_options() { return "new_delete_type_mismatch=0"; }
#endif
