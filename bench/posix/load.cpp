#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// The browser and the agent where a script would measure itself; IN and OUT are descriptors of a
// program's standard input and output, FILE holds what is sent:
//   load frames IN OUT COUNT FLIGHT FILE      a frame, FLIGHT of them unanswered at a time
//   load calls IN OUT PORT COUNT FILE PAGE    a tool call's request; the extension answers PAGE
//   load requests PORT CLIENTS COUNT FILE     a request, each on a connection of its own
// Prints the seconds, of calls those of each, and then the last reply or answer. Fails when one is
// missing or not as long as the first.
namespace {

void must(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string contentOf(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    must(count > 0, "the far side takes nothing");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Frames as they come out of a program.
class Frames {
 public:
  explicit Frames(int descriptor) : descriptor_(descriptor) {}

  bool hasNext() const { return left() >= headBytes && left() - headBytes >= length(); }
  // The body of the next frame that has `marker`.
  std::string next(std::string_view marker) {
    for (;;) {
      while (!hasNext()) readMore();
      std::string body = bytes_.substr(at_ + headBytes, length());
      at_ += headBytes + body.size();
      if (body.find(marker) != std::string::npos) return body;
    }
  }

 private:
  static constexpr std::size_t headBytes = sizeof(std::uint32_t);

  std::size_t left() const { return bytes_.size() - at_; }
  std::uint32_t length() const {
    std::uint32_t length = 0;
    std::memcpy(&length, &bytes_[at_], sizeof length);
    return length;
  }
  void readMore() {
    std::array<char, 65536> piece;
    const ssize_t got = read(descriptor_, piece.data(), piece.size());
    must(got > 0, "the program's output ended");
    bytes_.erase(0, at_).append(piece.data(), static_cast<std::size_t>(got));
    at_ = 0;
  }

  int descriptor_;
  std::string bytes_;
  std::size_t at_ = 0;
};

// What comes back for `request` up to the end of the connection; `meanwhile` runs when it was sent.
std::string answerOf(int port, std::string_view request, const std::function<void()>& meanwhile) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int connection = socket(AF_INET, SOCK_STREAM, 0);
  must(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
       "no connection");
  writeAll(connection, request);
  meanwhile();
  static thread_local std::array<char, 262144> piece;
  std::string answer;
  for (ssize_t got = 1; got > 0; answer.append(piece.data(), static_cast<std::size_t>(got))) {
    got = recv(connection, piece.data(), piece.size(), 0);
    must(got >= 0, "a connection broke");
  }
  close(connection);
  return answer;
}

std::string frames(int in, int out, int count, int flight, const std::string& frame) {
  Frames replies(out);
  std::string first;
  std::string batch;
  const double begin = secondsNow();
  for (int i = 0; i < flight; ++i) batch += frame;
  writeAll(in, batch);
  for (int sent = flight, answered = 0; answered < count;) {
    batch.clear();
    do {
      const std::string reply = replies.next("chromeRequestId");
      if (++answered == 1) first = reply;
      must(reply.size() == first.size(), "replies differ");
      if (sent++ < count) batch += frame;
    } while (replies.hasNext());
    writeAll(in, batch);
  }
  std::printf("%.9f\n", secondsNow() - begin);
  return first;
}

// Answers the next command as the extension does; a large page is not copied for that.
void answerCommand(Frames& commands, int in, const std::string& page) {
  constexpr std::string_view marker = R"("requestId":)";
  constexpr std::size_t large = 65536;
  const std::string command = commands.next(marker);
  const std::size_t at = command.find('"', command.find(marker) + marker.size());
  const std::string id = command.substr(at, command.find('"', at + 1) - at + 1);
  std::string frame = "{" + std::string(marker) + id + R"(,"ok":true,"data":)";
  const auto length = static_cast<std::uint32_t>(frame.size() + page.size() + 1);
  frame.insert(0, reinterpret_cast<const char*>(&length), sizeof length);
  if (page.size() < large) return writeAll(in, frame + page + "}");
  writeAll(in, frame);
  writeAll(in, page);
  writeAll(in, "}");
}

std::string calls(int in, int out, int port, int count, const std::string& request,
                  const std::string& page) {
  Frames commands(out);
  std::string first;
  for (int i = 0; i < count; ++i) {
    const double begin = secondsNow();
    const std::string answer = answerOf(port, request, [&] { answerCommand(commands, in, page); });
    std::printf("%.9f\n", secondsNow() - begin);
    if (i == 0) first = answer;
    must(answer.size() == first.size(), "answers differ");
  }
  return first;
}

std::string requests(int port, int clients, int count, const std::string& request) {
  std::string first = answerOf(port, request, [] {});
  std::atomic<int> left = count;
  std::atomic<bool> failed = false;
  const double begin = secondsNow();
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(clients));
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      try {
        while (left-- > 0) {
          must(answerOf(port, request, [] {}).size() == first.size(), "answers differ");
        }
      } catch (const std::exception&) {
        failed = true;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  must(!failed, "answers were lost");
  std::printf("%.9f\n", secondsNow() - begin);
  return first;
}

std::string run(const std::vector<const char*>& words) {
  const auto number = [&](std::size_t i) { return std::atoi(words.at(i)); };
  const auto content = [&](std::size_t i) { return contentOf(words.at(i)); };
  const std::string_view mode = words.at(1);
  if (mode == "frames") return frames(number(2), number(3), number(4), number(5), content(6));
  if (mode == "requests") return requests(number(2), number(3), number(4), content(5));
  return calls(number(2), number(3), number(4), number(5), content(6), content(7));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string last = run({argv, argv + argc});
    std::printf("\n");
    std::fwrite(last.data(), 1, last.size(), stdout);
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "load: %s\n", failure.what());
    return 1;
  }
}
