#include "browser_tools/browser_context.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

struct BrowserContext {
  std::mutex mutex;  // guards what follows
  nlohmann::json browser;
};

BrowserContext& context() {
  static BrowserContext& stored = leaked<BrowserContext>();
  return stored;
}

}  // namespace

void setBrowserContext(const nlohmann::json& browser) {
  nlohmann::json copy = browser.is_object() ? browser : nlohmann::json::object();
  const std::lock_guard lock(context().mutex);
  std::swap(context().browser, copy);
}

nlohmann::json browserContext() {
  const std::lock_guard lock(context().mutex);
  return context().browser;
}

}  // namespace media::win::chrome_inspect
