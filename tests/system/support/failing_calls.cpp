// Preloaded into a native host: makes the calls fail that MORVA_FAILING_CALLS names, so that tests
// see what no healthy system shows. "pthread_create" fails from the moment on when the file that
// MORVA_FAILING_FROM names exists.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

bool fails(const char* call) {
  const char* named = std::getenv("MORVA_FAILING_CALLS");
  return named != nullptr && std::strstr(named, call) != nullptr;
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int listen(int socket, int backlog) {
  if (!fails("listen")) return next<int(int, int)>("listen")(socket, backlog);
  errno = EADDRINUSE;
  return -1;
}

ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
  if (!fails("getrandom")) {
    return next<ssize_t(void*, size_t, unsigned)>("getrandom")(buffer, size, flags);
  }
  errno = ENOSYS;
  return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  const char* from = std::getenv("MORVA_FAILING_FROM");
  if (fails("pthread_create") && from != nullptr && access(from, F_OK) == 0) return EAGAIN;
  return next<Create>("pthread_create")(thread, attributes, start, argument);
}

}  // extern "C"
