#include <zrn/System/Debugger.h>
#include <zrn/System/MessageBox.h>

#include "Support/DebugOutputCapture.h"

#include <gtest/gtest.h>

namespace zrn {
namespace {

TEST(DebugOutput, HandlerReceivesUtf8AndIsRestored) {
  {
    test::DebugOutputCapture outer;
    {
      test::DebugOutputCapture inner;
      OutputDebugText(std::wstring(L"wide \u00e9"));
      OutputDebugText(std::string_view("narrow"));
      EXPECT_EQ(inner.Texts(), (std::vector<std::string>{"wide \xC3\xA9", "narrow"}));
    }
    OutputDebugText(std::string_view("back to the outer handler"));
    EXPECT_EQ(outer.Texts(), std::vector<std::string>{"back to the outer handler"});
  }
  // The default sink is back; no debugger is attached under the test runner.
  EXPECT_FALSE(SetDebugOutputHandler(nullptr));
  EXPECT_FALSE(IsDebuggerAttached());
}

TEST(MessageBox, DefaultAnswersOkAndHandlersSeeEverything) {
  EXPECT_EQ(ShowMessageBox("caption", "default box", MESSAGE_BOX_OK), MESSAGE_BOX_RESULT_OK);

  std::string seen;
  auto previous =
      SetMessageBoxHandler([&](std::string_view caption, std::string_view text, unsigned style) {
        seen = std::string(caption) + "|" + std::string(text) + "|" + std::to_string(style);
        return static_cast<int>(MESSAGE_BOX_RESULT_RETRY);
      });
  EXPECT_FALSE(previous);
  EXPECT_EQ(ShowMessageBox("TlsAlloc", "TlsAlloc TLS_OUT_OF_INDEXES",
                           MESSAGE_BOX_OK | MESSAGE_BOX_ICON_ERROR),
            MESSAGE_BOX_RESULT_RETRY);
  EXPECT_EQ(seen, "TlsAlloc|TlsAlloc TLS_OUT_OF_INDEXES|16");
  EXPECT_TRUE(SetMessageBoxHandler(std::move(previous)));
}

} // namespace
} // namespace zrn
