// SPDX-License-Identifier: GPL-3.0-or-later
// Preloaded into the program under test: counts its calls on files below one folder and its
// allocations, and lets one of them fail. Told by the environment what to do:
//   FAULT_UNDER   the folder
//   FAULT_CALL    the name of a call (see callNames), FAULT_AT which one of them, from 1
//   FAULT_ERROR   an errno; "short" for half of what was asked; "kill" to end the program there
//   FAULT_LASTING the later calls of that name fail, too
//   FAULT_COUNTS  where the counts are written at the end
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

enum Call {
  openCall,
  readCall,
  writeCall,
  copyCall,
  syncCall,
  renameCall,
  truncateCall,
  seekCall,
  lookCall,
  allocateCall,
  calls
};
constexpr std::array<const char*, calls> callNames{
    "open", "read", "write", "copy", "sync", "rename", "truncate", "seek", "look", "allocate"};

struct Order {
  const char* under = std::getenv("FAULT_UNDER");
  int call = -1;
  long at = 0;
  int error = 0;
  bool isShort = false;
  bool kills = false;
  bool lasts = std::getenv("FAULT_LASTING") != nullptr;

  Order() {
    const char* name = std::getenv("FAULT_CALL");
    const char* place = std::getenv("FAULT_AT");
    const char* what = std::getenv("FAULT_ERROR");
    if (name == nullptr || place == nullptr || what == nullptr) return;
    for (std::size_t i = 0; i < calls; ++i) {
      if (std::strcmp(name, callNames.at(i)) == 0) call = static_cast<int>(i);
    }
    at = std::strtol(place, nullptr, 10);
    isShort = std::strcmp(what, "short") == 0;
    kills = std::strcmp(what, "kill") == 0;
    error = static_cast<int>(std::strtol(what, nullptr, 10));
  }
};

std::array<std::atomic<long>, calls> counts{};
std::array<std::atomic<bool>, 4096> watched{};
// Set when main begins: what loader and libraries do before is not the program's.
std::atomic<bool> ready{false};

const Order& order() {
  static const Order one;
  return one;
}

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

enum class Fate { goesOn, isCutShort, fails };

Fate meet(Call call) {
  const long number = ++counts.at(call);
  if (order().call != call || number < order().at || (number > order().at && !order().lasts)) {
    return Fate::goesOn;
  }
  if (order().kills) ::raise(SIGKILL);
  if (order().isShort) return Fate::isCutShort;
  errno = order().error;
  return Fate::fails;
}

bool isWatched(int fd) {
  return ready && fd >= 0 && static_cast<std::size_t>(fd) < watched.size() &&
         watched.at(static_cast<std::size_t>(fd));
}

bool isUnder(const char* path) {
  return ready && order().under != nullptr && path != nullptr &&
         std::strncmp(path, order().under, std::strlen(order().under)) == 0;
}

void watch(int fd, bool on) {
  if (fd >= 0 && static_cast<std::size_t>(fd) < watched.size()) {
    watched.at(static_cast<std::size_t>(fd)) = on;
  }
}

/// How many bytes to ask for; -1 when the call is to fail.
ssize_t allowed(Call call, int fd, std::size_t count) {
  const auto all = static_cast<ssize_t>(count);
  if (!isWatched(fd)) return all;
  switch (meet(call)) {
    case Fate::goesOn:
      return all;
    case Fate::isCutShort:
      return all > 1 ? all / 2 : all;
    case Fate::fails:
      break;
  }
  return -1;
}

using Main = int (*)(int, char**, char**);
Main programsMain = nullptr;

int startCounting(int count, char** arguments, char** environment) {
  (void)order();
  ready = true;
  return programsMain(count, arguments, environment);
}

__attribute__((destructor)) void report() {
  ready = false;
  if (const char* path = std::getenv("FAULT_COUNTS")) {
    if (FILE* file = std::fopen(path, "we")) {
      for (std::size_t i = 0; i < calls; ++i) {
        (void)std::fprintf(file, "%s %ld\n", callNames.at(i), counts.at(i).load());
      }
      (void)std::fclose(file);
    }
  }
}

