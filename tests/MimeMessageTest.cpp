// The composed text line by line. How other programs read it is tested in tests/mime/.
#include <gmock/gmock.h>
#include <netro/Localization.h>
#include <netro/SendMailCls.h>

#include <cerrno>
#include <cmath>
#include <regex>
#include <system_error>

#include "TestKit.h"
#include "mail/HeaderBlock.h"
#include "mail/RandomText.h"
#include "support/Text.h"
#include "tests/Environment.h"

namespace netro {
namespace {

using testing::HasSubstr;
using testing::Not;

/// The text with the random parts, once each has the right form, as "B1", "B2" and "ID".
std::string Known(std::string text) {
  const std::regex boundary("----=_NextPart_[0-9A-Za-z]{26}(?![0-9A-Za-z])");
  std::smatch found;
  for (int i = 1; std::regex_search(text, found, boundary); ++i) {
    const std::string name = found.str();
    for (std::size_t at; (at = text.find(name)) != text.npos;)
      text.replace(at, name.size(), "B" + std::to_string(i));
  }
  return std::regex_replace(text, std::regex("<[0-9A-Za-z]{26}\\.[0-9]{17}@x\\.test>"), "<ID>");
}

struct Composing : testing::Test {
  Composing() { mail_.CharSet("utf-8"); }

  void Begin() { ASSERT_TRUE(mail_.NewTextMsg("S", "a@x.test", "b@x.test", "Hello\r\n")); }

  TimeZone zone_{"CET-1"};
  TemporaryFolder folder_;
  SendMailCls mail_;
};

std::string TextPart(const std::string& text, const std::string& type = "plain") {
  return "Content-Type: text/" + type +
         ";\n\tcharset=\"utf-8\"\nContent-Transfer-Encoding: quoted-printable\n\n" + text;
}
bool NewHtml(SendMailCls& mail) {
  return mail.NewHTMLMsg("S", "a@x.test", "b@x.test", "<body>Hi</body>");
}
std::string FilePart(const std::string& type, const std::string& name, const std::string& rest) {
  return "Content-Type: " + type + ";\n\tname=\"" + name +
         "\"\nContent-Transfer-Encoding: base64\nContent-Disposition: " + rest;
}

// Other structures are in tests/mime/.
TEST_F(Composing, HasTheseLines) {
  const std::string date = "\nDate: Sat, 21 Nov 2026 12:00:01 +0100\n";
  const std::string head =
      "From: a@x.test" + date + "To: b@x.test\nSubject: S\nMIME-Version: 1.0\nMessage-ID: <ID>\n";
  const auto expect = [&](const std::string& text) {
    mail_.MsgDate(46347.5 + 1.0 / 86400);
    EXPECT_EQ(Known(mail_.MimeBuffer()), std::regex_replace(text, std::regex("\n"), "\r\n"));
    EXPECT_EQ(mail_.Result(), 0) << mail_.ResultMessage();
  };
  mail_.NewTextMsg("S", "a@x.test", "b@x.test", "Hello", "", "d@x.test");
  mail_.AddHeader("Resent-BCC", "e@x.test");
  expect(head + TextPart("Hello\n"));

  NewHtml(mail_);
  mail_.AddRelatedFileFromBuffer("abc", "a-1.png");
  mail_.AddAttachmentFromByteArray({}, "b ä");
  expect(
      head +
      "Content-Type: multipart/related;\n\ttype=\"multipart/alternative\";\n\tboundary=\"B1\"\n\n"
      "This is a multi-part message in MIME format.\n\n--B1\n"
      "Content-Type: multipart/alternative;\n\tboundary=\"B2\"\n\n--B2\n" +
      TextPart("Hi\n\n") + "--B2\n" + TextPart("<body>Hi</body>\n\n", "html") + "--B2--\n--B1\n" +
      FilePart("image/png", "a1.png",
               "inline;\n\tfilename=\"a1.png\"\nContent-ID: <a1.png>\n\nYWJj\n--B1\n") +
      FilePart("application/octet-stream", "b", "attachment;\n\tfilename=\"b\"\n\n\n--B1--\n"));

  mail_.NewTextMsg("", "", "", "", "c@x.test", "d@x.test");
  mail_.AddBCCToMime(true);
  mail_.MessageID("1@x.test");
  mail_.AddHeader("X-B", "2");
  mail_.AddHeader("Resent-Bcc", "e@x.test");
  mail_.AddHeader("X-A", "");
  expect("From: " + date +
         "To: \nMIME-Version: 1.0\nCC: c@x.test\nBCC: d@x.test\nMessage-ID: <1@x.test>\n"
         "X-B: 2\nResent-Bcc: e@x.test\nX-A: \n" +
         TextPart(""));
}

TEST_F(Composing, StaysTheSameUntilItIsChanged) {
  EXPECT_EQ(mail_.MimeBuffer(), "");
  NewHtml(mail_);
  mail_.AddAttachmentFromBuffer("", "a");
  const std::string first = mail_.MimeBuffer();
  EXPECT_EQ(mail_.MimeBuffer(), first);
  NewHtml(mail_);
  mail_.AddAttachmentFromBuffer("", "a");
  const std::regex random("[0-9A-Za-z]{26}");
  std::set<std::string> texts;
  for (const std::string& text : {first, mail_.MimeBuffer()})
    texts.insert(std::sregex_token_iterator(text.begin(), text.end(), random), {});
  EXPECT_EQ(texts.size(), 6u);  // two boundaries and an id each
}

TEST_F(Composing, WhatWasAddedBelongsToOneMessage) {
  mail_.AddHeader("X-A", "early");
  mail_.AddAttachmentFromBuffer("", "early");
  mail_.MessageID("early");
  Begin();
  EXPECT_THAT(mail_.MimeBuffer(), HasSubstr("X-A: early\r\n"));
  EXPECT_THAT(mail_.MimeBuffer(), HasSubstr("name=\"early\""));
  EXPECT_THAT(mail_.MimeBuffer(), HasSubstr("<early>"));
  mail_.AddRelatedFileFromBuffer("", "late");
  Begin();
  EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("early")));
  EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("late")));
}

