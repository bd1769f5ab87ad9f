#include "browser_tools/browser_context.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "platform/locks.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

struct BrowserContext {
  Mutex mutex;
  nlohmann::json browser MORVA_GUARDED_BY(mutex);
};

BrowserContext& context() {
  static BrowserContext& stored = leaked<BrowserContext>();
  return stored;
}

}  // namespace

void setBrowserContext(const nlohmann::json& browser) {
  nlohmann::json copy = browser.is_object() ? browser : nlohmann::json::object();
  const Lock lock(context().mutex);
  std::swap(context().browser, copy);
}

nlohmann::json browserContext() {
  const Lock lock(context().mutex);
  return context().browser;
}

}  // namespace media::win::chrome_inspect
