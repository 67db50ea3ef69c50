// Bodies of requests, read in pieces of any size; and continuing the body of an answer.
#include "SourceKit.h"
#include "web/MultipartBody.h"
#include "web/RangeAnswer.h"

namespace netro {
namespace {

void ExpectBody(ByteSource& source, const std::string& body) {
  for (const std::size_t size : {1u, 2u, 7u, 64u, 100000u}) {
    std::int32_t error = 0;
    EXPECT_EQ(ReadAll(source, size, error), body);
    EXPECT_EQ(error, 0) << source.ErrorText();
    EXPECT_TRUE(source.Rewind());
  }
}

FunctionSource::Reader Giving(const std::string& text, std::shared_ptr<std::size_t> at) {
  return [text, at](std::span<std::uint8_t> room, std::size_t& got) {
    got = std::min({room.size(), text.size() - *at, std::size_t{3}});
    std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(*at), got, room.begin());
    *at += got;
    return 0;
  };
}

struct Bodies : testing::Test {
  TemporaryFolder folder_;
  std::string path_ = folder_ / "a file.txt";
  std::int32_t error_ = 0;
};

TEST_F(Bodies, OfMemoryFilesAndFunctions) {
  const std::string text = std::string("some\0bytes\r\n", 12) + std::string(5000, 'x');
  for (const std::string& body : {text, std::string()}) {
    MemorySource memory(body);
    ExpectBody(memory, body);
    WriteFile(path_, body);
    FileSource file;
    ASSERT_EQ(file.Open(path_), 0);
    EXPECT_EQ(file.Length(), body.size());
    ExpectBody(file, body);
    const auto at = std::make_shared<std::size_t>(0);
    FunctionSource function(Giving(body, at), std::nullopt, [at] { return *at = 0, true; });
    EXPECT_FALSE(function.Length());
    ExpectBody(function, body);
  }
  FunctionSource once(Giving(text, std::make_shared<std::size_t>(0)), std::nullopt);
  EXPECT_TRUE(once.Rewind()) << "nothing was read yet";
  ReadAll(once, 9, error_);
  EXPECT_FALSE(once.Rewind());
}

TEST_F(Bodies, FilesThatAreNoneOrChange) {
  FileSource file;
  EXPECT_EQ(file.Open(folder_ / "none"), 20002);
  EXPECT_NE(file.ErrorText().find("none cannot be read"), std::string::npos);
  EXPECT_EQ(file.Open(folder_.Path()), 20021);
  EXPECT_EQ(file.Open("/dev/null"), 20022);
  EXPECT_EQ(file.Open(std::string("/etc/passwd\0x", 13)), 20022);

  const struct {
    const char* name;
    void (*change)(const std::string&);
  } kCases[] = {
      {"grown", [](const std::string& path) { std::ofstream(path, std::ios::app) << "more"; }},
      {"shrunk", [](const std::string& path) { std::filesystem::resize_file(path, 10); }},
      {"touched",
       [](const std::string& path) {
         std::filesystem::last_write_time(path, std::filesystem::file_time_type());
       }},
  };
  for (const bool whileReading : {false, true})
    for (const auto& [name, change] : kCases) {
      SCOPED_TRACE(name);
      WriteFile(path_, std::string(100, 'x'));
      ASSERT_EQ(file.Open(path_), 0);
      std::uint8_t room[20];
      std::size_t got = 0;
      ASSERT_EQ(whileReading ? file.Read(room, got) : 0, 0);
      change(path_);
      EXPECT_LT(ReadAll(file, 20, error_).size(), 100 - got) << "the last bytes are not given";
      EXPECT_EQ(error_, 20116);
      EXPECT_EQ(file.ErrorText(), "The file " + path_ + " changed while it was being sent.");
      EXPECT_EQ(file.Read(room, got), 20116);
    }
  // Another file in its place.
  ASSERT_EQ(file.Open(path_), 0);
  WriteFile(folder_ / "other", ReadFile(path_));
  std::filesystem::rename(folder_ / "other", path_);
  ReadAll(file, 20, error_);
  EXPECT_EQ(error_, 20116);
}

TEST_F(Bodies, FunctionsThatBreakTheirWord) {
  const auto short_ = std::make_shared<std::size_t>(0);
  FunctionSource tooShort(Giving("12345", short_), 7);
  EXPECT_EQ(ReadAll(tooShort, 9, error_), "12345");
  EXPECT_EQ(error_, 10022);
  EXPECT_EQ(tooShort.ErrorText(), "The function that gives the body ended after 5 bytes of 7.");
  FunctionSource cut(Giving("12345", std::make_shared<std::size_t>(0)), 4);
  EXPECT_EQ(ReadAll(cut, 9, error_), "1234");
  EXPECT_EQ(error_, 0);
  FunctionSource tooMuch([](auto room, std::size_t& got) { return got = room.size() + 1, 0; }, {});
  ReadAll(tooMuch, 9, error_);
  EXPECT_EQ(error_, 10022);
  FunctionSource failing([](auto, std::size_t&) { return 77; }, {});
  ReadAll(failing, 9, error_);
  EXPECT_EQ(error_, 77);
}

TEST_F(Bodies, FormsHaveAPartForEachFieldAndFile) {
  WriteFile(path_, "line\r\n--x");
  MultipartBody form;
  form.AddField("plain", "a value");
  form.AddField("odd \"name\"\r\nX: y", "");
  ASSERT_EQ(form.AddFile("upload", {path_, "", ""}), 0);
  ASSERT_EQ(form.AddFile("named", {path_, "o\"\n\xC3\xB6.bin", "x/y; z=1"}), 0);
  ASSERT_EQ(form.AddSource("made", {"", "noending", ""},
                           std::make_unique<MemorySource>(std::string("made"))),
            0);

  const std::string type = form.ContentType();
  ASSERT_TRUE(type.starts_with("multipart/form-data; boundary="));
  const std::string mark = "--" + type.substr(type.find('=') + 1);
  EXPECT_LE(mark.size(), 72u);
  const std::string head = mark + "\r\nContent-Disposition: form-data; name=";
  const std::string body =
      head + "\"plain\"\r\n\r\na value\r\n" +              //
      head + "\"odd %22name%22%0D%0AX: y\"\r\n\r\n\r\n" +  //
      head + "\"upload\"; filename=\"a file.txt\"\r\nContent-Type: text/plain\r\n\r\n" +
      "line\r\n--x\r\n" +  //
      head + "\"named\"; filename=\"o%22%0A\xC3\xB6.bin\"\r\nContent-Type: x/y; z=1\r\n\r\n" +
      "line\r\n--x\r\n" +  //
      head + "\"made\"; filename=\"noending\"\r\nContent-Type: application/octet-stream\r\n\r\n" +
      "made\r\n" + mark + "--\r\n";
  EXPECT_EQ(form.Length(), body.size());
  ExpectBody(form, body);
  EXPECT_NE(MultipartBody().ContentType(), type);

  MultipartBody empty;
  EXPECT_EQ(empty.Length(), mark.size() + 4);
}

TEST_F(Bodies, FormsFailWithWhatFailsInThem) {
  MultipartBody form;
  EXPECT_EQ(form.AddFile("f", {folder_ / "none", "", ""}), 20002);
  EXPECT_NE(form.ErrorText().find("none cannot be read"), std::string::npos);
  WriteFile(path_, "text");
  EXPECT_EQ(form.AddFile("f", {path_, "", "a/b\r\nX: y"}), 10022);
  const std::optional<std::uint64_t> empty = MultipartBody().Length();
  EXPECT_EQ(form.Length(), empty) << "nothing was added";
  ASSERT_EQ(form.AddFile("f", {path_, "", ""}), 0);
  WriteFile(path_, "longer text");
  const std::string body = ReadAll(form, 50, error_);
  EXPECT_EQ(error_, 20116);
  EXPECT_NE(form.ErrorText().find("changed"), std::string::npos);
  EXPECT_EQ(body.find("text"), body.find("text/plain"));

  MultipartBody open;
  open.AddSource("f", {},
                 std::make_unique<FunctionSource>([](auto, auto&) { return 0; }, std::nullopt));
  EXPECT_FALSE(open.Length());
}

constexpr const char* kModified = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr const char* kLater = "Mon, 07 Nov 1994 08:49:37 GMT";

TEST(RangeAnswer, ReadsContentRange) {
  const struct {
    const char* text;
    const char* read;  // first-last/total
  } kCases[] = {
      {"bytes 0-499/1234", "0-499/1234"},
      {" Bytes 0-0/1 ", "0-0/1"},
      {"bytes 500-500/*", "500-500/*"},
      {"bytes */1234", "*/1234"},
      {"bytes */0", "*/0"},
      {"bytes 0-9007199254740991/9007199254740992", "0-9007199254740991/9007199254740992"},
      {"bytes */*", ""},
      {"bytes 0-499", ""},
      {"items 0-499/1234", ""},
      {"bytes 0-499/499", ""},
      {"bytes 5-4/9", ""},
      {"bytes -4/9", ""},
      {"bytes 5-/9", ""},
      {"bytes 0-4/9x", ""},
      {"bytes 0-4/18446744073709551620", ""},
      {"bytes 0-9007199254740993/*", ""},
      {"bytes", ""},
      {"", ""},
  };
  for (const auto& [text, read] : kCases) {
    std::string result;
    if (const auto range = ReadContentRange(text)) {
      if (range->satisfied)
        result = std::to_string(range->first) + "-" + std::to_string(range->last);
      result += range->satisfied ? "/" : "*/";
      result += range->total ? std::to_string(*range->total) : "*";
    }
    EXPECT_EQ(result, read) << text;
  }
}

TEST(RangeAnswer, OnlyStrongValidatorsGoIntoIfRange) {
  const struct {
    PartialBody partial;
    const char* range;    // null: an ordinary request
    const char* ifRange;  // null: not sent
  } kCases[] = {
      {{5, "\"a\"", "", "", false}, "bytes=5-", "\"a\""},
      {{5, "\"\"", kModified, "", false}, "bytes=5-", "\"\""},
      {{0, "\"a\"", "", "", false}, nullptr, nullptr},
      {{0, "\"a\"", "", "", true}, nullptr, nullptr},
      {{5, "", "", "", false}, nullptr, nullptr},
      {{5, "", "", "", true}, "bytes=5-", nullptr},
      {{5, "\"a\"", "", "", true}, "bytes=5-", "\"a\""},
      {{5, "W/\"a\"", "", "", false}, nullptr, nullptr},
      {{5, "\"a\r\nX: y\"", "", "", false}, nullptr, nullptr},
      {{5, "\"a\"b\"", "", "", false}, nullptr, nullptr},
      {{5, "\"", "", "", false}, nullptr, nullptr},
      {{5, "", kModified, "", false}, nullptr, nullptr},
      {{5, "", kModified, "Sun, 06 Nov 1994 08:50:36 GMT", false}, nullptr, nullptr},
      {{5, "", kModified, "Sun, 06 Nov 1994 08:50:37 GMT", false}, "bytes=5-", kModified},
      {{5, "W/\"a\"", kModified, "Sun, 06 Nov 1994 09:50:37 GMT", false}, nullptr, nullptr},
  };
  for (const auto& [partial, range, ifRange] : kCases) {
    SCOPED_TRACE(partial.entityTag + partial.date);
    const auto fields = ResumeFields(partial);
    ASSERT_EQ(fields.size(), (range != nullptr) + std::size_t{ifRange != nullptr});
    if (range == nullptr) continue;
    EXPECT_EQ(fields[0].first + ":" + fields[0].second, std::string("Range:") + range);
    if (ifRange == nullptr) continue;
    EXPECT_EQ(fields[1].first + ":" + fields[1].second, std::string("If-Range:") + ifRange);
  }
}

TEST(RangeAnswer, DecidesWhatAnAnswerMeans) {
  const PartialBody tagged{5, "\"a\"", kModified, "", false};
  const PartialBody blind{5, "", kModified, "", true};
  const PartialBody none{0, "\"a\"", "", "", false};
  using enum ResumeStep;
  const struct {
    PartialBody partial;
    RangeAnswer answer;
    ResumeStep step;
    std::optional<std::uint64_t> total;
    const char* why;
  } kCases[] = {
      {tagged, {206, "bytes 5-9/10", "", "\"a\"", "", 5}, Continue, 10, ""},
      {tagged, {206, "bytes 5-7/8", "text/plain", "", "", {}, "identity"}, Continue, 8, ""},
      {tagged, {206, "bytes 5-7/*", "text/plain", "", "", {}}, AskAgain, {}, ""},
      {tagged, {206, "bytes 5-7/8", "text/plain", "", "", {}, "gzip"}, AskAgain, {}, ""},
      {blind, {206, "bytes 5-9/10", "", "\"b\"", kModified, 5}, Continue, 10, ""},
      {tagged, {206, "bytes 5-9/10", "", "\"b\"", "", 5}, Refuse, {}, "another state"},
      {blind, {206, "bytes 5-9/10", "", "", kLater, 5}, Refuse, {}, "another state"},
      {tagged, {206, "bytes 0-9/10", "", "\"a\"", "", 10}, Refuse, {}, "from 0 on"},
      {tagged, {206, "bytes 6-9/10", "", "\"a\"", "", 4}, Refuse, {}, "from 6 on"},
      {tagged, {206, "bytes 5-9/10", "", "\"a\"", "", 6}, Refuse, {}, "contradict"},
      {tagged, {206, "", "", "\"a\"", "", 5}, Refuse, {}, "Content-Range"},
      {tagged, {206, "bytes */10", "", "\"a\"", "", 5}, Refuse, {}, "Content-Range"},
      {tagged, {206, "", "Multipart/Byteranges; b=x", "\"a\"", "", 5}, Refuse, {}, "several"},
      {none, {206, "bytes 0-9/10", "", "\"a\"", "", 10}, Refuse, {}, "all was asked"},
      {tagged, {200, "", "", "\"b\"", "", 12}, StartAgain, 12, ""},
      {none, {200, "", "", "", "", {}}, StartAgain, {}, ""},
      {tagged, {416, "bytes */5", "", "", "", 99}, Complete, 5, ""},
      {tagged, {416, "bytes */5", "", "\"b\"", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "bytes */4", "", "", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "bytes */6", "", "", "", 99}, AskAgain, {}, ""},
      {tagged, {416, "", "", "", "", 99}, AskAgain, {}, ""},
      {none, {416, "bytes */0", "", "", "", 0}, Otherwise, {}, ""},
      {tagged, {404, "bytes 5-9/10", "", "", "", 5}, Otherwise, {}, ""},
      {tagged, {304, "", "", "", "", {}}, Otherwise, {}, ""},
  };
  for (const auto& [partial, answer, step, total, why] : kCases) {
    SCOPED_TRACE(std::to_string(answer.status) + " " + answer.contentRange + answer.entityTag);
    const ResumeDecision decision = DecideResume(partial, answer);
    EXPECT_EQ(decision.step, step);
    EXPECT_EQ(decision.total, total);
    EXPECT_NE(decision.error.find(why), std::string::npos) << decision.error;
    EXPECT_EQ(decision.error.empty(), step != Refuse);
  }
}

}  // namespace
}  // namespace netro
