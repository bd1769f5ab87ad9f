// Services of the system and of libcurl that fail: what lies under src/platform/posix, and under
// the C++ library's files and folders, in which the twin keeps its registry. The linker puts these
// in the place of the real ones (cmake/torture.cmake).
#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sanitizer/lsan_interface.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "failure_plan.h"

namespace {

template <class Result>
Result failure(int error, Result result) {
  errno = error;
  return result;
}

template <class Detail>
bool fails(const char* name, Detail detail) {
  using media::win::chrome_inspect::FailingKind;
  return media::win::chrome_inspect::mustFail(FailingKind::services, name,
                                              static_cast<std::uint64_t>(detail));
}

constexpr int none = 0;

}  // namespace

// NOLINTBEGIN: the linker's names, and declarations of the C library written out
// TORTURED(what it returns, name, parameters, arguments, a descriptor, errno, what failing returns)
#define TORTURED(Result, name, parameters, arguments, detail, error, failed) \
  Result __real_##name parameters;                                           \
  Result __wrap_##name parameters {                                          \
    if (fails(#name, detail)) return failure<Result>(error, failed);         \
    return __real_##name arguments;                                          \
  }

extern "C" {

// --- Streams and files ---
TORTURED(ssize_t, read, (int file, void* to, size_t size), (file, to, size), file, EIO, -1)
TORTURED(ssize_t, write, (int file, const void* from, size_t size), (file, from, size), file, EIO,
         -1)
TORTURED(ssize_t, writev, (int file, const iovec* from, int count), (file, from, count), file, EIO,
         -1)
TORTURED(int, pipe2, (int* ends, int flags), (ends, flags), none, EMFILE, -1)
TORTURED(int, fcntl, (int file, int command, long value), (file, command, value), file, EMFILE, -1)
TORTURED(int, dup2, (int from, int to), (from, to), from, EMFILE, -1)
TORTURED(int, open, (const char* path, int flags, unsigned mode), (path, flags, mode), none, EMFILE,
         -1)
TORTURED(int, openat, (int folder, const char* path, int flags, unsigned mode),
         (folder, path, flags, mode), folder, EMFILE, -1)
TORTURED(FILE*, fopen64, (const char* path, const char* mode), (path, mode), none, EMFILE, nullptr)
TORTURED(int, stat, (const char* path, struct stat* status), (path, status), none, EACCES, -1)
TORTURED(int, fstat, (int file, struct stat* status), (file, status), file, EIO, -1)
TORTURED(int, fstatat, (int folder, const char* name, struct stat* status, int flags),
         (folder, name, status, flags), folder, EIO, -1)
TORTURED(int, access, (const char* path, int mode), (path, mode), none, EACCES, -1)
TORTURED(ssize_t, readlink, (const char* path, char* to, size_t size), (path, to, size), none, EIO,
         -1)
TORTURED(DIR*, opendir, (const char* path), (path), none, EMFILE, nullptr)
TORTURED(DIR*, fdopendir, (int file), (file), file, ENOMEM, nullptr)
TORTURED(dirent*, readdir, (DIR * folder), (folder), none, EIO, nullptr)
TORTURED(int, mkdir, (const char* path, mode_t mode), (path, mode), none, ENOSPC, -1)
TORTURED(int, unlink, (const char* path), (path), none, EACCES, -1)
TORTURED(int, remove, (const char* path), (path), none, EACCES, -1)
TORTURED(int, rename, (const char* from, const char* to), (from, to), none, EACCES, -1)
TORTURED(ssize_t, getrandom, (void* to, size_t size, unsigned flags), (to, size, flags), none,
         ENOSYS, -1)

int __real_close(int file);
int __wrap_close(int file) {
  const int closed = __real_close(file);  // it always is, also when that fails
  return fails("close", file) ? failure(EIO, -1) : closed;
}

// --- Sockets ---
TORTURED(int, socket, (int family, int type, int protocol), (family, type, protocol), none, EMFILE,
         -1)
TORTURED(int, bind, (int socket, const sockaddr* to, socklen_t size), (socket, to, size), socket,
         EADDRINUSE, -1)
TORTURED(int, listen, (int socket, int backlog), (socket, backlog), socket, EADDRINUSE, -1)
TORTURED(int, accept4, (int socket, sockaddr* from, socklen_t* size, int flags),
         (socket, from, size, flags), socket, EMFILE, -1)
TORTURED(int, connect, (int socket, const sockaddr* to, socklen_t size), (socket, to, size), socket,
         ENOBUFS, -1)
TORTURED(int, setsockopt, (int socket, int level, int option, const void* value, socklen_t size),
         (socket, level, option, value, size), socket, ENOBUFS, -1)
TORTURED(ssize_t, recv, (int socket, void* to, size_t size, int flags), (socket, to, size, flags),
         socket, ECONNRESET, -1)
TORTURED(ssize_t, send, (int socket, const void* from, size_t size, int flags),
         (socket, from, size, flags), socket, ECONNRESET, -1)
TORTURED(int, shutdown, (int socket, int how), (socket, how), socket, ENOTCONN, -1)
TORTURED(int, poll, (pollfd * waited, nfds_t count, int timeout), (waited, count, timeout), none,
         ENOMEM, -1)
TORTURED(int, eventfd, (unsigned value, int flags), (value, flags), none, EMFILE, -1)

// --- Threads and processes ---
TORTURED(int, pthread_create,
         (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
          void* argument),
         (thread, attributes, start, argument), none, EAGAIN, EAGAIN)
TORTURED(int, posix_spawnp,
         (pid_t * id, const char* file, const posix_spawn_file_actions_t* actions,
          const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment),
         (id, file, actions, attributes, arguments, environment), none, ENOMEM, ENOMEM)
TORTURED(int, posix_spawn_file_actions_adddup2,
         (posix_spawn_file_actions_t * actions, int from, int to), (actions, from, to), from,
         ENOMEM, ENOMEM)
TORTURED(long, syscall, (long number, long a, long b, long c, long d, long e, long f),
         (number, a, b, c, d, e, f), number, EMFILE, -1)
TORTURED(pid_t, waitpid, (pid_t id, int* status, int options), (id, status, options), none, ECHILD,
         -1)

// --- HTTP ---
TORTURED(CURLcode, curl_global_init, (long flags), (flags), none, ENOMEM, CURLE_OUT_OF_MEMORY)
TORTURED(CURLM*, curl_multi_init, (), (), none, ENOMEM, nullptr)
TORTURED(CURL*, curl_easy_init, (), (), none, ENOMEM, nullptr)
TORTURED(curl_slist*, curl_slist_append, (curl_slist * list, const char* line), (list, line), none,
         ENOMEM, nullptr)
TORTURED(CURLMcode, curl_multi_add_handle, (CURLM * multi, CURL* easy), (multi, easy), none, ENOMEM,
         CURLM_OUT_OF_MEMORY)
TORTURED(CURLMcode, curl_multi_poll,
         (CURLM * multi, curl_waitfd* more, unsigned count, int timeout, int* ready),
         (multi, more, count, timeout, ready), none, ENOMEM, CURLM_OUT_OF_MEMORY)
TORTURED(CURLMcode, curl_multi_perform, (CURLM * multi, int* running), (multi, running), none,
         ENOMEM, CURLM_OUT_OF_MEMORY)

// The program ends without exit handlers, so this is where lost memory is looked for.
[[noreturn]] void __real__exit(int code);
[[noreturn]] void __wrap__exit(int code) {
  if (std::getenv("MORVA_TORTURE") != nullptr) (void)__lsan_do_recoverable_leak_check();
  __real__exit(code);
}

}  // extern "C"
// NOLINTEND
