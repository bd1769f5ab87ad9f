#include "channel/framing.h"

#include "platform/clock.h"
#include "support/captured_output.h"
#include "support/test_pipe.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Refused for its length alone: not a byte of it is looked at.
const std::string_view tooLong("x", 0x80000000);  // NOLINT(bugprone-string-constructor)

// `wanted`: the value, or a beginning of the error text
const std::tuple<const char*, std::string, bool, std::string> frameCases[] = {
    {"length 0 is an empty object", frameHeader(0), true, "{}"},
    {"length 0, then another", frameHeader(0) + frameOf("[1]"), true, "{}"},
    {"an object", frameOf(R"({"a":"b"})"), true, R"({"a":"b"})"},
    {"a lone surrogate half", frameOf(R"("\ud83d")"), true, "\"\xEF\xBF\xBD\""},
    {"nothing", "", false, "unexpected EOF"},
    {"closed inside the header", "\x05\0\0"s, false, "unexpected EOF"},
    {"closed behind the header", frameHeader(5), false, "unexpected EOF"},
    {"closed inside the body", frameHeader(5) + "{\"a", false, "unexpected EOF"},
    {"no JSON", frameOf("abcd"), false, "[json.exception.parse_error.101]"},
    {"nested too deeply", frameOf(std::string(1001, '[') + std::string(1001, ']')), false,
     "json nested too deeply"},
    {"one byte over the limit", frameHeader(maxInboundBody + 1), false, "frame too large"},
    {"a length that would be negative", frameHeader(0x80000000), false, "frame too large"},
    {"the longest length", frameHeader(0xFFFFFFFF) + "{}", false, "frame too large"},
};

TEST(ReadFrame, AnswersAlikeHoweverTheBytesArrive) {
  for (const auto& [name, bytes, ok, wanted] : frameCases) {
    for (const std::size_t chunk : {1U, 3U, 64U}) {
      SCOPED_TRACE(testing::Message() << name << ", " << chunk << " bytes at a time");
      FedPipe in(bytes, chunk);
      json frame = "before";
      std::string error = "no error";
      EXPECT_EQ(FrameReader(in.id()).next(frame, error), ok);
      if (ok) {
        EXPECT_EQ(frame.dump(), wanted);
        EXPECT_EQ(error, "no error");
      } else {
        EXPECT_EQ(error.substr(0, wanted.size()), wanted);
        EXPECT_EQ(frame, "before");
      }
    }
  }
}

TEST(ReadFrame, TakesTheLargestBody) {
  EXPECT_EQ(maxInboundBody, 16'777'216U);
  const std::string body = "\"" + std::string(maxInboundBody - 2, 'x') + "\"";
  FedPipe in(frameOf(body), 1 << 20);
  json frame;
  std::string error;
  ASSERT_TRUE(FrameReader(in.id()).next(frame, error)) << error;
  EXPECT_EQ(frame.get_ref<const std::string&>().size(), maxInboundBody - 2);
}

TEST(ReadFrame, StaysInStepAcrossFramesAndParseErrors) {
  FedPipe in(frameOf("[1]") + frameHeader(0) + frameOf("abcd") + frameOf("[2]"), 3);
  json frame;
  std::string error;
  std::string seen;
  FrameReader reader(in.id());
  for (int i = 0; i < 4; ++i) seen += reader.next(frame, error) ? frame.dump() : "-";
  EXPECT_EQ(seen, "[1]{}-[2]");
  EXPECT_FALSE(reader.next(frame, error));
  EXPECT_EQ(error, "unexpected EOF");
}

TEST(ReadFrame, ReportsAFailedRead) {
  json frame;
  std::string error;
  const TestPipe pipe;
  EXPECT_FALSE(FrameReader(pipe.writeEnd.get()).next(frame, error));  // cannot be read from
  EXPECT_EQ(error, "ReadFile failed");
}

