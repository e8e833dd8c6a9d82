// Spoken errors: what is said, what is shown instead, and that the real voice (present or not
// on this machine) never hangs or crashes the caller.
#include "views/speech.h"

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

TEST_F(SpeechTest, TalkOffShowsTheStringTableText) {
  std::vector<std::string> said;
  SetSpeechHook([&](const std::string& text) {
    said.push_back(text);
    return true;
  });
  EXPECT_FALSE(Say("hello"));
  ReportError(nullptr, base::strings::kSpecifyWhatToSearch, "what is Sir looking for?");
  EXPECT_TRUE(said.empty());
  ASSERT_EQ(boxes_.boxes().size(), 1u);
  EXPECT_EQ(boxes_.boxes()[0].string_id, base::strings::kSpecifyWhatToSearch);
  EXPECT_EQ(boxes_.boxes()[0].text, "Please specify what to search for, e.g. a filename");
  EXPECT_EQ(boxes_.boxes()[0].icon, QMessageBox::Warning);
}

TEST_F(SpeechTest, TalkOnSpeaksInsteadOfShowingAndFallsBackWhenTheVoiceFails) {
  SetTalkEnabled(true);
  bool voice_works = true;
  std::vector<std::string> said;
  SetSpeechHook([&](const std::string& text) {
    said.push_back(text);
    return voice_works;
  });
  ReportError(nullptr, base::strings::kSupplyValidRoot, "where is that folder like?");
  EXPECT_EQ(said, std::vector<std::string>{"where is that folder like?"});
  EXPECT_TRUE(boxes_.boxes().empty());

  voice_works = false;
  ReportError(nullptr, base::strings::kSupplyValidRoot, "where is that folder like?");
  ASSERT_EQ(boxes_.boxes().size(), 1u);
  EXPECT_EQ(boxes_.boxes()[0].string_id, base::strings::kSupplyValidRoot);

  // Without a spoken form the box is always shown.
  said.clear();
  voice_works = true;
  ReportError(nullptr, base::strings::kSupplyValidRoot, nullptr);
  EXPECT_TRUE(said.empty());
  EXPECT_EQ(boxes_.boxes().size(), 2u);
}

TEST_F(SpeechTest, RealVoiceEitherSpeaksOrLetsTheBoxShow) {
  SetTalkEnabled(true);
  const bool spoken = Say("computer says no!");
  // The answer is stable: the voice is set up once.
  EXPECT_EQ(Say("computer says no!"), spoken);
  ReportError(nullptr, base::strings::kSpecifyWhatToSearch, "what is Sir looking for?");
  EXPECT_EQ(boxes_.boxes().size(), spoken ? 0u : 1u);
}

TEST_F(SpeechTest, RecorderAnswersQuestionsAndRestoresThePreviousHook) {
  EXPECT_EQ(ShowStringBox(nullptr, 11186, QMessageBox::Warning, QMessageBox::Yes | QMessageBox::No),
            QMessageBox::Yes);
  {
    MessageBoxRecorder inner(QMessageBox::No);
    EXPECT_EQ(ShowStringBox(nullptr, 11186, QMessageBox::Warning, QMessageBox::Yes | QMessageBox::No),
              QMessageBox::No);
    EXPECT_EQ(inner.boxes().size(), 1u);
  }
  ShowStringBox(nullptr, 11186, QMessageBox::Warning);
  EXPECT_EQ(boxes_.boxes().size(), 2u);
  EXPECT_EQ(boxes_.boxes()[1].text, base::LoadString(11186));
}

}  // namespace
}  // namespace trovix::views
