#include "cli/options/option_reader.h"

namespace trovix::cli {

bool OptionReader::Next(OptionItem* item, std::string* error) {
  error->clear();
  if (next_ >= args_.size()) return false;
  *item = OptionItem{};
  item->name = args_[next_++];
  std::string& a = item->name;
  bool attached = false;  // "--name=value"
  if (a.rfind("--", 0) == 0 && a.find('=') != std::string::npos) {
    item->value = a.substr(a.find('=') + 1);
    a.resize(a.find('='));
    attached = true;
  }
  const bool looks_like_option = a.size() > 1 && a[0] == '-';
  if (!looks_like_option) return true;  // an operand ("-" alone is one too)
  item->option = FindOption(command_, a);
  if (item->option == nullptr) {
    *error = UnknownOptionMessage(command_, a);
    return false;
  }
  const bool takes_value = !item->option->value.empty() && item->option->kind != ValueKind::kCommand;
  if (attached && !takes_value) {
    *error = "option " + a + " takes no value";
    return false;
  }
  if (takes_value && !attached) {
    if (next_ >= args_.size()) {
      *error = "option " + a + " needs a value (" + std::string(item->option->value) + ")";
      return false;
    }
    item->value = args_[next_++];
  }
  return true;
}

}  // namespace trovix::cli
