// Loaded into a program under a sanitizer: keeps writing, ten times a second, how many bytes of the
// heap the program uses, by the sanitizer's own count, into the file $MORVA_IN_USE.PID. What the
// system counts would be mostly the sanitizer's: its shadow, its histories, what it keeps of what
// has been freed. The program's children are without a sanitizer and load this in vain.
#include <fcntl.h>
#include <pthread.h>
#include <sanitizer/allocator_interface.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#pragma weak __sanitizer_get_current_allocated_bytes

namespace {

int file = -1;

void* keepWriting(void*) {
  for (;;) {
    char text[24];
    const int length =
        std::snprintf(text, sizeof text, "%20zu\n", __sanitizer_get_current_allocated_bytes());
    (void)!pwrite(file, text, static_cast<std::size_t>(length), 0);
    usleep(100'000);
  }
}

[[gnu::constructor]] void begin() {
  const char* const name = std::getenv("MORVA_IN_USE");
  if (name == nullptr || __sanitizer_get_current_allocated_bytes == nullptr) return;
  char path[1024];
  std::snprintf(path, sizeof path, "%s.%d", name, getpid());
  file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  pthread_t thread = {};
  if (file >= 0 && pthread_create(&thread, nullptr, keepWriting, nullptr) == 0) {
    pthread_detach(thread);
  }
}

}  // namespace
