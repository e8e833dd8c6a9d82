// trovix-cli props FILE, run as a user runs it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/cli_run.h"

namespace trovix::cli {
namespace {

using testing::RunCli;

TEST(TrovixCliProps, ListsAFilesPropertiesAsTextAndTypedJson) {
  testing::TempTree tree({"parts/docProps/core.xml=<cp:coreProperties "
                          "xmlns:cp=\"http://schemas.openxmlformats.org/package/2006/metadata/core-properties\" "
                          "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:dcterms=\"http://purl.org/dc/terms/\">"
                          "<dc:title>Plan</dc:title><dc:creator>Ann; Bob</dc:creator>"
                          "<dcterms:created>2020-02-29T12:00:00Z</dcterms:created></cp:coreProperties>",
                          "parts/docProps/app.xml=<Properties><Pages>3</Pages></Properties>", "plain.txt=hello"});
  const std::string command = "cd '" + tree.path("parts") + "' && zip -qr ../plan.docx docProps";
  ASSERT_EQ(std::system(command.c_str()), 0);

  auto text = RunCli(tree, {"props", tree.path("plan.docx")});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("System.Title\tTitle\tPlan\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("System.Author\tAuthors\tAnn; Bob\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("System.ItemNameDisplay\tName\tplan.docx\n"), std::string::npos);

  // Dates in local time with their offset: 12:00 UTC is 13:00 in Berlin in February.
  auto json = testing::RunProgram(TROVIX_CLI_PATH, {"props", "--json", tree.path("plan.docx")}, "",
                                  "TZ=Europe/Berlin XDG_CACHE_HOME=" + testing::ShellQuote(tree.path(".cache")) + " ");
  EXPECT_NE(json.out.find(R"({"name":"System.Author","label":"Authors","text":"Ann; Bob","value":["Ann","Bob"]})"),
            std::string::npos) << json.out;
  EXPECT_NE(json.out.find(R"("value":"2020-02-29T13:00:00+01:00"})"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find(R"("text":"3","value":3})"), std::string::npos) << json.out;
  EXPECT_NE(json.out.find(R"("name":"Stock.IsFolder","label":"Folder","text":"No","value":false})"), std::string::npos);

  // A plain file has its file-system properties only; a missing one is an error.
  auto plain = RunCli(tree, {"props", tree.path("plain.txt")});
  EXPECT_EQ(plain.out.find("System.Title"), std::string::npos);
  EXPECT_EQ(RunCli(tree, {"props", tree.path("missing.pdf")}).status, 2);
  // Without a file, the catalogue as before.
  EXPECT_EQ(RunCli(tree, {"props"}).out.rfind("name\tlabel\ttype\tflags\twords\n", 0), 0u);
}

}  // namespace
}  // namespace trovix::cli
