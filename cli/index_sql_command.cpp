#include <string>
#include <vector>
namespace trovix::cli { int RunIndexSqlCommand(const std::vector<std::string>&) { return 2; } }
