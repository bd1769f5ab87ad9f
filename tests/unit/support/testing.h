#pragma once

// What tests use all the time, parsed once for all of them. A test includes this, what it is about,
// and what goes beyond.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace media::win::chrome_inspect {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace std::string_literals;

inline std::string repeat(std::size_t count, std::string_view text) {
  std::string all;
  all.reserve(count * text.size());
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace media::win::chrome_inspect
