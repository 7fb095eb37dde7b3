/* Preloaded into the agent by test_output_safety.py: holds open the moment
 * between choosing the output name and writing the file, so that a test can
 * act in it deterministically.
 *
 * The first call in a process named QS_GATE_PROGRAM that creates a file
 * (open/openat with O_CREAT, fopen for writing) outside /dev is the gate.
 * There the process copies its /proc/self/status (signal dispositions
 * included) to QS_GATE_DIR/ready.<pid> and waits (at most
 * 60 s) until QS_GATE_DIR/go exists, then goes on. QS_GATE_WHEN=after
 * waits after the call has created the file instead of before it;
 * QS_GATE_WHEN=kill kills the process with SIGKILL right after the file
 * was created. With QS_GATE_NO_LINKS=1, linkat() fails with EPERM as on a
 * file system without hard links. Built by the test: cc -shared -fPIC -o gate.so create_gate.c -ldl
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static int passed;

static int is_gate(const char* path, int creates) {
  const char* program = getenv("QS_GATE_PROGRAM");
  if (passed || !creates || path == NULL || strncmp(path, "/dev/", 5) == 0) return 0;
  if (program == NULL || strcmp(program_invocation_short_name, program) != 0) return 0;
  passed = 1;
  return 1;
}

static const char* when(void) {
  const char* w = getenv("QS_GATE_WHEN");
  return w != NULL ? w : "before";
}

static void wait_at_gate(void) {
  const char* dir = getenv("QS_GATE_DIR");
  char path[4096];
  struct timespec pause = {0, 10 * 1000 * 1000};
  int i;
  if (dir == NULL) return;
  char ready[4096];
  snprintf(ready, sizeof ready, "%s/ready.%ld", dir, (long)getpid());
  snprintf(path, sizeof path, "%s/status.%ld", dir, (long)getpid());
  /* Raw system calls: the interposed functions must not run again here.
   * The file is complete before it appears under its "ready" name. */
  int fd = (int)syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  int status = (int)syscall(SYS_openat, AT_FDCWD, "/proc/self/status", O_RDONLY | O_CLOEXEC);
  char buffer[8192];
  ssize_t n;
  while (fd >= 0 && status >= 0 && (n = read(status, buffer, sizeof buffer)) > 0) {
    if (write(fd, buffer, (size_t)n) != n) break;
  }
  if (status >= 0) close(status);
  if (fd >= 0) close(fd);
  rename(path, ready);
  snprintf(path, sizeof path, "%s/go", dir);
  for (i = 0; i < 6000; ++i) {
    struct stat st;
    if (stat(path, &st) == 0) return;
    nanosleep(&pause, NULL);
  }
}

static void before(const char* path, int creates, int* gated) {
  *gated = is_gate(path, creates);
  if (*gated && strcmp(when(), "before") == 0) wait_at_gate();
}

static void after(int gated, int ok) {
  if (!gated || !ok) return;
  if (strcmp(when(), "kill") == 0) raise(SIGKILL);
  if (strcmp(when(), "after") == 0) wait_at_gate();
}

static mode_t mode_arg(int flags, va_list ap) {
  return (flags & O_CREAT) ? (mode_t)va_arg(ap, int) : 0;
}

#define OPEN_LIKE(name)                                              \
  int name(const char* path, int flags, ...) {                       \
    static int (*real)(const char*, int, ...);                       \
    va_list ap;                                                      \
    int gated, fd;                                                   \
    mode_t mode;                                                     \
    va_start(ap, flags);                                             \
    mode = mode_arg(flags, ap);                                      \
    va_end(ap);                                                      \
    if (real == NULL) real = dlsym(RTLD_NEXT, #name);                \
    before(path, (flags & O_CREAT) != 0, &gated);                    \
    fd = real(path, flags, mode);                                    \
    after(gated, fd >= 0);                                           \
    return fd;                                                       \
  }

#define OPENAT_LIKE(name)                                            \
  int name(int dir, const char* path, int flags, ...) {              \
    static int (*real)(int, const char*, int, ...);                  \
    va_list ap;                                                      \
    int gated, fd;                                                   \
    mode_t mode;                                                     \
    va_start(ap, flags);                                             \
    mode = mode_arg(flags, ap);                                      \
    va_end(ap);                                                      \
    if (real == NULL) real = dlsym(RTLD_NEXT, #name);                \
    before(path, (flags & O_CREAT) != 0, &gated);                    \
    fd = real(dir, path, flags, mode);                               \
    after(gated, fd >= 0);                                           \
    return fd;                                                       \
  }

#define FOPEN_LIKE(name)                                             \
  FILE* name(const char* path, const char* mode) {                   \
    static FILE* (*real)(const char*, const char*);                  \
    int gated;                                                       \
    FILE* f;                                                         \
    if (real == NULL) real = dlsym(RTLD_NEXT, #name);                \
    before(path, strpbrk(mode, "wa") != NULL, &gated);               \
    f = real(path, mode);                                            \
    after(gated, f != NULL);                                         \
    return f;                                                        \
  }

OPEN_LIKE(open)
OPEN_LIKE(open64)
OPENAT_LIKE(openat)
OPENAT_LIKE(openat64)
FOPEN_LIKE(fopen)
FOPEN_LIKE(fopen64)

int linkat(int from_dir, const char* from, int to_dir, const char* to, int flags) {
  static int (*real)(int, const char*, int, const char*, int);
  const char* no_links = getenv("QS_GATE_NO_LINKS");
  if (no_links != NULL && strcmp(no_links, "1") == 0) {
    errno = EPERM;
    return -1;
  }
  if (real == NULL) real = dlsym(RTLD_NEXT, "linkat");
  return real(from_dir, from, to_dir, to, flags);
}
