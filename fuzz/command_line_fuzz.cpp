// Parses arbitrary bytes as a command line handed over by a later start: the first four bytes
// are the show command (little-endian, as the hand-over channel frames it), the rest the line.
// Whatever arrives must parse without a fault, keep the show command, and set no switch bit
// beyond the known ones. The existence test is a pure function of the name, so that a run
// never touches the file system and a crash reproduces.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/command_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace trovix::app;
  if (size < 4) return 0;
  const uint32_t show = uint32_t{data[0]} | uint32_t{data[1]} << 8 | uint32_t{data[2]} << 16 |
                        uint32_t{data[3]} << 24;
  const std::string_view line(reinterpret_cast<const char*>(data) + 4, size - 4);
  const auto exists = [](const std::string& path) { return path.size() % 3 == 0; };
  const CommandLine parsed = ParseCommandLine(line, show, exists);
  constexpr uint32_t kKnown =
      kSwitchMinimised | kSwitchPrivate | kSwitchFresh | kSwitchSharedData | kSwitchConsole;
  if (parsed.show_command != show || (parsed.switches & ~kKnown) != 0) std::abort();
  // Nothing the parse hands on can be longer than the line it came from.
  if (parsed.root.size() > line.size() || parsed.settings_path.size() > line.size() ||
      parsed.search.size() > line.size()) {
    std::abort();
  }
  for (const CommandArgument& argument : SplitCommandLine(line)) IsSwitchArgument(argument.text);
  WantsPrivateInstance(line);
  return 0;
}
