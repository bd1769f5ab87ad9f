// Dialogs and windows of the tests' own, which need a screen.
#include <windows.h>

#include "platform/clock.h"
#include "platform/file_dialog.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const wchar_t* title = L"morva unit test dialog";
constexpr std::uint32_t limitMs = 60'000;

// Whether `done` came true in time.
template <class Condition>
bool until(Condition done) {
  const std::uint64_t end = tickCountMs() + limitMs;
  while (!done()) {
    if (tickCountMs() > end) return false;
    sleepMs(10);
  }
  return true;
}

// A window of another thread, in front of all, as the browser's is.
class FrontWindow {
 public:
  FrontWindow() : thread_([this] { run(); }) {
    EXPECT_TRUE(until([this] { return isReady_.load(); }));
  }
  ~FrontWindow() { PostThreadMessageW(id_, WM_QUIT, 0, 0); }

  HWND window() const { return window_; }
  DWORD thread() const { return id_; }

 private:
  void run() {
    id_ = GetCurrentThreadId();
    window_ = CreateWindowExW(0, L"STATIC", L"in front", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                              300, 200, nullptr, nullptr, nullptr, nullptr);
    SetForegroundWindow(window_);
    isReady_ = true;
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
    DestroyWindow(window_);
  }

  std::atomic<bool> isReady_ = false;
  std::atomic<HWND> window_ = nullptr;
  std::atomic<DWORD> id_ = 0;
  TestThread thread_;
};

TEST(ShowFileDialog, IsInFrontWithAnInputOfItsOwnAndHandsTheFrontBack) {
  const FrontWindow browser;
  if (browser.window() == nullptr) GTEST_SKIP() << "there is no screen";
  ASSERT_TRUE(until([&] { return GetForegroundWindow() == browser.window(); }));
  DialogOutcome outcome = DialogOutcome::failed;
  {
    const TestThread picker([&] {
      std::vector<std::wstring> paths;
      std::uint32_t systemError = 0;
      outcome = showFileDialog({.title = title, .folders = true}, paths, systemError);
    });
    HWND dialog = nullptr;
    EXPECT_TRUE(until([&] {
      dialog = FindWindowW(nullptr, title);
      return dialog != nullptr && GetForegroundWindow() == dialog;
    }));
    // Taking back what was taken back fails.
    const DWORD pickers = GetWindowThreadProcessId(dialog, nullptr);
    EXPECT_TRUE(until([&] { return !AttachThreadInput(pickers, browser.thread(), FALSE); }));
    EXPECT_TRUE(until([&] {
      PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
      return !IsWindow(dialog);
    }));
  }
  EXPECT_EQ(outcome, DialogOutcome::cancelled);
  EXPECT_TRUE(until([&] { return GetForegroundWindow() == browser.window(); }));
}

}  // namespace
}  // namespace media::win::chrome_inspect
