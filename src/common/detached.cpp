#include "common/detached.h"

#include <utility>

#include "platform/threads.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

void (*reportFailure)(const std::string& text) = nullptr;

void reportQuietly(const char* name, const char* what) noexcept {
  try {
    if (reportFailure != nullptr)
      reportFailure(std::string(name) + " failed: " + foreignText(what));
  } catch (...) {  // no memory even for the report: the thread still ends in order
  }
}

}  // namespace

void runContained(const char* name, const std::function<void()>& body) noexcept {
  try {
    body();
  } catch (const std::exception& failure) {
    reportQuietly(name, failure.what());
  } catch (...) {
    reportQuietly(name, "unknown exception");
  }
}

bool runDetached(const char* name, std::function<void()> body) {
  try {
    return startThread([name, body = std::move(body)] { runContained(name, body); });
  } catch (const std::exception&) {  // no memory for the thread's start record
    return false;
  }
}

void setDetachedReporter(void (*report)(const std::string& text)) { reportFailure = report; }

}  // namespace media::win::chrome_inspect
