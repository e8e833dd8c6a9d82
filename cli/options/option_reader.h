// Reads a command's arguments against its option table, one at a time, the same way for every
// command: "-x VALUE", "--name VALUE" and "--name=VALUE", operands (roots, files) between the
// options in any order, a clear message for an unknown option, a value that is missing, or a
// value given to an option that takes none. What an option means stays with its command.
//
// One reader per command line; not shared between threads.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/commands/command_table.h"

namespace trovix::cli {

struct OptionItem {
  const OptionSpec* option = nullptr;  // null for an operand
  std::string name;                    // as written, without "=VALUE"; the operand itself
  std::string value;                   // the option's value, empty for a flag
};

class OptionReader {
 public:
  OptionReader(const CommandSpec& command, std::vector<std::string> args)
      : command_(command), args_(std::move(args)) {}

  // The next option or operand into *item. False at the end, and on an error (then *error is
  // set, and non-empty). An option of kind kCommand gets no value: its command follows as raw
  // arguments (TakeRaw).
  bool Next(OptionItem* item, std::string* error);

  // The argument after the last one read, or null at the end; TakeRaw consumes it.
  const std::string* PeekRaw() const { return next_ < args_.size() ? &args_[next_] : nullptr; }
  std::string TakeRaw() { return args_[next_++]; }

  const CommandSpec& command() const { return command_; }

 private:
  const CommandSpec& command_;
  std::vector<std::string> args_;
  size_t next_ = 0;
};

}  // namespace trovix::cli
