// Mail written here: a message with a quoted-printable body and a base64 attachment, a
// mailbox of two messages, alternatives, an encrypted message and one with 2,000 nested
// parts. Python's email package, where it is installed, reads the same message as a check.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/file_time.h"
#include "extract/archive/archive_names.h"
#include "tests/extract/extract_fixtures.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_tree.h"

namespace trovix::extract {
namespace {

using fixtures::Answer;
using fixtures::RunInProcess;
using trovix::testing::TempTree;

// "Report attached\n\nq1,q2\n" in base64, and a quoted-printable Latin-1 body.
constexpr const char* kMail =
    "From: =?UTF-8?Q?Zo=C3=AB_Adams?= <zoe@example.org>\r\n"
    "To: Bob <bob@example.org>, carol@example.org\r\n"
    "Subject: =?ISO-8859-1?Q?Quarterly_r=E9port?=\r\n"
    "Date: Tue, 03 Mar 2026 10:15:00 +0100\r\n"
    "MIME-Version: 1.0\r\n"
    "Content-Type: multipart/mixed; boundary=\"outer\"\r\n"
    "\r\n"
    "--outer\r\n"
    "Content-Type: text/plain; charset=iso-8859-1\r\n"
    "Content-Transfer-Encoding: quoted-printable\r\n"
    "\r\n"
    "Caf=E9 au lait, a line that is soft-=\r\n"
    "broken here.\r\n"
    "--outer\r\n"
    "Content-Type: text/plain; name=\"report.txt\"\r\n"
    "Content-Disposition: attachment; filename=\"report.txt\"\r\n"
    "Content-Transfer-Encoding: base64\r\n"
    "\r\n"
    "UmVwb3J0IGF0dGFjaGVkCgpxMSxxMgo=\r\n"
    "--outer\r\n"
    "Content-Type: application/octet-stream\r\n"
    "Content-Disposition: attachment; filename=\"report.txt\"\r\n"
    "Content-Transfer-Encoding: base64\r\n"
    "\r\n"
    "AAEC\r\n"
    "--outer--\r\n";

std::string Message(const std::string& subject, const std::string& body,
                    const std::string& extra_part = {}) {
  std::string m =
      "From: a@example.org\nSubject: " + subject + "\nDate: Mon, 02 Mar 2026 08:00:00 +0000\n";
  if (extra_part.empty()) return m + "Content-Type: text/plain\n\n" + body + "\n";
  return m +
         "MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: "
         "text/plain\n\n" +
         body + "\n--b\n" + extra_part + "\n--b--\n";
}

TEST(MailReader, DecodesBodiesAndHeadersAndLeavesAttachmentsToTheirReaders) {
  TempTree tree;
  tree.File("q.eml", kMail);
  Answer a = RunInProcess(kOpText, tree.path("q.eml"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  EXPECT_NE(a.text.find("Quarterly r\xC3\xA9port"), std::string::npos) << a.text;
  EXPECT_NE(a.text.find("Caf\xC3\xA9 au lait, a line that is soft-broken here."), std::string::npos)
      << a.text;
  EXPECT_EQ(a.text.find("Report attached"), std::string::npos);  // an attachment is a member
  EXPECT_EQ(a.text.find("UmVw"), std::string::npos);

  Answer list = RunInProcess(kOpList, tree.path("q.eml"));
  ASSERT_EQ(list.end.code, kEndOk) << list.end.message;
  EXPECT_EQ(list.member_paths(), (std::vector<std::string>{"report.txt", "report (2).txt"}));
  EXPECT_EQ(list.members[0].size, 23u);
  Answer member = RunInProcess(kOpText, tree.path("q.eml"), {"report.txt"});
  EXPECT_EQ(member.end.code, kEndOk) << member.end.message;
  EXPECT_EQ(member.text, "Report attached\n\nq1,q2\n");
  EXPECT_EQ(RunInProcess(kOpText, tree.path("q.eml"), {"nothere.txt"}).end.code, kEndUnreadable);
  ExtractLimits off;
  off.max_member_bytes = 0;
  EXPECT_EQ(RunInProcess(kOpText, tree.path("q.eml"), {"report.txt"}, off).end.code, kEndTooLarge);
}

TEST(MailReader, HeadersBecomeMessageProperties) {
  TempTree tree;
  tree.File("q.eml", kMail);
  auto ps = fixtures::RequestProperties(tree.path("q.eml"));
  EXPECT_EQ(ps["System.Message.FromAddress"].texts, std::vector<std::string>{"zoe@example.org"});
  EXPECT_EQ(ps["System.Message.FromName"].texts, std::vector<std::string>{"Zo\xC3\xAB Adams"});
  EXPECT_EQ(ps["System.Message.ToAddress"].texts, (std::vector<std::string>{"bob@example.org", "carol@example.org"}));
  EXPECT_EQ(ps["System.Message.ToName"].texts, (std::vector<std::string>{"Bob", "carol@example.org"}));
  EXPECT_EQ(ps["System.Subject"].texts, std::vector<std::string>{"Quarterly r\xC3\xA9port"});
  EXPECT_EQ(ps["System.Message.DateSent"].integer, base::FileTimeFromCivil(base::CivilTime{2026, 3, 3, 9, 15, 0}));
  ASSERT_TRUE(ps.count("System.Message.HasAttachments"));
  EXPECT_EQ(ps["System.Message.HasAttachments"].integer, 1);
}

TEST(MailReader, AMailboxIsEveryMessageWithAttachmentsFiledByNumber) {
  TempTree tree;
  const std::string attached =
      "Content-Type: text/plain\nContent-Disposition: attachment; "
      "filename=\"notes.txt\"\n\nsecond's notes";
  tree.File("box.mbox", "From a@example.org Mon Mar  2 08:00:00 2026\n" +
                            Message("first", "body one") +
                            "\nFrom a@example.org Mon Mar  2 09:00:00 2026\n" +
                            Message("second", "body two", attached));
  Answer a = RunInProcess(kOpText, tree.path("box.mbox"));
  ASSERT_EQ(a.end.code, kEndOk) << a.end.message;
  const size_t one = a.text.find("body one");
  const size_t two = a.text.find("body two");
  ASSERT_NE(one, std::string::npos) << a.text;
  ASSERT_NE(two, std::string::npos) << a.text;
  EXPECT_LT(one, two);
  EXPECT_NE(a.text.find("second"), std::string::npos);
  Answer list = RunInProcess(kOpList, tree.path("box.mbox"));
  EXPECT_EQ(list.member_paths(), (std::vector<std::string>{"2/", "2/notes.txt"}));
  EXPECT_EQ(RunInProcess(kOpText, tree.path("box.mbox"), {"2/notes.txt"}).text, "second's notes");
  // A file named mbox, without an extension, is a mailbox too.
  tree.File("mbox", "From a@example.org Mon Mar  2 08:00:00 2026\n" + Message("s", "only body"));
  EXPECT_NE(RunInProcess(kOpText, tree.path("mbox")).text.find("only body"), std::string::npos);
}

TEST(MailReader, AlternativesGiveThePlainTextAndHtmlOnlyGoesThroughTheHtmlReader) {
  TempTree tree;
  tree.File("alt.eml",
            "Subject: alt\nMIME-Version: 1.0\nContent-Type: multipart/alternative; boundary=a\n\n"
            "--a\nContent-Type: text/plain\n\nplain version\n--a\nContent-Type: "
            "text/html\n\n<p>html version</p>\n--a--\n");
  tree.File(
      "html.eml",
      "Subject: h\nMIME-Version: 1.0\nContent-Type: text/html; "
      "charset=utf-8\nContent-Transfer-Encoding: base64\n\n"
      "PHA+PGI+Ym9sZDwvYj4gJmFtcDsgdGV4dDwvcD48c2NyaXB0Pnhzczwvc2NyaXB0Pg==\n");  // <p><b>bold</b>
                                                                                  // &amp;
                                                                                  // text</p><script>xss</script>
  Answer alt = RunInProcess(kOpText, tree.path("alt.eml"));
  EXPECT_NE(alt.text.find("plain version"), std::string::npos);
  EXPECT_EQ(alt.text.find("html version"), std::string::npos);
  Answer html = RunInProcess(kOpText, tree.path("html.eml"));
  EXPECT_NE(html.text.find("bold & text"), std::string::npos) << html.text;
  EXPECT_EQ(html.text.find("xss"), std::string::npos);
}

TEST(MailReader, EncryptedAndHostileMailAreAnswered) {
  TempTree tree;
  tree.File("pgp.eml",
            "Subject: secret\nMIME-Version: 1.0\nContent-Type: multipart/encrypted; "
            "protocol=\"application/pgp-encrypted\"; "
            "boundary=e\n\n--e\nContent-Type: application/pgp-encrypted\n\nVersion: "
            "1\n--e\nContent-Type: "
            "application/octet-stream\n\n-----BEGIN PGP MESSAGE-----\nhQEMA\n-----END PGP "
            "MESSAGE-----\n--e--\n");
  tree.File(
      "smime.eml",
      "Subject: secret\nMIME-Version: 1.0\nContent-Type: application/pkcs7-mime; "
      "smime-type=enveloped-data; "
      "name=smime.p7m\nContent-Transfer-Encoding: base64\n\nMIAGCSqGSIb3DQEHA6CAMIACAQAxggFO\n");
  for (const char* name : {"pgp.eml", "smime.eml"}) {
    Answer locked = RunInProcess(kOpText, tree.path(name));
    EXPECT_EQ(locked.end.code, kEndEncrypted) << name;
    EXPECT_EQ(locked.end.message, "encrypted") << name;
  }

  // 2,000 multiparts, each inside the one before: the stack must hold and the answer say why.
  std::string deep =
      "Subject: deep\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b0\n\n";
  for (int i = 1; i <= 2000; ++i)
    deep += "--b" + std::to_string(i - 1) + "\nContent-Type: multipart/mixed; boundary=b" +
            std::to_string(i) + "\n\n";
  deep += "--b2000\nContent-Type: text/plain\n\ndeepest\n";
  for (int i = 2000; i >= 0; --i) deep += "--b" + std::to_string(i) + "--\n";
  tree.File("deep.eml", deep);
  Answer d = RunInProcess(kOpText, tree.path("deep.eml"));
  EXPECT_EQ(d.end.code, kEndLimit) << d.end.message;
  EXPECT_NE(d.end.message.find("nested"), std::string::npos);
  EXPECT_EQ(RunInProcess(kOpList, tree.path("deep.eml")).end.code, kEndOk);

  // Eight-bit text that names no charset is detected as a plain text file's would be.
  tree.File(
      "latin.eml",
      "Subject: menu\nContent-Type: text/plain\nContent-Transfer-Encoding: quoted-printable\n\n"
      "Le caf=E9 et la cr=E8me br=FBl=E9e du gar=E7on sont tr=E8s appr=E9ci=E9s =E0 la "
      "r=E9ception.\n");
  Answer latin = RunInProcess(kOpText, tree.path("latin.eml"));
  EXPECT_TRUE(IsValidUtf8(latin.text));
  EXPECT_NE(latin.text.find("cr\xC3\xA8me br\xC3\xBBl\xC3\xA9\x65"), std::string::npos)
      << latin.text;

  tree.File("empty.eml", "");
  EXPECT_NE(RunInProcess(kOpText, tree.path("empty.eml")).end.code, kEndOk);
  tree.File("junk.eml", std::string(5000, '\x01'));
  RunInProcess(kOpText, tree.path("junk.eml"));  // any answer, no crash
}

// The independent reading: Python's email package decodes the same message.
TEST(MailReader, AgreesWithPythonsEmailPackage) {
  if (std::system("python3 -c 'import email' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 is not installed";
  TempTree tree;
  tree.File("q.eml", kMail);
  const std::string script =
      "import email,email.policy,sys\n"
      "m=email.message_from_binary_file(open(sys.argv[1],'rb'),policy=email.policy.default)\n"
      "print(m['subject'])\n"
      "print(m.get_body(('plain',)).get_content().strip())\n"
      "print([p.get_filename() for p in m.iter_attachments()])\n";
  tree.File("oracle.py", script);
  const trovix::testing::ProgramRun python = trovix::testing::RunProgram("python3", {tree.path("oracle.py"), tree.path("q.eml")});
  ASSERT_EQ(python.status, 0) << python.out;
  const std::string& oracle = python.out;
  Answer a = RunInProcess(kOpText, tree.path("q.eml"));
  size_t start = 0;
  for (int line = 0; line < 2; ++line) {
    const size_t end = oracle.find('\n', start);
    const std::string expected = oracle.substr(start, end - start);
    EXPECT_NE(a.text.find(expected), std::string::npos)
        << "python reads: " << expected << "\nwe read: " << a.text;
    start = end + 1;
  }
  EXPECT_NE(oracle.find("['report.txt', 'report.txt']"), std::string::npos) << oracle;
}

}  // namespace
}  // namespace trovix::extract
