// The system's content codings: blocks cut anywhere, corrupt bytes, bodies far larger than came.
#include <netro/HTTPCls.h>
#include <netro/SystemCodings.h>
#include <zlib.h>

#ifdef NETRO_HAS_BROTLI
#include <brotli/encode.h>
#endif
#ifdef NETRO_HAS_ZSTD
#include <zstd.h>
#endif

#include "TestKit.h"
#include "web/ContentChain.h"

namespace netro {
namespace {

std::string Deflate(const std::string& text, int windowBits) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, windowBits, 9, Z_DEFAULT_STRATEGY), Z_OK);
  std::string packed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

std::string Gzip(const std::string& text) { return Deflate(text, 31); }
std::string Wrapped(const std::string& text) { return Deflate(text, 15); }
std::string Raw(const std::string& text) { return Deflate(text, -15); }

#ifdef NETRO_HAS_BROTLI
std::string Brotli(const std::string& text) {
  std::size_t size = BrotliEncoderMaxCompressedSize(text.size());
  std::string packed(size, '\0');
  EXPECT_TRUE(BrotliEncoderCompress(5, 22, BROTLI_MODE_GENERIC, text.size(),
                                    reinterpret_cast<const std::uint8_t*>(text.data()), &size,
                                    reinterpret_cast<std::uint8_t*>(packed.data())));
  packed.resize(size);
  return packed;
}
#endif

#ifdef NETRO_HAS_ZSTD
std::string Zstd(const std::string& text) {
  ZSTD_CCtx* const context = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
  std::string packed(ZSTD_compressBound(text.size()), '\0');
  packed.resize(ZSTD_compress2(context, packed.data(), packed.size(), text.data(), text.size()));
  ZSTD_freeCCtx(context);
  return packed;
}
#endif

struct Case {
  const char* coding;
  std::string (*pack)(const std::string&);
  bool members;    // may follow one another
  bool checksums;  // every changed byte is noticed
};

const Case kCases[] = {
    {"gzip", Gzip, true, true},        {"X-GZip", Gzip, true, true},
    {"deflate", Wrapped, false, true}, {"deflate", Raw, false, false},
#ifdef NETRO_HAS_BROTLI
    {"br", Brotli, false, false},
#endif
#ifdef NETRO_HAS_ZSTD
    {"zstd", Zstd, true, true},
#endif
};

std::span<const std::uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

struct Unpacked {
  std::string text;
  std::int32_t error = 0;
  std::int32_t end = 0;
  std::string errorText;
  std::size_t longest = 0;
};

/// Feeds the blocks that `packed` falls into when it is cut at each multiple of `step` and at
/// `cut`.
Unpacked Unpack(const std::string& coding, const std::string& packed, std::size_t cut,
                std::size_t step = std::string::npos, std::uint64_t most = 0) {
  Unpacked result;
  ContentChain chain;
  result.error = chain.Open(*SystemCodings(), coding, most);
  const ContentSink sink = [&](std::span<const std::uint8_t> piece) {
    EXPECT_FALSE(piece.empty());
    result.longest = std::max(result.longest, piece.size());
    result.text.append(piece.begin(), piece.end());
    return 0;
  };
  for (std::size_t at = 0; at < packed.size() && result.error == 0;) {
    std::size_t end = std::min(packed.size(), step == std::string::npos ? step : at + step);
    if (at < cut) end = std::min(end, cut);
    result.error = chain.Decode(BytesOf(packed).subspan(at, end - at), sink);
    at = end;
  }
  result.end = chain.Finish();
  result.errorText = chain.ErrorText();
  return result;
}

std::string Sample() {
  std::string text;
  for (int i = 0; i < 60; ++i) text += "line " + std::to_string(i * i) + "\n";
  return text;
}

TEST(SystemCodings, UnpackWhereverBlocksAreCut) {
  const std::string text = Sample();
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.coding);
    const bool offered = SystemCodings()->Codings().find(test.coding) != std::string::npos;
    EXPECT_EQ(offered, std::string(test.coding) != "X-GZip");
    for (const std::string& body : {text, std::string(), std::string("x")}) {
      const std::string packed = test.pack(body);
      for (std::size_t cut = 0; cut <= packed.size(); ++cut) {
        const Unpacked whole = Unpack(test.coding, packed, cut);
        ASSERT_EQ(whole.text, body) << cut;
        ASSERT_EQ(whole.error + whole.end, 0) << whole.errorText;
        const Unpacked part = Unpack(test.coding, packed.substr(0, cut), cut);
        ASSERT_EQ(part.end, cut == 0 || cut == packed.size() ? 0 : codingTruncated) << cut;
      }
      EXPECT_EQ(Unpack(test.coding, packed, 0, 1).text, body);
    }
  }
}

