// Files; see faults.cpp.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include "tests/faults/faults.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
namespace valmere::test {

extern "C" ssize_t __real_read(int, void*, size_t);

namespace {

constexpr int kNothing = -1;

std::atomic<int> g_hung{kNothing};  // what hangs the next time
std::atomic<bool> g_hangs{false};
std::array<int, 2> g_never_written{};  // a pipe

// Where a thread hangs: in the kernel, until the pipe is closed.
void HangIfOrdered(Fault fault) {
  int expected = static_cast<int>(fault);
  if (!OnWorker() || !g_hung.compare_exchange_strong(expected, kNothing)) return;
  g_hangs = true;
  char byte;
  while (__real_read(g_never_written[0], &byte, 1) < 0 && errno == EINTR) {
  }
  g_hangs = false;
}

}  // namespace

HungCall::HungCall(Fault fault) {
  if (pipe(g_never_written.data()) != 0) std::abort();
  g_hangs = false;
  g_hung = static_cast<int>(fault);
}

HungCall::~HungCall() {
  g_hung = kNothing;
  close(g_never_written[1]);
}

bool HungCall::hangs() const {
  return g_hangs;
}

extern "C" {

int __real_openat(int, const char*, int, ...);
int __wrap_openat(int folder, const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = va_arg(rest, mode_t);
  va_end(rest);
  if (Refused(Fault::kOpen)) return Refuse(EMFILE);
  return __real_openat(folder, name, flags, mode);
}

int __real_fstat(int, struct stat*);
int __wrap_fstat(int file, struct stat* status) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_fstat(file, status);
}

int __real_fstatat(int, const char*, struct stat*, int);
int __wrap_fstatat(int folder, const char* name, struct stat* status, int flags) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_fstatat(folder, name, status, flags);
}

int __real_ftruncate(int, off_t);
int __wrap_ftruncate(int file, off_t size) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_ftruncate(file, size);
}

int __real_unlinkat(int, const char*, int);
int __wrap_unlinkat(int folder, const char* name, int flags) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_unlinkat(folder, name, flags);
}

int __real_renameat(int, const char*, int, const char*);
int __wrap_renameat(int from, const char* old_name, int to, const char* new_name) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_renameat(from, old_name, to, new_name);
}

int __real_statx(int, const char*, int, unsigned, struct statx*);
int __wrap_statx(int folder, const char* name, int flags, unsigned mask, struct statx* status) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_statx(folder, name, flags, mask, status);
}

int __real_faccessat(int, const char*, int, int);
int __wrap_faccessat(int folder, const char* name, int mode, int flags) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_faccessat(folder, name, mode, flags);
}

int __real_fchmod(int, mode_t);
int __wrap_fchmod(int file, mode_t mode) {
  if (Refused(Fault::kLook)) return Refuse(EIO);
  return __real_fchmod(file, mode);
}

int __real_flock(int, int);
int __wrap_flock(int file, int operation) {
  if (Refused(Fault::kLook)) return Refuse(ENOLCK);
  return __real_flock(file, operation);
}

int __real_fsync(int);
int __wrap_fsync(int file) {
  if (Refused(Fault::kWrite)) return Refuse(EIO);
  return __real_fsync(file);
}

ssize_t __wrap_read(int file, void* buffer, size_t count) {
  HangIfOrdered(Fault::kRead);
  if (Refused(Fault::kRead)) return Refuse(EIO);
  return __real_read(file, buffer, count);
}

ssize_t __real_write(int, const void*, size_t);
ssize_t __wrap_write(int file, const void* buffer, size_t count) {
  HangIfOrdered(Fault::kWrite);
  if (Refused(Fault::kWrite)) return Refuse(ENOSPC);
  if (Refused(Fault::kTornWrite)) {
    if (__real_write(file, buffer, count / 2) < 0) return -1;
    return Refuse(EIO);
  }
  return __real_write(file, buffer, count);
}

}  // extern "C"

}  // namespace valmere::test
// NOLINTEND(bugprone-reserved-identifier)
