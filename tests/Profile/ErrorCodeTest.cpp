#include <zrn/Profile/ErrorCode.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

namespace zrn {
namespace {

class ErrorCodeTest : public ::testing::Test {
protected:
  void TearDown() override {
    ErrorCode::Clear();
    SetErrorMessage(err_dont_support, "err_dont_support: %s");
  }
};

TEST_F(ErrorCodeTest, LibraryCodesFormatTheirArguments) {
  ErrorCode::Report(err_null_pointer, "pDevice");
  EXPECT_EQ(GetError(), err_null_pointer);
  EXPECT_STREQ(GetErrorMessage(), "err_null_pointer:pDevice");

  ErrorCode::Report(err_bad_argument, 3);
  EXPECT_STREQ(GetErrorMessage(), "err_bad_argument: parameter 3");

  ErrorCode::Report(err_failed, std::string("disk full"));
  EXPECT_STREQ(zrn_err(), "err_failed: disk full");
  // Formatting does not consume the stream: the same text comes again.
  EXPECT_STREQ(GetErrorMessage(), "err_failed: disk full");
  // Reading does not clear the code.
  EXPECT_EQ(GetError(), err_failed);
}

TEST_F(ErrorCodeTest, UnknownCodesHaveAFixedText) {
  EXPECT_STREQ(GetErrorMessage(5), "Can't understand error code");
  EXPECT_STREQ(GetErrorMessage(-1), "Can't understand error code");
  EXPECT_EQ(GetError(), err_ok);
}

TEST_F(ErrorCodeTest, HostsRegisterAndReplaceMessages) {
  SetErrorMessage(err_dont_support, "not today");
  EXPECT_STREQ(GetErrorMessage(err_dont_support), "not today");

  SetErrorMessage(100, "host error %d in %s");
  ErrorCode::Report(100, 7, "solver");
  EXPECT_STREQ(GetErrorMessage(), "host error 7 in solver");

  // Set keeps the arguments already in the stream.
  GetErrorParamStream().Clear();
  GetErrorParamStream() << 8 << "placed by hand";
  ErrorCode::Set(100);
  EXPECT_STREQ(GetErrorMessage(), "host error 8 in placed by hand");
}

TEST_F(ErrorCodeTest, CodesAndStreamsArePerThread) {
  ErrorCode::Report(err_failed, "main thread");
  std::string otherMessage;
  std::thread([&] {
    EXPECT_EQ(GetError(), err_ok);
    EXPECT_STREQ(zrn_err(), "err_ok");
    EXPECT_EQ(GetErrorParamStream().ArgumentCount(), 0u);
    ErrorCode::Report(err_null_pointer, "other thread");
    otherMessage = GetErrorMessage();
  }).join();
  EXPECT_EQ(otherMessage, "err_null_pointer:other thread");
  EXPECT_EQ(GetError(), err_failed);
  EXPECT_STREQ(GetErrorMessage(), "err_failed: main thread");
}

TEST_F(ErrorCodeTest, ReleasedStreamIsReplacedByAnEmptyOne) {
  std::thread([] {
    ReleaseErrorParamStream(); // never used: nothing happens
    GetErrorParamStream() << 1 << "two";
    ReleaseErrorParamStream();
    ValistStream& fresh = GetErrorParamStream();
    EXPECT_EQ(fresh.ArgumentCount(), 0u);
    EXPECT_TRUE(fresh.GetStringPool().empty());
    EXPECT_FALSE(fresh.IsResolved());
  }).join();
}

TEST_F(ErrorCodeTest, ReportModeSwapsAndReturnsThePrevious) {
  const ErrorReportMode original = SetErrorReportMode(ERROR_REPORT_BREAK);
  EXPECT_EQ(SetErrorReportMode(ERROR_REPORT_SILENT), ERROR_REPORT_BREAK);
  EXPECT_EQ(SetErrorReportMode(original), ERROR_REPORT_SILENT);
}

TEST_F(ErrorCodeTest, BreakModeTrapsOnNonZeroCodesOnly) {
  const ErrorReportMode original = SetErrorReportMode(ERROR_REPORT_BREAK);
  EXPECT_EXIT(
      {
        ErrorCode::Set(err_ok);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(ErrorCode::Set(err_failed), ::testing::KilledBySignal(SIGTRAP), "");
  // Values other than 0 and 1 behave as silent.
  SetErrorReportMode(static_cast<ErrorReportMode>(7));
  ErrorCode::Set(err_failed);
  EXPECT_EQ(GetError(), err_failed);
  SetErrorReportMode(original);
}

} // namespace
} // namespace zrn
