// Messages that are read while they are sent, at every border, and files that change meanwhile.
#include <gmock/gmock.h>
#include <netro/Localization.h>

#include "SendMailKit.h"
#include "SourceKit.h"
#include "mail/Base64Source.h"
#include "mail/FinishedText.h"
#include "mail/SmtpData.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr std::size_t kPieces[] = {1, 2, 3, 5, 77, 78, 79, 4096, 65535, 65536, 200000};

TEST(Base64Source, GivesLinesWhateverRoomThereIs) {
  for (const std::size_t size : {0U, 1U, 56U, 57U, 58U, 114U, 5000U, 58368U, 58369U, 100001U}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * i >> 3);
    std::string lines(Base64LinesSize(size), '\0');
    EncodeBase64Lines(bytes, lines.data());
    for (const std::size_t piece : kPieces) {
      Base64Source source(std::make_unique<InPieces>(bytes, piece));
      EXPECT_EQ(source.Length(), lines.size());
      for (const std::size_t room : {piece, std::size_t{100}, std::size_t{65536}}) {
        std::int32_t error = 0;
        EXPECT_TRUE(ReadAll(source, room, error) == lines) << size << ' ' << piece << ' ' << room;
        EXPECT_TRUE(source.Rewind());
      }
    }
  }
}

/// By the letter of the rules: line by line.
std::string OnTheWire(const std::string& text, DotRule rule, LastLine last) {
  std::string wire;
  std::size_t begin = 0;
  for (std::size_t end; begin <= text.size(); begin = end + 2) {
    end = std::min(text.find("\r\n", begin), text.size());
    if (end == text.size() && begin == end && last == LastLine::IsEnded) break;
    const std::string line = text.substr(begin, end - begin);
    const bool twice = rule == DotRule::AllDots ? line.starts_with('.') : line == ".";
    wire += (twice ? "." : "") + line + "\r\n";
  }
  return wire + ".\r\n";
}

const std::string kDottedTexts[] = {
    "", ".", "\r\n", ".\r\n", "..\r\n.\r\n.x\r\n\r\n.", "a.\r\n.\r", "\r\n.\r\n\r.\r\n\n.\r\n.\n",
    ".\r\n.\r\n.\r\n.", "x\r\n.\r\n.y\r\nä\r\n", "x\r\n.\r\n.\r\n\r\n.\r\n",
    ". \r\n.\n\r\n\n.\r\n\r.\r\n.\r", "\0.\r\n\xFF"s,
    // At and around the end of a block.
    std::string(65531, 'x') + "\r\n.\r\n.y\r\n.\r\n", std::string(65533, 'x') + "\r\n.\r\n",
    std::string(65534, 'x') + "\r\n.\r\n.", std::string(65535, 'x') + "\r\n..\r\n.\r\n",
    std::string(131066, 'x') + "\r\n.\r\n.\r\n.\r\n.\r\n.\r\n"};

TEST(SmtpData, DoublesDotsAtEveryBorder) {
  for (const std::string& text : kDottedTexts)
    for (const DotRule rule : {DotRule::LoneDots, DotRule::AllDots})
      for (const LastLine last : {LastLine::IsOpen, LastLine::IsEnded}) {
        const std::string wire = OnTheWire(text, rule, last);
        for (const std::size_t piece : kPieces) {
          if (text.size() / piece > 10000) continue;
          SmtpData data(std::make_unique<InPieces>(text, piece), rule, last);
          EXPECT_EQ(data.Size(), wire.size());
          EXPECT_EQ(data.Has8Bit(), text.find_first_of("\xC3\xFF") != text.npos);
          std::string sent;
          for (auto block = data.Next(piece); !block.empty(); block = data.Next(piece)) {
            sent += block;
            EXPECT_TRUE(block.size() == piece || sent.size() == wire.size());
          }
          EXPECT_TRUE(sent == wire) << text.size() << ' ' << piece;
          data.Rewind();
          EXPECT_TRUE(data.Next(data.Size()) == wire) << "in one block";
        }
      }
}

