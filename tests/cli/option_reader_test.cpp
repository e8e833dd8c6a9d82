#include "cli/options/option_reader.h"

#include <gtest/gtest.h>

#include "cli/options/option_ids.h"

namespace trovix::cli {
namespace {

std::vector<OptionItem> ReadAll(std::string_view command, std::vector<std::string> args, std::string* error) {
  OptionReader reader(*FindCommand(command), std::move(args));
  std::vector<OptionItem> items;
  OptionItem item;
  while (reader.Next(&item, error)) items.push_back(item);
  return items;
}

// Every command reads its options through the reader, so each takes "--name=value" alike.
TEST(OptionReader, ValuesFollowOrAreAttachedAndOperandsStayInPlace) {
  for (std::string_view command : {"search", "explain", "saved", "index"}) {
    SCOPED_TRACE(command);
    std::string error;
    const auto items = ReadAll(command, {"root", "--rule=name: a=b", "-r", "size: 1", "-", "x"}, &error);
    EXPECT_TRUE(error.empty()) << error;
    ASSERT_EQ(items.size(), 5u);
    EXPECT_EQ(items[0].option, nullptr);
    EXPECT_EQ(items[0].name, "root");
    ASSERT_NE(items[1].option, nullptr);
    EXPECT_EQ(items[1].option->id, kOptRule);
    EXPECT_EQ(items[1].name, "--rule");
    EXPECT_EQ(items[1].value, "name: a=b");
    EXPECT_EQ(items[2].value, "size: 1");
    EXPECT_EQ(items[3].option, nullptr);  // "-" alone is an operand
  }
  std::string error;
  const auto text = ReadAll("text", {"--excerpt=40", "file.txt"}, &error);
  ASSERT_EQ(text.size(), 2u);
  EXPECT_EQ(text[0].option->id, kOptExcerpt);
  EXPECT_EQ(text[0].value, "40");
}

}  // namespace
}  // namespace trovix::cli
