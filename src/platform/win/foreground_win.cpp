#include "platform/win/foreground_win.h"

namespace media::win::chrome_inspect {
namespace {

class SharedInput {
 public:
  explicit SharedInput(HWND other)
      : theirs_(GetWindowThreadProcessId(other, nullptr)),
        isShared_(theirs_ != 0 && theirs_ != ours_ && !IsHungAppWindow(other) &&
                  AttachThreadInput(ours_, theirs_, TRUE)) {}
  ~SharedInput() {
    if (isShared_) AttachThreadInput(ours_, theirs_, FALSE);
  }
  SharedInput(const SharedInput&) = delete;
  SharedInput& operator=(const SharedInput&) = delete;

 private:
  DWORD ours_ = GetCurrentThreadId();
  DWORD theirs_;
  bool isShared_;
};

}  // namespace

void bringToFront(HWND window) {
  const SharedInput shared(GetForegroundWindow());
  SetForegroundWindow(window);
}

}  // namespace media::win::chrome_inspect