TEST(SystemCodings, WhatFollowsTheEnd) {
  const std::string text = Sample();
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.coding);
    const std::string packed = test.pack(text);
    for (std::size_t step : {std::size_t{1}, packed.size(), std::string::npos}) {
      const Unpacked twice = Unpack(test.coding, packed + packed, 0, step);
      EXPECT_EQ(twice.text, test.members ? text + text : text);
      EXPECT_EQ(twice.end, test.members ? 0 : codingTrailing);
      const Unpacked garbage = Unpack(test.coding, packed + "garbage", 0, step);
      EXPECT_EQ(garbage.text, text);
      EXPECT_EQ(garbage.end, codingTrailing);
      EXPECT_NE(garbage.errorText.find("followed"), std::string::npos) << garbage.errorText;
    }
  }
}

TEST(SystemCodings, CorruptBytesAreNoticedAndTheFailureStays) {
  const std::string text = Sample();
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.coding);
    const std::string packed = test.pack(text);
    int noticed = 0;
    for (std::size_t at = 0; at < packed.size(); ++at) {
      std::string bad = packed;
      bad[at] = static_cast<char>(bad[at] ^ 0x55);
      const Unpacked result = Unpack(test.coding, bad, 0);
      EXPECT_TRUE(result.error == 0 || result.error == result.end);
      EXPECT_EQ(result.end != 0, !result.errorText.empty());
      noticed += result.end != 0;
      // What a checksum does not cover are names and times in gzip's header.
      EXPECT_TRUE(!test.checksums || at < 10 || result.end != 0 || result.text == text) << at;
    }
    EXPECT_GT(noticed, 0);
  }
}

TEST(SystemCodings, ABombComesInPiecesAndEndsAtTheLimit) {
  const std::string zeros(8 << 20, '\0');
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.coding);
    const std::string packed = test.pack(zeros);
    ASSERT_LT(packed.size(), 20000u);
    const Unpacked all = Unpack(test.coding, packed, 0);
    EXPECT_TRUE(all.text == zeros);
    EXPECT_LE(all.longest, ContentDecoder::kLongestPiece);
    const Unpacked limited = Unpack(test.coding, packed, 0, std::string::npos, 1'000'000);
    EXPECT_EQ(limited.error, 10040);
    EXPECT_LE(limited.text.size(), 1'000'000u);
    EXPECT_NE(limited.errorText.find("1000000"), std::string::npos);
    EXPECT_EQ(Unpack(test.coding, packed, 0, std::string::npos, zeros.size()).end, 0);
  }
}