void* allocate(std::size_t size) {
  if (ready && meet(allocateCall) == Fate::fails) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

extern "C" {

// How the C library calls what calls main.
// NOLINTNEXTLINE(readability-identifier-naming)
int __libc_start_main(Main main, int count, char** arguments, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stackEnd) {
  programsMain = main;
  using Function = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  return next<Function>("__libc_start_main")(startCounting, count, arguments, init, fini,
                                             loaderFini, stackEnd);
}

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
    va_list rest;
    va_start(rest, flags);
    mode = va_arg(rest, mode_t);
    va_end(rest);
  }
  const bool ours = isUnder(path);
  if (ours && meet(openCall) == Fate::fails) return -1;
  const int fd = next<int (*)(const char*, int, ...)>("open")(path, flags, mode);
  watch(fd, ours);
  return fd;
}

int close(int fd) {
  watch(fd, false);
  return next<int (*)(int)>("close")(fd);
}

ssize_t read(int fd, void* to, std::size_t count) {
  const ssize_t most = allowed(readCall, fd, count);
  return most < 0 ? -1
                  : next<ssize_t (*)(int, void*, std::size_t)>("read")(
                        fd, to, static_cast<std::size_t>(most));
}

ssize_t pread(int fd, void* to, std::size_t count, off_t at) {
  const ssize_t most = allowed(readCall, fd, count);
  return most < 0 ? -1
                  : next<ssize_t (*)(int, void*, std::size_t, off_t)>("pread")(
                        fd, to, static_cast<std::size_t>(most), at);
}

ssize_t write(int fd, const void* from, std::size_t count) {
  const ssize_t most = allowed(writeCall, fd, count);
  return most < 0 ? -1
                  : next<ssize_t (*)(int, const void*, std::size_t)>("write")(
                        fd, from, static_cast<std::size_t>(most));
}

ssize_t pwrite(int fd, const void* from, std::size_t count, off_t at) {
  const ssize_t most = allowed(writeCall, fd, count);
  return most < 0 ? -1
                  : next<ssize_t (*)(int, const void*, std::size_t, off_t)>("pwrite")(
                        fd, from, static_cast<std::size_t>(most), at);
}

ssize_t copy_file_range(int from, off64_t* fromAt, int to, off64_t* toAt, std::size_t count,
                        unsigned flags) {
  const ssize_t most = allowed(copyCall, to, count);
  using Function = ssize_t (*)(int, off64_t*, int, off64_t*, std::size_t, unsigned);
  return most < 0 ? -1
                  : next<Function>("copy_file_range")(from, fromAt, to, toAt,
                                                      static_cast<std::size_t>(most), flags);
}

int fsync(int fd) {
  if (isWatched(fd) && meet(syncCall) == Fate::fails) return -1;
  return next<int (*)(int)>("fsync")(fd);
}

int ftruncate(int fd, off_t size) noexcept {
  if (isWatched(fd) && meet(truncateCall) == Fate::fails) return -1;
  return next<int (*)(int, off_t)>("ftruncate")(fd, size);
}

off64_t lseek64(int fd, off64_t to, int whence) noexcept {
  if (isWatched(fd) && meet(seekCall) == Fate::fails) return -1;
  return next<off64_t (*)(int, off64_t, int)>("lseek64")(fd, to, whence);
}

int fstat(int fd, struct stat* into) noexcept {
  if (isWatched(fd) && meet(lookCall) == Fate::fails) return -1;
  return next<int (*)(int, struct stat*)>("fstat")(fd, into);
}

int stat(const char* path, struct stat* into) noexcept {
  if (isUnder(path) && meet(lookCall) == Fate::fails) return -1;
  return next<int (*)(const char*, struct stat*)>("stat")(path, into);
}

int lstat(const char* path, struct stat* into) noexcept {
  if (isUnder(path) && meet(lookCall) == Fate::fails) return -1;
  return next<int (*)(const char*, struct stat*)>("lstat")(path, into);
}

int rename(const char* from, const char* to) noexcept {
  if (isUnder(to) && meet(renameCall) == Fate::fails) return -1;
  return next<int (*)(const char*, const char*)>("rename")(from, to);
}

int link(const char* from, const char* to) noexcept {
  if (isUnder(to) && meet(renameCall) == Fate::fails) return -1;
  return next<int (*)(const char*, const char*)>("link")(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
  if (isUnder(to) && meet(renameCall) == Fate::fails) return -1;
  using Function = int (*)(int, const char*, int, const char*, unsigned);
  return next<Function>("renameat2")(fromFolder, from, toFolder, to, flags);
}

}  // extern "C"

void* operator new(std::size_t size) {
  void* memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