TEST_F(Composing, HeaderTitlesAndValues) {
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"X-A", "b", "X-A: b"},
      {"!#$%&'*+-./^_`{|}~", "b", "!#$%&'*+-./^_`{|}~: b"},
      {"Reply-To", "Jörg <a@x.test>", "Reply-To: =?utf-8?B?SsO2cmc=?= <a@x.test>"},
      {"X-A", "Jörg <a@x.test>", "X-A: =?utf-8?B?SsO2cmcgPGFAeC50ZXN0Pg==?="},
      {"X-A", "b\r\nBcc: c", "X-A: b  Bcc: c"},
      {"X-A", "\r\n\r\n", "X-A: "},
      {"X-A", "b\0c"s, "X-A: b c"},
      {std::string(90, 'x'), "b", std::string(90, 'x') + ":\r\n b"},
  };
  for (const auto& [title, value, line] : kCases) {
    Begin();
    EXPECT_TRUE(mail_.AddHeader(title, value)) << title;
    EXPECT_THAT(mail_.MimeBuffer(), HasSubstr(">\r\n" + line + "\r\nContent-Type: text/plain"));
  }
  Begin();
  const std::string before = mail_.MimeBuffer();
  for (const std::string& title :
       {"Subject"s, "TO"s, "from"s, "Date"s, "Message-Id"s, "Content-Type"s, "MIME-VERSION"s,
        "content-transfer-encoding"s, std::string(91, 'x'), ""s, "X A"s, "X:A"s, "X\r\nA"s, "X\0"s,
        "Ä"s, "X\x7F"s}) {
    EXPECT_FALSE(mail_.AddHeader(title, "b")) << title;
    EXPECT_EQ(mail_.Result(), 10022);
    EXPECT_NE(mail_.ResultMessage(), "");
  }
  EXPECT_EQ(mail_.MimeBuffer(), before);
}

TEST_F(Composing, NoValueMakesALineOfItsOwn) {
  Begin();
  const auto lines = [&] {
    const std::string& text = mail_.MimeBuffer();
    return std::count(text.begin(), text.end(), '\n');
  };
  const auto plain = lines();
  for (const std::string& end : {"\r\n"s, "\n"s, "\r"s, "\0"s, "\r\n\r\n"s, "\x0B"s, "\x85"s}) {
    const std::string evil = "a" + end + "Bcc: evil@x.test";
    mail_.NewTextMsg(evil, evil, evil, "Hello");
    mail_.MessageID(evil);
    mail_.CharSet(evil);
    EXPECT_EQ(lines(), plain) << mail_.MimeBuffer();
    EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("\nBcc")));
    EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("\r\r")));
    EXPECT_EQ(mail_.MimeBuffer().find('\0'), std::string::npos);
  }
}

