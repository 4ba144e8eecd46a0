/* Preloaded into vesk and veskd: notes the mode of every file and directory that they make, at the instant at which it
 * is there, and every later change of a mode. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/* The shell between the test and the programs makes files of its own. */
static int is_meant(void) {
  return strncmp(program_invocation_short_name, "vesk", 4) == 0;
}

static void note(const char *what, const char *path, unsigned mode) {
  const char *log = getenv("FILE_MODES_LOG");
  if (!log || !is_meant()) return;
  const int kept = errno;
  char line[4200];
  const int length = snprintf(line, sizeof line, "%s %04o %s\n", what, mode & 07777, path);
  const int to = (int)syscall(SYS_openat, AT_FDCWD, log, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (to >= 0) {
    if (syscall(SYS_write, to, line, length) != length) abort();
    close(to);
  }
  errno = kept;
}

static int is_there(int folder, const char *path) {
  struct stat about;
  const int kept = errno;
  const int there = fstatat(folder, path, &about, AT_SYMLINK_NOFOLLOW) == 0;
  errno = kept;
  return there;
}

static void note_made(int folder, const char *what, const char *path) {
  struct stat about;
  if (fstatat(folder, path, &about, AT_SYMLINK_NOFOLLOW) == 0) note(what, path, about.st_mode);
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

#define OPEN(name)                                                                       \
  int name(const char *path, int flags, ...) {                                           \
    va_list arguments;                                                                   \
    va_start(arguments, flags);                                                          \
    const mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(arguments, mode_t) : 0; \
    va_end(arguments);                                                                   \
    const int makes = (flags & O_CREAT) && !is_there(AT_FDCWD, path);                    \
    const int descriptor = REAL(name)(path, flags, mode);                                \
    if (makes && descriptor >= 0) note_made(AT_FDCWD, "file", path);                     \
    return descriptor;                                                                   \
  }
OPEN(open)
OPEN(open64)

#define OPENAT(name)                                                                     \
  int name(int folder, const char *path, int flags, ...) {                               \
    va_list arguments;                                                                   \
    va_start(arguments, flags);                                                          \
    const mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(arguments, mode_t) : 0; \
    va_end(arguments);                                                                   \
    const int makes = (flags & O_CREAT) && !is_there(folder, path);                      \
    const int descriptor = REAL(name)(folder, path, flags, mode);                        \
    if (makes && descriptor >= 0) note_made(folder, "file", path);                       \
    return descriptor;                                                                   \
  }
OPENAT(openat)
OPENAT(openat64)

#define FOPEN(name)                                       \
  FILE *name(const char *path, const char *how) {         \
    const int makes = !is_there(AT_FDCWD, path);          \
    FILE *file = REAL(name)(path, how);                   \
    if (makes && file) note_made(AT_FDCWD, "file", path); \
    return file;                                          \
  }
FOPEN(fopen)
FOPEN(fopen64)

#define MKOSTEMP(name)                                      \
  int name(char *path, int flags) {                         \
    const int descriptor = REAL(name)(path, flags);         \
    if (descriptor >= 0) note_made(AT_FDCWD, "file", path); \
    return descriptor;                                      \
  }
MKOSTEMP(mkostemp)
MKOSTEMP(mkostemp64)

int mkdir(const char *path, mode_t mode) {
  const int result = REAL(mkdir)(path, mode);
  if (result == 0) note_made(AT_FDCWD, "folder", path);
  return result;
}

int mkdirat(int folder, const char *path, mode_t mode) {
  const int result = REAL(mkdirat)(folder, path, mode);
  if (result == 0) note_made(folder, "folder", path);
  return result;
}

int chmod(const char *path, mode_t mode) {
  note("change", path, mode);
  return REAL(chmod)(path, mode);
}

int fchmod(int descriptor, mode_t mode) {
  note("change", "an open file", mode);
  return REAL(fchmod)(descriptor, mode);
}

int fchmodat(int folder, const char *path, mode_t mode, int flags) {
  note("change", path, mode);
  return REAL(fchmodat)(folder, path, mode, flags);
}
