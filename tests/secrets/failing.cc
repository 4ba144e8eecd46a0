#include "tests/secrets/failing.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace secrets_test {
namespace {

// Plain data: malloc is called before anything is constructed.
struct State {
  Function function;
  std::int64_t number;
  std::int64_t num_calls;
  int error;
};
thread_local State state;

std::atomic<std::int64_t> allocated_bytes;

void *counted(void *memory) {
  allocated_bytes += static_cast<std::int64_t>(malloc_usable_size(memory));
  return memory;
}

void uncount(void *memory) {
  allocated_bytes -= static_cast<std::int64_t>(malloc_usable_size(memory));
}

bool fails(Function function) {
  if (state.function != function || state.num_calls++ != state.number) return false;
  errno = state.error;
  return true;
}

}  // namespace

FailingCall::FailingCall(Function function, std::int64_t number, int error) {
  state = {function, number, 0, error};
}

FailingCall::~FailingCall() {
  state.function = Function::kNone;
}

std::int64_t FailingCall::num_calls() const {
  return state.num_calls;
}

std::int64_t num_allocated_bytes() {
  return allocated_bytes;
}

}  // namespace secrets_test

using secrets_test::counted;
using secrets_test::fails;
using secrets_test::Function;
using secrets_test::uncount;

#define REAL(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void __libc_free(void *memory);

void *malloc(size_t size) {
  return fails(Function::kAllocate) ? nullptr : counted(__libc_malloc(size));
}

void *calloc(size_t count, size_t size) {
  return fails(Function::kAllocate) ? nullptr : counted(__libc_calloc(count, size));
}

void *realloc(void *memory, size_t size) {
  if (fails(Function::kAllocate)) return nullptr;
  uncount(memory);
  return counted(__libc_realloc(memory, size));
}

void free(void *memory) {
  uncount(memory);
  __libc_free(memory);
}

int open(const char *path, int flags, ...) {
  static const auto real = REAL(open);
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return fails(Function::kOpen) ? -1 : real(path, flags, mode);
}

FILE *fopen(const char *path, const char *how) {
  static const auto real = REAL(fopen);
  return fails(Function::kOpen) ? nullptr : real(path, how);
}

ssize_t read(int descriptor, void *bytes, size_t size) {
  static const auto real = REAL(read);
  return fails(Function::kReadFile) ? -1 : real(descriptor, bytes, size);
}

int fclose(FILE *file) {
  static const auto real = REAL(fclose);
  const int error = errno;
  if (!fails(Function::kCloseFile)) return real(file);
  const int wanted = errno;
  errno = error;
  real(file);
  errno = wanted;
  return EOF;
}

int socket(int domain, int type, int protocol) noexcept {
  static const auto real = REAL(socket);
  return fails(Function::kSocket) ? -1 : real(domain, type, protocol);
}

int setsockopt(int socket, int level, int option, const void *value, socklen_t size) noexcept {
  static const auto real = REAL(setsockopt);
  return fails(Function::kSetOption) ? -1 : real(socket, level, option, value, size);
}

int connect(int socket, const sockaddr *address, socklen_t size) {
  static const auto real = REAL(connect);
  return fails(Function::kConnect) ? -1 : real(socket, address, size);
}

ssize_t send(int socket, const void *bytes, size_t size, int flags) {
  static const auto real = REAL(send);
  return fails(Function::kSend) ? -1 : real(socket, bytes, size, flags);
}

ssize_t recv(int socket, void *bytes, size_t size, int flags) {
  static const auto real = REAL(recv);
  return fails(Function::kReceive) ? -1 : real(socket, bytes, size, flags);
}

}  // extern "C"
