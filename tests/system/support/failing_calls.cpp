// Preloaded into a native host: makes the call fail that MORVA_FAILING_CALL names, so that tests
// see what no healthy system shows. Where MORVA_FAILING_FROM names a file, only while that exists.
// "stat" never returns for what is on a "dead-share".
#include <dlfcn.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

bool fails(const char* call) {
  const char* named = std::getenv("MORVA_FAILING_CALL");
  const char* from = std::getenv("MORVA_FAILING_FROM");
  return named != nullptr && std::strcmp(named, call) == 0 &&
         (from == nullptr || access(from, F_OK) == 0);
}

// As opposed to what the twin has in the place of a named pipe.
bool isOfInternet(int socket) {
  sockaddr address = {};
  socklen_t size = sizeof address;
  return getsockname(socket, &address, &size) == 0 && address.sa_family == AF_INET;
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int listen(int socket, int backlog) {
  if (!fails("listen") || !isOfInternet(socket)) {
    return next<int(int, int)>("listen")(socket, backlog);
  }
  errno = EADDRINUSE;
  return -1;
}

int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
  if (!fails("accept4")) {
    return next<int(int, sockaddr*, socklen_t*, int)>("accept4")(socket, address, size, flags);
  }
  errno = EMFILE;
  return -1;
}

int stat(const char* path, struct stat* status) {
  while (fails("stat") && std::strstr(path, "dead-share") != nullptr) pause();
  return next<int(const char*, struct stat*)>("stat")(path, status);
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
  if (fails("pthread_create")) return EAGAIN;
  return next<Create>("pthread_create")(thread, attributes, start, argument);
}

}  // extern "C"