TEST(WriteFrame, RefusesABodyOf2GiBAndFailsWithoutReader) {
  TestPipe pipe;
  const StreamId out = pipe.writeEnd.get();
  EXPECT_FALSE(writeFrame(out, tooLong));
  pipe.readEnd.reset();
  EXPECT_TRUE(writeAll(out, "", 0));
  EXPECT_FALSE(writeAll(out, "a", 1));
  EXPECT_FALSE(writeFrame(out, "{}"));
}

TEST(WriteMessage, SendsCompactTextAndNothingThatIsNotUtf8) {
  CapturedOutput output;
  EXPECT_TRUE(writeMessage({{"b", 1}, {"a", "\xC3\xA9"}}));
  EXPECT_THROW((void)writeMessage({{"a", "\xFF"}}), json::type_error);
  EXPECT_TRUE(writeMessageText(""));
  EXPECT_EQ(output.finish(), (std::vector<std::string>{"{\"a\":\"\xC3\xA9\",\"b\":1}", ""}));
}

TEST(WriteMessage, NeverInterleaves) {
  constexpr int threadCount = 4;
  constexpr int each = 200;
  CapturedOutput output;
  runThreads(threadCount, [](int t) {
    for (int i = 0; i < each; ++i) {
      const auto size = static_cast<std::size_t>(i % 7 == 0 ? 100'000 : 10);
      EXPECT_TRUE(writeMessage({{"t", t}, {"i", i}, {"fill", std::string(size, 'x')}}));
    }
  });
  std::vector<int> next(threadCount, 0);
  for (const std::string& frame : output.finish()) {
    const json message = json::parse(frame);
    const auto t = message.at("t").get<std::size_t>();
    EXPECT_EQ(message.at("i"), next.at(t)++);  // in order within a thread
  }
  EXPECT_EQ(next, std::vector<int>(threadCount, each));
}

TEST(WriteMessage, WritesNothingMoreAfterAFailedWrite) {
  CapturedOutput gone(CapturedOutput::Reader::stalls);
  gone.closeReader();
  EXPECT_FALSE(writeMessageText("{}"));
  EXPECT_TRUE(gone.finish().empty());
  // Half a frame may be out: even a stream that works again must get nothing.
  CapturedOutput again;
  EXPECT_FALSE(writeMessageText("{}"));
  EXPECT_TRUE(again.finish().empty());
}

TEST(OutboundLimit, IsThatOfTheProtocolUnlessABrowserStartedTheHost) {
  CapturedOutput output;
  EXPECT_EQ(outboundLimit(), 0x7FFFFFFFU);
  EXPECT_FALSE(writeMessageText(tooLong));
  EXPECT_TRUE(writeMessageText(std::string(1'048'577, 'x')));
  limitFramesForBrowser();
  EXPECT_EQ(outboundLimit(), 1'048'576U);
  EXPECT_TRUE(writeMessageText(std::string(1'048'576, 'x')));
  EXPECT_FALSE(writeMessageText(std::string(1'048'577, 'x')));
  EXPECT_TRUE(writeMessageText("{}"));  // what was refused was not written, so the stream is fine
  EXPECT_EQ(output.finish().size(), 3U);
}

TEST(HoldFrame, HoldsNothingWhileItIsBeingWritten) {
  TestPipe pipe;
  const StreamId before = replaceStandardOutput(pipe.writeEnd.get());
  bool wasSeen = false;
  {
    TestThread writer([] {
      for (int i = 0; i < 3; ++i) {  // more than a pipe takes
        (void)holdFrame(std::string(60'000, 'x'));
        (void)writeHeldFrames();
      }
    });
    const auto isWriting = [] { return outputIsBusy() && !hasHeldFrames(); };
    for (int i = 0; i < 3000 && !isWriting(); ++i) sleepMs(10);
    wasSeen = isWriting();
    pipe.readEnd.reset();
  }
  restoreStandardOutput(before);
  EXPECT_TRUE(wasSeen);  // a failure is reported on standard output
}

}  // namespace
}  // namespace media::win::chrome_inspect
