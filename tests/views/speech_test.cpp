// Spoken errors: what is said, what is shown instead, and that the real voice (present or not
// on this machine) never hangs or crashes the caller.
#include "views/program/speech.h"

#include <gtest/gtest.h>

#include "base/string_table.h"

namespace trovix::views {
namespace {

class SpeechTest : public ::testing::Test {
 protected:
  void TearDown() override {
    SetTalkEnabled(false);
    SetSpeechHook({});
  }
  MessageBoxRecorder boxes_;
};

TEST_F(SpeechTest, SpeaksWhenEnabledAndWorkingElseShowsTheStringTableText) {
  bool voice_works = true;
  std::vector<std::string> said;
  SetSpeechHook([&](const std::string& text) {
    said.push_back(text);
    return voice_works;
  });
  // Talk off: the box, and the voice is not even asked.
  ReportError(nullptr, base::strings::kSpecifyWhatToSearch, "what is Sir looking for?");
  EXPECT_TRUE(said.empty());
  ASSERT_EQ(boxes_.boxes().size(), 1u);
  EXPECT_EQ(boxes_.boxes()[0].string_id, base::strings::kSpecifyWhatToSearch);
  EXPECT_EQ(boxes_.boxes()[0].text, "Please specify what to search for, e.g. a filename");
  EXPECT_EQ(boxes_.boxes()[0].icon, QMessageBox::Warning);

  SetTalkEnabled(true);
  ReportError(nullptr, base::strings::kSupplyValidRoot, "where is that folder like?");
  EXPECT_EQ(said, std::vector<std::string>{"where is that folder like?"});
  EXPECT_EQ(boxes_.boxes().size(), 1u);
  // A voice that fails, or an error without a spoken form, shows the box.
  voice_works = false;
  ReportError(nullptr, base::strings::kSupplyValidRoot, "where is that folder like?");
  voice_works = true;
  ReportError(nullptr, base::strings::kSupplyValidRoot, nullptr);
  ASSERT_EQ(boxes_.boxes().size(), 3u);
  EXPECT_EQ(boxes_.boxes()[2].string_id, base::strings::kSupplyValidRoot);

  // The recorder answers a question with its first button unless told otherwise.
  EXPECT_EQ(ShowStringBox(nullptr, 11186, QMessageBox::Warning, QMessageBox::Yes | QMessageBox::No),
            QMessageBox::Yes);
}

TEST_F(SpeechTest, RealVoiceEitherSpeaksOrLetsTheBoxShow) {
  SetTalkEnabled(true);
  const bool spoken = Say("computer says no!");
  // The answer is stable: the voice is set up once.
  EXPECT_EQ(Say("computer says no!"), spoken);
  ReportError(nullptr, base::strings::kSpecifyWhatToSearch, "what is Sir looking for?");
  EXPECT_EQ(boxes_.boxes().size(), spoken ? 0u : 1u);
}

}  // namespace
}  // namespace trovix::views
