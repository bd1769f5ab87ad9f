// Linked into programs that are compiled with -fsanitize-coverage=trace-pc-guard,pc-table: notes
// which of their points run. With MORVA_REACHED, a folder, in the environment, every process has a
// file PROGRAM.PID.reached there with one byte per point, not 0 once the point has run; whoever
// reads it may set it back to 0 while the process runs. PROGRAM.points holds what the compiler says
// of each point: its address and its flags. Shared memory, because hosts are often ended hard.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

unsigned char* reached = nullptr;

std::string fileName(const std::string& ending) {
  return std::string(std::getenv("MORVA_REACHED")) + "/" + program_invocation_short_name + ending;
}

unsigned char* sharedBytes(std::size_t size) {
  const std::string name = fileName("." + std::to_string(getpid()) + ".reached");
  const int file = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0 || ftruncate(file, static_cast<off_t>(size)) != 0) std::abort();
  void* const bytes = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (bytes == MAP_FAILED) std::abort();
  close(file);
  return static_cast<unsigned char*>(bytes);
}

}  // namespace

// The compiler calls these by the names and parameters that it knows; every object file calls the
// first two anew with the tables of the whole program.
extern "C" {

void __sanitizer_cov_trace_pc_guard_init(std::uint32_t* begin, std::uint32_t* end) {
  if (reached != nullptr || begin == end || std::getenv("MORVA_REACHED") == nullptr) return;
  reached = sharedBytes(static_cast<std::size_t>(end - begin) + 1);
  std::uint32_t number = 0;  // 0 is a point that runs before its program has been here
  for (std::uint32_t* guard = begin; guard != end; ++guard) *guard = ++number;
}

void __sanitizer_cov_pcs_init(const std::uintptr_t* begin, const std::uintptr_t* end) {
  if (reached == nullptr) return;
  const int file = open(fileName(".points").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (file < 0) return;  // there is one
  const std::size_t size = static_cast<std::size_t>(end - begin) * sizeof *begin;
  if (write(file, begin, size) != static_cast<ssize_t>(size)) std::abort();
  close(file);
}

void __sanitizer_cov_trace_pc_guard(const std::uint32_t* guard) {
  if (reached != nullptr) reached[*guard] = 1;
}
}
