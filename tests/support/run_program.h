// Runs a program as a black box: the arguments are quoted for the shell one by one, the
// standard output is captured whole, the standard error goes to a file when asked for (or is
// dropped), and the exit status is returned. For tests that drive trovix-cli as a user would.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_files.h"

namespace trovix::testing {

struct ProgramRun {
  int status = -1;  // the exit status, -1 when the program did not exit normally
  std::string out;
  std::string err;
};

inline std::string ShellQuote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

// `environment` is prepended as is ("NAME=value " pairs, already quoted).
inline ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args,
                             const std::string& stderr_path = "", const std::string& environment = "") {
  std::string command = environment + ShellQuote(program);
  for (const auto& a : args) command += " " + ShellQuote(a);
  command += " 2>" + (stderr_path.empty() ? std::string("/dev/null") : ShellQuote(stderr_path));
  ProgramRun run;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return run;
  std::array<char, 4096> buf;
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) run.out.append(buf.data(), n);
  int raw = pclose(pipe);
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  if (!stderr_path.empty()) run.err = ReadWholeFile(stderr_path);
  return run;
}

// Starts a program that runs until it is told to stop (a watch), as RunProgram would run it
// but with its standard output dropped; the process id, for kill and waitpid. `exec` leaves
// no shell between the test and the program, so a signal reaches the program itself.
inline pid_t SpawnProgram(const std::string& program, const std::vector<std::string>& args,
                          const std::string& stderr_path = "", const std::string& environment = "") {
  std::string command = environment + "exec " + ShellQuote(program);
  for (const auto& a : args) command += " " + ShellQuote(a);
  command += " >/dev/null 2>" + (stderr_path.empty() ? std::string("/dev/null") : ShellQuote(stderr_path));
  const pid_t pid = fork();
  if (pid == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  return pid;
}

// How often `what` stands in `text` (a message said once, a line written once).
inline size_t Occurrences(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The lines of a program's output, sorted: searches that are not asked for an order may print
// in any.
inline std::vector<std::string> SortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace trovix::testing
