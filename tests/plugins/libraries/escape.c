/* A plugin that tries to leave its sandbox: field 0 creates a file beside the file it is asked
 * about, field 1 opens a socket and connects to this machine. Each answers what happened. */
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include "plugin_abi.h"

EXPORT int ContentGetSupportedField(int index, char* name, char* units, int maxlen) {
  static const char* const kNames[] = {"Write", "Connect"};
  if (index < 0 || index > 1) return FT_NOMOREFIELDS;
  CopyText(name, kNames[index], maxlen);
  CopyText(units, "", maxlen);
  return FT_STRING;
}

EXPORT int ContentGetValue(char* file, int field, int unit, void* value, int maxlen, int flags) {
  (void)unit; (void)flags;
  if (field == 0) {
    char path[4096];
    snprintf(path, sizeof path, "%s.written", file);
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      (void)!write(fd, "x", 1);
      close(fd);
      CopyText(value, "written", maxlen);
    } else {
      CopyText(value, "refused", maxlen);
    }
    return FT_STRING;
  }
  if (field == 1) {
    int s = socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0) {
      CopyText(value, "refused", maxlen);
      return FT_STRING;
    }
    struct sockaddr_in to = {0};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int r = connect(s, (struct sockaddr*)&to, sizeof to);
    close(s);
    CopyText(value, r == 0 ? "connected" : "opened", maxlen);
    return FT_STRING;
  }
  return FT_NOSUCHFIELD;
}