TEST(SystemCodings, ChainsComeOffInReverseOrder) {
  const std::string text = Sample();
  const std::string chain = Wrapped(Gzip(text));
  for (const char* coding : {"gzip, deflate", " GZIP ,, identity,deflate "}) {
    for (std::size_t cut = 0; cut <= chain.size(); ++cut)
      ASSERT_EQ(Unpack(coding, chain, cut).text, text);
  }
#ifdef NETRO_HAS_BROTLI
  EXPECT_EQ(Unpack("gzip, br", Brotli(Gzip(text)), 0, 1).text, text);
  EXPECT_EQ(Unpack("gzip, br", Brotli(Gzip(text).substr(0, 30)), 0).end, codingTruncated);
#endif
  EXPECT_EQ(Unpack("deflate, gzip", chain, 0).error, codingCorrupt);
  // A bomb inside a bomb ends as early as the outer one.
  const std::string nested = Gzip(Gzip(std::string(32 << 20, '\0')));
  EXPECT_EQ(Unpack("gzip, gzip", nested, 0, std::string::npos, 10'000).error, 10040);

  EXPECT_EQ(Unpack("identity", "as it is", 0).text, "as it is");
  EXPECT_EQ(Unpack("gzip, f\x1Boo", "", 0).errorText, "The body has the unknown coding \"f?oo\".");
  EXPECT_EQ(Unpack("gzip,gzip,gzip,gzip,gzip,gzip", "", 0).error, codingUnknown);
}

TEST(SystemCodings, TheSinkEndsTheDecoding) {
  const std::string packed = Gzip(Sample());
  const auto decoder = SystemCodings()->MakeDecoder("gzip");
  const ContentSink full = [](std::span<const std::uint8_t>) { return 20028; };
  EXPECT_EQ(decoder->Decode(BytesOf(packed), full), 20028);
  EXPECT_EQ(decoder->Decode(BytesOf(packed), full), 20028);
  EXPECT_EQ(decoder->Finish(), 20028);

  const auto thrown = SystemCodings()->MakeDecoder("gzip");
  const ContentSink throws = [](std::span<const std::uint8_t>) -> std::int32_t {
    throw std::runtime_error("mine");
  };
  EXPECT_THROW(thrown->Decode(BytesOf(packed), throws), std::runtime_error);
  EXPECT_EQ(thrown->Finish(), codingStopped);
}

TEST(SystemCodings, HTTPClsUnpacksWithThem) {
  using testkit::HttpServer;
  const std::string text(300'000, 'x');
  const auto packed = [](const std::string& coding, const std::string& body) {
    return HttpServer::Answer("200 OK\r\nContent-Type: text/x\r\nContent-Encoding: " + coding +
                                  "\r\nContent-Length: " + std::to_string(body.size()),
                              body);
  };
  HttpServer server;
  server.On("/good", [&](const auto&) { return packed("gzip", Gzip(text)); });
  server.On("/cut", [&](const auto&) { return packed("gzip", Gzip(text).substr(0, 100)); });
  server.On("/odd", [&](const auto&) { return packed("rot13", "uv"); });
  const TemporaryFolder folder;
  const std::tuple<const char*, bool, std::uint64_t, std::int32_t> kWays[] = {
      {"/good", false, 0, 0},
      {"/good", true, 0, 0},
      {"/good", false, 1000, 10040},
      {"/good", true, 1000, 10040},
      {"/cut", false, 0, codingTruncated},
      {"/odd", true, 0, codingUnknown}};
  for (const auto& [path, toFile, most, error] : kWays) {
    SCOPED_TRACE(std::string(path) + std::to_string(most));
    HTTPCls http;
    http.URL(server.Url(path));
    http.ContentCoding(SystemCodings());
    http.SaveAsFile(toFile);
    http.Filename(toFile ? folder / "file" : "");
    http.MaxBodyLen(most);
    bool timeout = false;
    const std::string answer = http.HTTPQuery(timeout);
    EXPECT_EQ(http.LastErr(), error) << answer;
    EXPECT_FALSE(answer.empty());
    EXPECT_EQ(server.Requests().back().Field("Accept-Encoding"), SystemCodings()->Codings());
    EXPECT_TRUE(SystemCodings()->Codings().starts_with("gzip, deflate"));
    const std::string body = toFile ? ReadFile(folder / "file") : answer;
    EXPECT_EQ(body.ends_with(text), error == 0);
    if (error == 0) {
      EXPECT_EQ(http.BodyLen(), 300'000);
    }
    EXPECT_EQ(std::filesystem::exists(folder / "file"), toFile && error == 0);
    std::filesystem::remove(folder / "file");
  }
}

#ifdef NETRO_HAS_ZSTD
TEST(SystemCodings, NoFrameOfZstdHasAnotherSizeThanItSaysOrAnOlderFormat) {
  using namespace std::string_literals;
  for (const std::string& bad :
       {"\x28\xB5\x2F\xFD\x60\x00\x07\x01\x00\x00"s, "\x28\xB5\x2F\xFD\x20\x00\x03\x00\x00\x08"s,
        "\x26\xB5\x2F\xFD\x00\xFF\xFF\xEB\x00\x00"s,
        // A bad header, inside which a frame of an older format begins.
        "\x28\xB5\x2F\xFD\x2C\x25\xB5\x2F\xFD\x08\x00\x00\x00"s}) {
    for (std::size_t cut = 0; cut < bad.size(); ++cut) {
      EXPECT_EQ(Unpack("zstd", bad, cut).end, codingCorrupt) << cut;
    }
    EXPECT_EQ(Unpack("zstd", bad, 0, 1).end, codingCorrupt);
  }
}

TEST(SystemCodings, NoFrameOfZstdAsksForALargeWindow) {
  std::string text;
  for (long i = 0; text.size() < (9 << 20); ++i) text += std::to_string(i * 7919);
  ZSTD_CCtx* const context = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, 24);
  std::string packed(ZSTD_compressBound(text.size()), '\0');
  ZSTD_outBuffer out{packed.data(), packed.size(), 0};
  ZSTD_inBuffer in{text.data(), text.size(), 0};
  ZSTD_compressStream2(context, &out, &in, ZSTD_e_continue);  // so that the size is not told
  EXPECT_EQ(ZSTD_compressStream2(context, &out, &in, ZSTD_e_end), 0u);
  ZSTD_freeCCtx(context);
  packed.resize(out.pos);
  EXPECT_EQ(Unpack("zstd", packed, 0).error, codingCorrupt);
}
#endif

}  // namespace
}  // namespace netro
