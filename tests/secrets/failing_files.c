/* Preloaded into vesk and veskd: one call of a function that makes or writes files fails as on a full disk. FAILING
 * names the function and the number of its call, from 0, as in "write 2", and behind them the error if it is another;
 * the file that FAILED names is there once it failed. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static int fails(const char *name, atomic_int *count) {
  const char *failing = getenv("FAILING");
  const size_t length = strlen(name);
  if (!failing || strncmp(program_invocation_short_name, "vesk", 4) != 0) return 0;
  if (strncmp(failing, name, length) != 0 || failing[length] != ' ') return 0;
  char *error = NULL;
  if (atomic_fetch_add(count, 1) != strtol(failing + length, &error, 10)) return 0;
  close((int)syscall(SYS_openat, AT_FDCWD, getenv("FAILED"), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  errno = *error == ' ' ? atoi(error) : ENOSPC;
  return 1;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

#define FAILING(type, name, parameters, arguments) \
  type name parameters {                           \
    static atomic_int count;                       \
    if (fails(#name, &count)) return -1;           \
    return REAL(name) arguments;                   \
  }

/* Streams and sockets are not meant: a descriptor of a regular file is. */
ssize_t write(int descriptor, const void *bytes, size_t size) {
  static atomic_int count;
  struct stat about;
  if (fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode) && descriptor > 2 && fails("write", &count)) return -1;
  return REAL(write)(descriptor, bytes, size);
}

FAILING(int, fsync, (int descriptor), (descriptor))
FAILING(int, fdatasync, (int descriptor), (descriptor))
FAILING(int, ftruncate, (int descriptor, off_t size), (descriptor, size))
FAILING(int, link, (const char *from, const char *to), (from, to))
FAILING(int, rename, (const char *from, const char *to), (from, to))
FAILING(int, mkostemp, (char *path, int flags), (path, flags))
FAILING(int, mkdir, (const char *path, mode_t mode), (path, mode))

int open(const char *path, int flags, ...) {
  static atomic_int count;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if ((flags & O_CREAT) && fails("open", &count)) return -1;
  return REAL(open)(path, flags, mode);
}
