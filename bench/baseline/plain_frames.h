#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "platform/byte_stream.h"

// Frames in the fewest lines that are right: what the programs that the host is compared with use.
namespace media::win::chrome_inspect {

inline bool readPlainly(char* buffer, std::size_t size) {
  for (std::size_t done = 0, got = 0; done < size; done += got) {
    if (readSome(standardInput(), buffer + done, size - done, got) != ReadResult::data) {
      return false;
    }
  }
  return true;
}

inline bool readPlainFrame(std::string& body) {
  std::uint32_t length = 0;
  if (!readPlainly(reinterpret_cast<char*>(&length), sizeof length)) return false;
  body.resize(length);
  return readPlainly(body.data(), body.size());
}

// Length and body in one call, as long as the pipe takes them.
inline bool writePlainFrame(const std::string& body) {
  const auto length = static_cast<std::uint32_t>(body.size());
  std::string frame(sizeof length, '\0');
  std::memcpy(frame.data(), &length, sizeof length);
  frame += body;
  for (std::size_t done = 0, written = 0; done < frame.size(); done += written) {
    if (!writeSome(standardOutput(), frame.data() + done, frame.size() - done, written)) {
      return false;
    }
  }
  return true;
}

}  // namespace media::win::chrome_inspect