TEST_F(Composing, MessageIds) {
  const std::pair<std::string, std::string> kCases[] = {
      {"", "<ID>"},      {"a", "<a>"},       {"<a@b>", "<a@b>"}, {"a\r\nX: b", "<aX:b>"},
      {" \r\n", "<ID>"}, {"a b>c", "<abc>"}, {"ä", "<ID>"},
  };
  for (const auto& [set, line] : kCases) {
    Begin();
    mail_.MessageID(set);
    EXPECT_EQ(mail_.MessageID(), set);
    EXPECT_THAT(Known(mail_.MimeBuffer()), HasSubstr("\r\nMessage-ID: " + line + "\r\n"));
  }
}

TEST_F(Composing, ANewMessageIdEndsWithTheSendersDomain) {
  const std::pair<std::string, std::string> kCases[] = {
      {"Jane <jane@mail.x.test>", "@mail\\.x\\.test"},
      {"jane@[192.0.2.1]", "@\\[192\\.0\\.2\\.1\\]"},
      {"jane@ä.test", "@[-_.0-9A-Za-z]+"},
      {"jane@x.test@y>", "@[-_.0-9A-Za-z]+"},
      {"", "@[-_.0-9A-Za-z]+"},
  };
  for (const auto& [from, end] : kCases) {
    mail_.NewTextMsg("S", from, "b@x.test", "Hello");
    const std::regex line("\r\nMessage-ID: <[0-9A-Za-z]{26}\\.[0-9]{17}" + end + ">\r\n");
    EXPECT_TRUE(std::regex_search(mail_.MimeBuffer(), line)) << mail_.MimeBuffer();
  }
}

// RFC 5322, section 3.6.
TEST_F(Composing, FieldsThatStandOnce) {
  const std::string kOnce[] = {"Sender", "Reply-To", "Cc", "Bcc", "In-Reply-To", "References"};
  EXPECT_TRUE(mail_.AddHeader("subject", "early"));
  EXPECT_FALSE(mail_.AddHeader("Subject", "late"));
  Begin();
  EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("early")));
  for (const std::string& title : kOnce) {
    EXPECT_TRUE(mail_.AddHeader(title, "first@x.test")) << title;
    EXPECT_FALSE(mail_.AddHeader(ToLower(title), "second@x.test")) << title;
    EXPECT_EQ(mail_.Result(), 10022);
  }
  EXPECT_TRUE(mail_.AddHeader("X-A", "1") && mail_.AddHeader("X-A", "2"));
  EXPECT_THAT(mail_.MimeBuffer(), Not(HasSubstr("second")));
  mail_.NewTextMsg("S", "a@x.test", "b@x.test", "", "c@x.test", "d@x.test");
  EXPECT_FALSE(mail_.AddHeader("CC", "e@x.test"));
  EXPECT_FALSE(mail_.AddHeader("Bcc", "e@x.test"));
}

TEST_F(Composing, DatesOutsideTheCalendarAreTheNewOne) {
  Begin();
  const auto date = [&] { return mail_.MimeBuffer().substr(16, 37); };
  const std::string now = date();
  EXPECT_TRUE(std::regex_match(now, std::regex("Date: [A-Z].*\\+0100"))) << now;
  for (const Date odd : {1e300, -1e300, std::nan(""), 1e7}) {
    mail_.MsgDate(odd);
    EXPECT_TRUE(std::regex_match(date(), std::regex("Date: .*20.*\\+0100"))) << date();
  }
}

// More of them are in tests/mime/.
TEST_F(Composing, TextsThatAreInTheirSetAlready) {
  const std::pair<std::string, std::string> kCases[] = {
      {"iso-8859-1", "=FC"}, {"windows-1252", "=FC"}, {"utf-8", "=C3=BC"}};
  for (const auto& [charSet, body] : kCases) {
    mail_.CharSet(charSet);
    mail_.NewTextMsg("", "", "", "\xFC");
    EXPECT_THAT(mail_.MimeBuffer(), HasSubstr("charset=\"" + charSet + "\"\r\n"));
    EXPECT_TRUE(mail_.MimeBuffer().ends_with("\r\n\r\n" + body + "\r\n")) << mail_.MimeBuffer();
  }
}