TEST(SmtpData, KnowsWhereTheMessageIsNotAscii) {
  const std::tuple<std::string, bool, bool> kCases[] = {
      {"A: b\r\n\r\nc\r\n", false, false},
      {"A: b\r\n\r\nä\r\n", true, false},
      {"A: ä\r\n\r\n" + std::string(100'000, 'x'), true, true},
      {"A: \xE4\r\n\r\nc", true, false},
      {"A: b\r\n\r\n" + std::string(100'000, 'x') + "\xE4", true, false}};
  for (const auto& [text, has8Bit, utf8Header] : kCases) {
    const SmtpData data(text, DotRule::AllDots);
    EXPECT_EQ(data.Has8Bit(), has8Bit);
    EXPECT_EQ(data.Facts().utf8Header, utf8Header);
  }
}

TEST(FinishedText, IsTheSameWhereverItIsCut) {
  const struct {
    std::string text, sent;
    bool keep = false;
  } kCases[] = {
      {"A: b\r\nBcc: c\r\n d\r\n\te\nF: g\rbCC \t : h\r\nResent-Bcc\t:i\nBccx: j\n k\r\rBcc: body\n"
       "l\r\n\r\n\n\rm",
       "A: b\r\nF: g\r\nBccx: j\r\n k\r\n\r\nBcc: body\r\nl\r\n\r\n\r\n\r\nm"},
      {"bCC : c\r\nResent-Bcc:\r\n c\r\nA: b\r\n", "A: b"},
      {"Bccx: c\r\nX-Bcc: d\r\n\r\n", "Bccx: c\r\nX-Bcc: d\r\n"},
      {"A: b\nBcc: c\n\nd\n.\ne\rf\r\r\n", "A: b\r\n\r\nd\r\n.\r\ne\r\nf\r\n"},
      {"A: b\rBcc: c\r\n\r\nd", "A: b\r\n\r\nd"},
      {"Bcc: c\r\n\r\nd", "Bcc: c\r\n\r\nd", true},
      {"Bcc: c\n\nd\n", "Bcc: c\r\n\r\nd", true},
  };
  for (const auto& [text, sent, keep] : kCases)
    for (std::size_t piece = 1; piece <= text.size(); ++piece) {
      FinishedText source(std::make_unique<InPieces>(text, piece), keep);
      for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ReadAll(source), sent + "\r\n") << piece;
        EXPECT_TRUE(source.Rewind());
      }
    }
  const std::string blanks(5000, ' ');  // who hides a field behind them must not have it sent
  FinishedText source(std::make_unique<InPieces>("Bcc" + blanks + ": x\r\nA: b\r\n", 999), false);
  EXPECT_EQ(ReadAll(source), "A: b\r\n");
}

struct MessageFiles : SendMailTest {
  MessageFiles() {
    SendTo(server_);
    Restore();
  }

  void Restore() {
    std::filesystem::remove_all(path_);
    WriteFile(path_, "Subject: S\nBcc: secret@xy.test\n\n" + std::string(300'000, 'x') + "\n");
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_ / "a file";
  SmtpServer server_;
};

TEST_F(MessageFiles, AllWaysGiveTheSameBytes) {
  const std::function<void()> kMessages[] = {
      [&] { Compose("b@xy.test"); },
      [&] {
        Compose("b@xy.test");
        mail_->AddAttachment(path_);
        mail_->AddAttachmentFromBuffer("", "empty");
        mail_->AddRelatedFileFromBuffer("x\r\n.\r\n", "b");
      },
      [&] { mail_->NewMsgFromMimeFile(path_, "a@xy.test", "b@xy.test"); },
      [&] { mail_->NewMsgFromMimeBuffer(ReadFile(path_), "a@xy.test", "b@xy.test"); }};
  for (const auto& compose : kMessages) {
    compose();
    EXPECT_EQ(mail_->Result(), 0) << mail_->ResultMessage();
    EXPECT_TRUE(mail_->SaveMessage(folder_ / "saved"));
    const std::string saved = ReadFile(folder_ / "saved");
    EXPECT_TRUE(HasMode(folder_ / "saved", 0600));
    std::string written;
    EXPECT_TRUE(mail_->WriteMessage([&](auto block) { return written += block, true; }));
    EXPECT_TRUE(written == saved);
    EXPECT_TRUE(mail_->SendMail()) << mail_->ResultMessage();
    EXPECT_TRUE(server_.Messages().back() == saved + ".\r\n");
    EXPECT_EQ(events_.progress.back().second, static_cast<std::int32_t>(saved.size() + 3));
    EXPECT_THAT(saved, Not(HasSubstr("secret")));
    const bool finished = saved.starts_with("Subject");
    EXPECT_EQ(mail_->MessageSize(), mail_->MimeBuffer().size());
    EXPECT_TRUE(mail_->MimeBuffer() == (finished ? ReadFile(path_) : saved));
  }
}

struct FileChange {
  const char* name;
  std::int32_t result;
  bool inPlace;  // who reads the file meets it
  std::function<void(const std::string& path)> change;
};

const FileChange kChanges[] = {
    {"shrinks", 20116, true, [](const auto& path) { std::filesystem::resize_file(path, 10); }},
    {"vanishes", 20002, false, [](const auto& path) { std::filesystem::remove(path); }},
    {"is replaced", 20116, false,
     [](const auto& path) {
       WriteFile(path + "2", ReadFile(path));
       std::filesystem::rename(path + "2", path);
     }},
};

// A message that was cut must not be taken for a whole one.
TEST_F(MessageFiles, ThatChangeBetweenAddingAndSending) {
  for (const bool finished : {false, true})
    for (const FileChange& c : kChanges) {
      SCOPED_TRACE(c.name);
      const auto expectFailure = [&] {
        EXPECT_EQ(mail_->Result(), c.result);
        EXPECT_THAT(mail_->ResultMessage(), HasSubstr(path_));
      };
      Restore();
      if (finished) {
        EXPECT_TRUE(mail_->NewMsgFromMimeFile(path_, "a@xy.test", "b@xy.test"));
      } else {
        Compose("b@xy.test");
        EXPECT_TRUE(mail_->AddAttachment(path_));
      }
      c.change(path_);
      EXPECT_FALSE(mail_->SendMail());
      expectFailure();
      ASSERT_EQ(mail_->Outcomes().size(), 1u);
      ExpectOutcome(0, "b@xy.test", SMTP_STEP_SENDDATA, c.result, 3017);
      WriteFile(folder_ / "saved", "old");
      EXPECT_FALSE(mail_->SaveMessage(folder_ / "saved"));
      expectFailure();
      EXPECT_EQ(ReadFile(folder_ / "saved"), "old");
      EXPECT_FALSE(mail_->WriteMessage([](std::string_view) { return true; }));
      expectFailure();
      EXPECT_EQ(mail_->MimeBuffer(), "");
    }
  EXPECT_THAT(server_.Messages(), testing::IsEmpty());
  EXPECT_EQ(server_.Connections(), std::size(kChanges)) << "finished ones are measured before";
}

TEST_F(MessageFiles, ThatChangeWhileTheyAreSent) {
  for (const FileChange& c : kChanges) {
    SCOPED_TRACE(c.name);
    Restore();
    Compose("b@xy.test");
    EXPECT_TRUE(mail_->AddAttachment(path_));
    bool changed = false;
    events_.onData = [&] {
      if (!std::exchange(changed, true)) c.change(path_);
    };
    // The one that is being read is still there when its name is not.
    const std::size_t before = server_.Messages().size();
    EXPECT_EQ(mail_->SendMail(), !c.inPlace);
    EXPECT_EQ(changed, true);
    EXPECT_FALSE(mail_->SendMail());
    EXPECT_EQ(server_.Messages().size() - before, c.inPlace ? 0u : 1u);
    EXPECT_THAT(mail_->Outcomes().back().ResultMessage, HasSubstr(path_));
  }
}

TEST_F(MessageFiles, FinishedOnesThatAreNone) {
  const std::pair<std::string, std::int32_t> kCases[] = {
      {"A: b\n\n" + std::string(100'000, 'x'), 0},
      {"A: b\r\n" + std::string(100'000, '\r'), 0},
      {std::string(100'000, 'x'), 4003},
      {"", 4003},
      {"Hello\n\nA: b\n", 4003},
  };
  for (const auto& [text, result] : kCases) {
    WriteFile(path_, text);
    EXPECT_EQ(mail_->NewMsgFromMimeFile(path_, "a@xy.test", "b@xy.test"), result == 0);
    EXPECT_EQ(mail_->Result(), result) << text.substr(0, 20);
  }
  EXPECT_FALSE(mail_->NewMsgFromMimeFile(folder_ / "none", "a@xy.test", "b@xy.test"));
  EXPECT_EQ(mail_->Result(), 20002);
}

TEST_F(MessageFiles, WritingThatFails) {
  EXPECT_FALSE(mail_->SaveMessage(folder_ / "saved"));
  EXPECT_EQ(mail_->Result(), 4003);
  Compose("b@xy.test");
  const std::pair<std::string, std::int32_t> kCases[] = {
      {folder_.Path(), 20021}, {folder_ / "none/saved", 20002}, {"x\0y"s, 20022}};
  for (const auto& [path, result] : kCases) {
    EXPECT_FALSE(mail_->SaveMessage(path));
    EXPECT_EQ(mail_->Result(), result);
    EXPECT_THAT(mail_->ResultMessage(), HasSubstr("cannot be written"));
  }
  EXPECT_FALSE(mail_->WriteMessage([](std::string_view) { return false; }));
  EXPECT_EQ(mail_->Result(), 9999);
  EXPECT_FALSE(mail_->WriteMessage([&](std::string_view) { return mail_.reset(), true; }));
}

}  // namespace
}  // namespace netro
