#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/byte_stream.h"
#include "platform/process_control.h"

// Frames in the fewest lines that are right: what the programs that the host is compared with use.
namespace media::win::chrome_inspect {

constexpr std::size_t frameHead = sizeof(std::uint32_t);

inline bool readPlainly(char* buffer, std::size_t size) {
  for (std::size_t done = 0, got = 0; done < size; done += got) {
    if (readSome(standardInput(), buffer + done, size - done, got) != ReadResult::data) {
      return false;
    }
  }
  return true;
}

// Reads a frame whole, its length in front of its body.
inline bool readPlainFrame(std::string& frame) {
  std::uint32_t length = 0;
  if (!readPlainly(reinterpret_cast<char*>(&length), sizeof length)) return false;
  frame.resize(frameHead + length);
  frame.replace(0, frameHead, reinterpret_cast<const char*>(&length), frameHead);
  return readPlainly(frame.data() + frameHead, length);
}

inline void appendPlainFrame(std::string& frames, std::string_view body) {
  const auto length = static_cast<std::uint32_t>(body.size());
  frames.append(reinterpret_cast<const char*>(&length), frameHead).append(body);
}

// In one call, as long as the pipe takes them.
inline bool writePlainly(std::string_view bytes) {
  for (std::size_t written = 0; !bytes.empty(); bytes.remove_prefix(written)) {
    if (!writeSome(standardOutput(), bytes.data(), bytes.size(), written)) return false;
  }
  return true;
}

// The main of a program that has an answer to each frame until it fails.
template <class Answer>
int answerEachFrame(const Answer& answer) {
  prepareProcess();
  std::string frame;
  while (readPlainFrame(frame)) {
    if (!answer(frame)) return 1;
  }
  return 0;
}

}  // namespace media::win::chrome_inspect
