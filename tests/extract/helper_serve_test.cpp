// The real trovix-extract in its pool mode: request frames in, answer frames out, one helper
// for many requests. A request that does not decode, a cancel in mid-answer and every file of
// the corpus must all end with an end frame and leave the helper alive.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>

#include "platform/frame_io.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::CorpusDir;
using trovix::testing::TempTree;

class ServedHelper {
 public:
  ServedHelper() {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], 0);
      dup2(out[1], 1);
      execl(TROVIX_EXTRACT_PATH, "trovix-extract", "--serve", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    to_ = in[1];
    from_ = out[0];
  }
  ~ServedHelper() {
    if (to_ >= 0) close(to_);
    if (pid_ > 0) {
      for (int i = 0; i < 100 && waitpid(pid_, nullptr, WNOHANG) == 0; ++i) usleep(20'000);
      if (kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    }
    if (from_ >= 0) close(from_);
  }

  bool Alive() const { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }
  bool Send(uint32_t type, const std::string& payload) {
    return platform::WriteFrame(to_, type, payload) == platform::FrameStatus::kOk;
  }

  // Reads answers up to the end frame; false when none came in time or the stream broke.
  bool ReadAnswer(Answer* answer, int64_t timeout_ms = 30'000) {
    int64_t deadline = platform::MonotonicMs() + timeout_ms;
    for (;;) {
      platform::Frame f;
      if (platform::ReadFrame(from_, &f, deadline) != platform::FrameStatus::kOk) return false;
      if (f.type == kExtractText) {
        answer->text += f.payload;
      } else if (f.type == kExtractMember) {
        ArchiveMember m;
        if (!m.Decode(f.payload)) return false;
        answer->members.push_back(m);
      } else if (f.type == kExtractEnd) {
        return answer->end.Decode(f.payload);
      } else {
        return false;
      }
    }
  }

  bool Exchange(ExtractOp op, const std::string& path, std::vector<std::string> members, Answer* answer) {
    ExtractRequest r;
    r.op = op;
    r.path = path;
    r.members = std::move(members);
    return Send(kExtractRequest, r.Encode()) && ReadAnswer(answer);
  }

 private:
  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
};

TEST(HelperServe, AnswersRequestsAndSurvivesBadOnes) {
  TempTree tree({"a.txt=hello from a file"});
  ServedHelper helper;
  Answer bad;
  ASSERT_TRUE(helper.Send(kExtractRequest, "\x07garbage"));
  ASSERT_TRUE(helper.ReadAnswer(&bad));
  EXPECT_EQ(bad.end.code, kEndBadRequest);
  Answer good;
  ASSERT_TRUE(helper.Exchange(kOpText, tree.path("a.txt"), {}, &good));
  EXPECT_EQ(good.end.code, kEndOk);
  EXPECT_EQ(good.text, "hello from a file");
  EXPECT_TRUE(helper.Alive());
}

TEST(HelperServe, CancelStopsAnAnswerAndTheHelperStaysUsable) {
  TempTree tree;
  tree.File("big.txt", std::string(8'000'000, 'w'));
  ServedHelper helper;
  ExtractRequest r;
  r.path = tree.path("big.txt");
  ASSERT_TRUE(helper.Send(kExtractRequest, r.Encode()));
  // The helper blocks on the full pipe after its first pieces; the cancel is waiting for it
  // when the write goes through.
  ASSERT_TRUE(helper.Send(platform::kFrameCancel, ""));
  Answer cancelled;
  ASSERT_TRUE(helper.ReadAnswer(&cancelled));
  EXPECT_EQ(cancelled.end.code, kEndCancelled);
  EXPECT_LT(cancelled.text.size(), 8'000'000u);
  Answer again;
  tree.File("small.txt", "still here");
  ASSERT_TRUE(helper.Exchange(kOpText, tree.path("small.txt"), {}, &again));
  EXPECT_EQ(again.text, "still here");
}

// Every file of the corpus, and every member of its archives, through one helper.
TEST(HelperServe, WholeCorpusThroughOneHelper) {
  SKIP_WITHOUT_CORPUS();
  ServedHelper helper;
  std::map<ExtractCode, int> codes;
  auto check = [&](ExtractOp op, const std::string& path, std::vector<std::string> members) {
    Answer a;
    std::string what = path + (members.empty() ? "" : " / " + members.back());
    ASSERT_TRUE(helper.Exchange(op, path, members, &a)) << what;
    EXPECT_LE(a.end.code, kEndBadRequest) << what;
    EXPECT_NE(a.end.code, kEndBadRequest) << what;
    ++codes[a.end.code];
    if (op != kOpList) return;
    EXPECT_EQ(a.end.code, kEndOk) << what << ": " << a.end.message;
    for (const ArchiveMember& m : a.members) {
      if (m.is_dir) continue;
      std::vector<std::string> chain = members;
      chain.push_back(m.path);
      Answer member;
      ASSERT_TRUE(helper.Exchange(kOpText, path, chain, &member)) << path << " / " << m.path;
      ++codes[member.end.code];
    }
  };
  int files = 0;
  for (const auto& e : std::filesystem::recursive_directory_iterator(CorpusDir())) {
    if (!e.is_regular_file()) continue;
    ++files;
    std::string path = e.path().string();
    check(kOpText, path, {});
    if (e.path().extension() == ".zip") check(kOpList, path, {});
    ASSERT_TRUE(helper.Alive()) << path;
  }
  check(kOpList, CorpusDir() + "/archives/stored-with-inner-zip.zip", {"inner/inner-archive.zip"});
  EXPECT_GT(files, 200);
  EXPECT_TRUE(helper.Alive());
  for (const auto& [code, count] : codes) RecordProperty("end_code_" + std::to_string(code), count);
}

}  // namespace
}  // namespace trovix::extract
