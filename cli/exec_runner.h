// --exec and --exec-batch: commands run on the results, with fd's placeholders. Each result's
// command runs as soon as the result is found, several at a time; a command's output is
// gathered and written in one piece when it ends, so the outputs of parallel commands never
// interleave. The batch form runs once at the end with every result (in more than one run when
// the arguments would not fit one command line).
//
// Placeholders, anywhere inside an argument: {} the path, {/} its last component, {//} the
// folder it is in, {.} the path without its extension, {/.} the last component without it. A
// command without any placeholder gets the path as its last argument. A relative path that
// starts with "-" is passed as "./-name".
//
// Thread-safety: Add may be called from any one thread at a time (the search's sink lock);
// Finish from the thread that owns the runner, once.
#pragma once

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace trovix::cli {

// One argument with the placeholders filled in for `path`.
std::string ExpandPlaceholders(const std::string& argument, const std::string& path);
bool HasPlaceholder(const std::string& argument);
// The path as commands get it: a relative path that starts with "-" gets "./" before it, so that
// no file name is ever read as an option.
std::string SafeCommandPath(const std::string& path);

class ExecRunner {
 public:
  // `command`: the program and its arguments; `jobs`: commands run at the same time.
  ExecRunner(std::vector<std::string> command, bool batch, int jobs, std::FILE* out, std::FILE* err);
  ~ExecRunner();
  ExecRunner(const ExecRunner&) = delete;
  ExecRunner& operator=(const ExecRunner&) = delete;

  void Add(const std::string& path);
  // Waits for every command (and runs the batch). True when every command ran and exited 0.
  bool Finish();

 private:
  void Worker();
  // Runs one command line to its end, its output written in one piece; false on failure.
  bool Run(const std::vector<std::string>& argv);
  void RunBatches();

  std::vector<std::string> command_;
  bool batch_;
  std::FILE* out_;
  std::FILE* err_;
  std::vector<std::string> batch_paths_;

  std::mutex mutex_;
  std::condition_variable work_;
  std::deque<std::string> queue_;
  bool closing_ = false;
  bool all_ok_ = true;
  std::mutex write_mutex_;
  bool spawn_failure_said_ = false;  // guarded by write_mutex_
  std::vector<std::thread> workers_;
};

}  // namespace trovix::cli
