#include <windows.h>
#include <winhttp.h>

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// What the client asks for and does without where it is refused: learn.microsoft.com, "Option
// Flags (Winhttp.h)".
TEST(WinHttp, WaitsForAHeaderWithoutALimit) {
  const auto close = [](HINTERNET handle) { WinHttpCloseHandle(handle); };
  using Handle = std::unique_ptr<void, decltype(close)>;
  const Handle session(WinHttpOpen(L"test", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                   WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC),
                       close);
  const Handle connection(WinHttpConnect(session.get(), L"127.0.0.1", 8090, 0), close);
  const Handle request(WinHttpOpenRequest(connection.get(), L"GET", L"/", nullptr,
                                          WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, 0),
                       close);
  ASSERT_NE(request, nullptr);
  DWORD limit = INFINITE;
  EXPECT_TRUE(WinHttpSetOption(request.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &limit,
                               sizeof limit))
      << GetLastError();
  EXPECT_TRUE(WinHttpSetTimeouts(request.get(), 0, 0, 0, 0)) << GetLastError();
}

}  // namespace
}  // namespace media::win::chrome_inspect
