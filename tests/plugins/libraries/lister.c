/* A lister plugin for the tests, drawn with Xlib: ListLoad makes a child window of the parent
 * it is given, as large as the parent, and draws the file's first line into a picture that the
 * X server paints as the window's background (so the window stays drawn without an event loop
 * in the host). Its detect string takes ".txt" and ".lst" files.
 *
 * A first line of "crash" kills the host, "hang" never returns, "refuse" refuses the file;
 * "escape" tries what the host's sandbox must refuse (an IP socket, a file written) and answers
 * the window id 1 when either worked, else refuses the file. */
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "plugin_abi.h"

typedef uintptr_t HWND;

enum { MAX_WINDOWS = 16 };

static Display* display;
static struct {
  Window window;
  Pixmap picture;
} shown[MAX_WINDOWS];

/* The first line of `path` (at most `size` - 1 bytes); 0 when the file cannot be read. */
static int FirstLine(const char* path, char* line, int size) {
  FILE* file = fopen(path, "rb");
  if (!file) return 0;
  if (!fgets(line, size, file)) line[0] = 0;
  fclose(file);
  line[strcspn(line, "\r\n")] = 0;
  return 1;
}

/* The line drawn on white with a blue bar above it, at least as large as the window (larger,
 * so that a window the desktop makes larger shows no tiles of it). */
static Pixmap Draw(Window window, unsigned width, unsigned height, const char* line) {
  const int screen = DefaultScreen(display);
  if (width < 1920) width = 1920;
  if (height < 1200) height = 1200;
  Pixmap picture = XCreatePixmap(display, window, width, height, (unsigned)DefaultDepth(display, screen));
  GC gc = XCreateGC(display, picture, 0, 0);
  XSetForeground(display, gc, WhitePixel(display, screen));
  XFillRectangle(display, picture, gc, 0, 0, width, height);
  XSetForeground(display, gc, 0x3050c0);
  XFillRectangle(display, picture, gc, 0, 0, width, 24);
  XSetForeground(display, gc, BlackPixel(display, screen));
  XDrawString(display, picture, gc, 10, 44, line, (int)strlen(line));
  XFreeGC(display, gc);
  return picture;
}

static int Slot(Window window) {
  for (int i = 0; i < MAX_WINDOWS; ++i)
    if (shown[i].window == window) return i;
  return -1;
}

/* What the file asks of the plugin before anything is drawn: 1 go on, 0 refuse; "escape"
 * answers through *escaped. */
static int Behave(const char* line, int* escaped) {
  *escaped = 0;
  if (strcmp(line, "crash") == 0) raise(SIGSEGV);
  if (strcmp(line, "hang") == 0)
    for (;;) pause();
  if (strcmp(line, "refuse") == 0) return 0;
  if (strcmp(line, "escape") == 0) {
    const int ip = socket(AF_INET, SOCK_STREAM, 0);
    const int file = open("/tmp/trovix-lister-escaped", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    *escaped = ip >= 0 || file >= 0;
    if (ip >= 0) close(ip);
    if (file >= 0) close(file);
    return 0;
  }
  return 1;
}

static int Show(Window window, const char* path) {
  char line[256];
  int escaped;
  if (!FirstLine(path, line, sizeof line) || !Behave(line, &escaped)) return 0;
  Window root;
  int x, y;
  unsigned width, height, border, depth;
  XGetGeometry(display, window, &root, &x, &y, &width, &height, &border, &depth);
  int slot = Slot(window);
  if (slot < 0) slot = Slot(0);
  if (slot < 0) return 0;
  if (shown[slot].picture) XFreePixmap(display, shown[slot].picture);
  shown[slot].window = window;
  shown[slot].picture = Draw(window, width, height, line);
  XSetWindowBackgroundPixmap(display, window, shown[slot].picture);
  XClearWindow(display, window);
  XSync(display, False);
  return 1;
}

EXPORT HWND ListLoad(HWND parent, char* file, int flags) {
  (void)flags;
  char line[256];
  int escaped;
  if (!FirstLine(file, line, sizeof line)) return 0;
  if (!Behave(line, &escaped)) return escaped ? 1 : 0;
  if (!display) display = XOpenDisplay(0);
  if (!display || !parent) return 0;
  Window root;
  int x, y;
  unsigned width, height, border, depth;
  if (!XGetGeometry(display, (Window)parent, &root, &x, &y, &width, &height, &border, &depth)) return 0;
  const int screen = DefaultScreen(display);
  Window window = XCreateSimpleWindow(display, (Window)parent, 0, 0, width ? width : 1, height ? height : 1, 0,
                                      BlackPixel(display, screen), WhitePixel(display, screen));
  XStoreName(display, window, "trovix test lister");
  if (!Show(window, file)) {
    XDestroyWindow(display, window);
    XSync(display, False);
    return 0;
  }
  XMapWindow(display, window);
  XSync(display, False);
  return (HWND)window;
}

EXPORT int ListLoadNext(HWND parent, HWND window, char* file, int flags) {
  (void)parent; (void)flags;
  if (!display || Slot((Window)window) < 0) return 1;
  return Show((Window)window, file) ? 0 : 1;
}

EXPORT void ListCloseWindow(HWND window) {
  if (!display) return;
  const int slot = Slot((Window)window);
  if (slot >= 0) {
    XFreePixmap(display, shown[slot].picture);
    shown[slot].window = 0;
    shown[slot].picture = 0;
  }
  XDestroyWindow(display, (Window)window);
  XSync(display, False);
}

EXPORT void ListGetDetectString(char* text, int maxlen) { CopyText(text, "EXT=\"TXT\" | EXT=\"LST\"", maxlen); }

EXPORT void ListSetDefaultParams(ContentDefaultParamStruct* params) { (void)params; }
