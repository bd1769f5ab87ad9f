#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Streams as the agent sends them, and the ways in which their bytes may arrive.
namespace media::win::chrome_inspect {

inline std::string madeStream(std::size_t events) {
  std::string stream;
  for (std::size_t number = 0; number < events; ++number) {
    stream += R"(data: {"id":"bench","object":"chat.completion.chunk","model":"bench","choices":)"
              R"([{"index":0,"delta":{"content":")" +
              std::to_string(number) + " \"},\"finish_reason\":null}]}\n\n";
  }
  return stream;
}

enum class Arrival { byByte, byEvent, atOnce };

// Hands `stream` to `take` in pieces.
template <class Take>
void arrive(std::string_view stream, Arrival arrival, Take take) {
  while (!stream.empty()) {
    std::size_t size = stream.size();
    if (arrival == Arrival::byByte) size = 1;
    if (arrival == Arrival::byEvent) size = stream.find("\n\n") + 2;
    take(stream.substr(0, size));
    stream.remove_prefix(size);
  }
}

}  // namespace media::win::chrome_inspect