TEST_F(Composing, FilesAreNamedAndTyped) {
  WriteFile(folder_ / "own ä-name.tar.GZ", "");
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"", "ownname.tar.GZ", "application/gzip"},
      {"a.html", "a.html", "text/html"},
      {"../a\"\r\nX: b;c.txt", "..aXbc.txt", "text/plain"},
      {"ä", "", "application/octet-stream"},
      {"a.no_such_type", "a.no_such_type", "application/octet-stream"},
      {"a.eml", "a.eml", "application/octet-stream"},  // message/rfc822 would be read as a message
  };
  for (const auto& [given, name, type] : kCases) {
    Begin();
    EXPECT_TRUE(mail_.AddRelatedFileX(folder_ / "own ä-name.tar.GZ", given));
    const std::string& text = mail_.MimeBuffer();
    EXPECT_THAT(text, HasSubstr("Content-Type: " + type + ";\r\n\tname=\"" + name + "\"\r\n"));
    EXPECT_THAT(text, HasSubstr("filename=\"" + name + "\"\r\n" +
                                (name.empty() ? "" : "Content-ID: <" + name + ">\r\n") + "\r\n"));
  }
}

TEST_F(Composing, UnreadableFilesChangeNothing) {
  Begin();
  const std::string before = mail_.MimeBuffer();
  const std::pair<std::string, int> kCases[] = {
      {folder_ / "missing", ENOENT}, {folder_.Path(), EISDIR}, {"", ENOENT}, {"/dev/zero", EINVAL}};
  for (const auto& [path, error] : kCases)
    for (const auto add : {&SendMailCls::AddAttachment, &SendMailCls::AddRelatedFile}) {
      EXPECT_FALSE((mail_.*add)(path));
      EXPECT_EQ(mail_.Result(), 20000 + error);
      const std::string text = std::generic_category().message(error);
      EXPECT_EQ(mail_.ResultMessage(), GetMessageText(4006, {text}));
    }
  EXPECT_EQ(mail_.MimeBuffer(), before);
}

TEST_F(Composing, FinishedMessagesAreTakenAsTheyAre) {
  const std::string message = "Bcc: c@x.test\nSubject: S\n\nHello";
  EXPECT_TRUE(mail_.NewMsgFromMimeBuffer(message, "a@x.test", "b@x.test"));
  EXPECT_FALSE(mail_.AddHeader("X-A", "1"));
  EXPECT_FALSE(mail_.AddAttachmentFromBuffer("a", "a"));
  EXPECT_EQ(mail_.Result(), 10022);
  mail_.CharSet("iso-8859-1");
  mail_.AddBCCToMime(false);
  EXPECT_EQ(mail_.MimeBuffer(), message);

  EXPECT_FALSE(mail_.NewMsgFromMimeBuffer("Hello\r\n\r\nSubject: S\r\n", "a@x.test", "b@x.test"));
  EXPECT_EQ(mail_.Result(), 4003);
  EXPECT_EQ(mail_.ResultMessage(), "Not a mime file.");
  EXPECT_EQ(mail_.MimeBuffer(), message);
}

TEST(HeaderBlock, IsFieldsOnly) {
  for (const char* text : {"A: b\r\n\r\nc", "A: b\nB: c\n\n", "A: b\r\rc", "A: b",
                           "A:", "A \t: b\r\n", "A: b\r\n c\r\n\r\n"})
    EXPECT_TRUE(HasHeaderBlock(text)) << text;
  for (const std::string& text : {""s, "\r\nA: b\r\n"s, " A: b\r\n"s, "A b: c\r\n"s, ": b\r\n"s,
                                  "A: b\r\nc\r\n\r\n"s, "A\0: b\r\n"s, "\xEF\xBB\xBF\x41: b"s})
    EXPECT_FALSE(HasHeaderBlock(text)) << text;
}

TEST(RandomText, HasAllLettersAndDigits) {
  const std::string text = RandomText(5000);
  EXPECT_EQ(text.size(), 5000u);
  EXPECT_EQ(std::set<char>(text.begin(), text.end()).size(), 62u);
  EXPECT_NE(RandomText(26), RandomText(26));
}

}  // namespace
}  // namespace netro
