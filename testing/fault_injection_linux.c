// A preload for tests (Linux: LD_PRELOAD, /proc/self/fd) that fails a chosen
// system call, as a full or failing disk would. Only calls on files below
// one folder count, so that the test program's own output is never hit.
//
//   ORU_FAULT_DIR=FOLDER     calls count only on files below FOLDER
//   ORU_FAULT=FUNCTION:N:KIND[,FUNCTION:N:KIND...]
//                            the Nth counted call of FUNCTION fails with
//                            KIND (EIO, ENOSPC or EDQUOT); KIND "half"
//                            makes a write or pwrite write half of its
//                            bytes, and the next call of it fail (ENOSPC)
//   ORU_FAULT_COUNTS=FILE    at exit, appends "FUNCTION COUNT" lines: how
//                            many calls of each function counted
//
// FUNCTION is one of write, pwrite, fsync, rename, ftruncate,
// copy_file_range, linkat, create (an open that may make the file).
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

enum Function { kWrite, kPwrite, kFsync, kRename, kFtruncate, kCopy, kLinkat, kCreate, kCount };

static const char* const kNames[kCount] = {"write",     "pwrite",          "fsync",  "rename",
                                           "ftruncate", "copy_file_range", "linkat", "create"};

enum { kMaxFaults = 4 };

struct Fault {
  int function;
  long call;
  int error; // 0: write half, then fail the next call
};

static atomic_long counted[kCount];
static struct Fault faults[kMaxFaults];
static int fault_count = 0;
static atomic_int half_pending[kCount];
static char folder[PATH_MAX];
static size_t folder_length = 0;

static void ParseFault(const char* text) {
  char name[64] = "";
  char kind[16] = "";
  long call = 0;
  if (fault_count == kMaxFaults || sscanf(text, "%63[^:]:%ld:%15[^,]", name, &call, kind) != 3) {
    return;
  }
  struct Fault* fault = &faults[fault_count];
  fault->function = -1;
  for (int i = 0; i < kCount; ++i) {
    if (strcmp(name, kNames[i]) == 0) {
      fault->function = i;
    }
  }
  fault->call = call;
  fault->error = strcmp(kind, "half") == 0     ? 0
                 : strcmp(kind, "EIO") == 0    ? EIO
                 : strcmp(kind, "EDQUOT") == 0 ? EDQUOT
                                               : ENOSPC;
  fault_count += fault->function >= 0;
}

static void ParseFaults(const char* text) {
  for (; text && *text; text = strchr(text, ',') ? strchr(text, ',') + 1 : NULL) {
    ParseFault(text);
  }
}

__attribute__((constructor)) static void Configure(void) {
  const char* dir = getenv("ORU_FAULT_DIR");
  if (dir && strlen(dir) < sizeof folder) {
    strcpy(folder, dir);
    folder_length = strlen(folder);
  }
  ParseFaults(getenv("ORU_FAULT"));
}

__attribute__((destructor)) static void WriteCounts(void) {
  const char* path = getenv("ORU_FAULT_COUNTS");
  FILE* out = path ? fopen(path, "a") : NULL;
  if (!out) {
    return;
  }
  for (int i = 0; i < kCount; ++i) {
    fprintf(out, "%s %ld\n", kNames[i], atomic_load(&counted[i]));
  }
  fclose(out);
}

static int Below(const char* path) {
  return folder_length > 0 && strncmp(path, folder, folder_length) == 0 &&
         (path[folder_length] == '/' || path[folder_length] == '\0');
}

static int FdBelow(int fd) {
  char link[64];
  char path[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const ssize_t length = readlink(link, path, sizeof path - 1);
  if (length <= 0) {
    return 0;
  }
  path[length] = '\0';
  return Below(path);
}

static int AtBelow(int dirfd, const char* name) {
  if (name[0] == '/') {
    return Below(name);
  }
  return dirfd == AT_FDCWD ? 0 : FdBelow(dirfd);
}

// Counts a call; the fault that this call is to meet, or NULL.
static const struct Fault* Hit(enum Function function) {
  const long call = atomic_fetch_add(&counted[function], 1) + 1;
  for (int i = 0; i < fault_count; ++i) {
    if (faults[i].function == (int)function && faults[i].call == call) {
      return &faults[i];
    }
  }
  return NULL;
}

// Whether a call fails with the error it returns (0: it goes through).
static int Failure(enum Function function) {
  const struct Fault* fault = Hit(function);
  return fault ? (fault->error ? fault->error : ENOSPC) : 0;
}

// Whether a call fails; if so, errno holds its error.
static int Fails(enum Function function) {
  const int error = Failure(function);
  if (error) {
    errno = error;
  }
  return error != 0;
}

#define REAL(name, type) ((type)dlsym(RTLD_NEXT, name))

// For a write of `count` bytes: the error it fails with, or 0 and in
// `allowed` how many bytes it may write.
static int WriteFailure(enum Function function, size_t count, size_t* allowed) {
  *allowed = count;
  if (atomic_exchange(&half_pending[function], 0)) {
    return ENOSPC;
  }
  const struct Fault* fault = Hit(function);
  if (!fault) {
    return 0;
  }
  if (fault->error == 0 && count >= 2) {
    *allowed = count / 2;
    atomic_store(&half_pending[function], 1);
    return 0;
  }
  return fault->error ? fault->error : ENOSPC;
}

ssize_t write(int fd, const void* data, size_t count) {
  typedef ssize_t (*Real)(int, const void*, size_t);
  if (FdBelow(fd)) {
    const int error = WriteFailure(kWrite, count, &count);
    if (error) {
      errno = error;
      return -1;
    }
  }
  return REAL("write", Real)(fd, data, count);
}

ssize_t pwrite(int fd, const void* data, size_t count, off_t offset) {
  typedef ssize_t (*Real)(int, const void*, size_t, off_t);
  if (FdBelow(fd)) {
    const int error = WriteFailure(kPwrite, count, &count);
    if (error) {
      errno = error;
      return -1;
    }
  }
  return REAL("pwrite", Real)(fd, data, count, offset);
}

int fsync(int fd) {
  typedef int (*Real)(int);
  if (FdBelow(fd) && Fails(kFsync)) {
    return -1;
  }
  return REAL("fsync", Real)(fd);
}

int ftruncate(int fd, off_t length) {
  typedef int (*Real)(int, off_t);
  if (FdBelow(fd) && Fails(kFtruncate)) {
    return -1;
  }
  return REAL("ftruncate", Real)(fd, length);
}

ssize_t copy_file_range(int in, off_t* in_offset, int out, off_t* out_offset, size_t count,
                        unsigned flags) {
  typedef ssize_t (*Real)(int, off_t*, int, off_t*, size_t, unsigned);
  if (FdBelow(out) && Fails(kCopy)) {
    return -1;
  }
  return REAL("copy_file_range", Real)(in, in_offset, out, out_offset, count, flags);
}

int rename(const char* from, const char* to) {
  typedef int (*Real)(const char*, const char*);
  if (Below(to) && Fails(kRename)) {
    return -1;
  }
  return REAL("rename", Real)(from, to);
}

int renameat(int from_dir, const char* from, int to_dir, const char* to) {
  typedef int (*Real)(int, const char*, int, const char*);
  if (AtBelow(to_dir, to) && Fails(kRename)) {
    return -1;
  }
  return REAL("renameat", Real)(from_dir, from, to_dir, to);
}

int linkat(int from_dir, const char* from, int to_dir, const char* to, int flags) {
  typedef int (*Real)(int, const char*, int, const char*, int);
  if (AtBelow(to_dir, to) && Fails(kLinkat)) {
    return -1;
  }
  return REAL("linkat", Real)(from_dir, from, to_dir, to, flags);
}

static mode_t ModeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | __O_TMPFILE)) ? (mode_t)va_arg(arguments, unsigned) : 0;
}

int openat(int dirfd, const char* name, int flags, ...) {
  typedef int (*Real)(int, const char*, int, ...);
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  if ((flags & O_CREAT) && AtBelow(dirfd, name) && Fails(kCreate)) {
    return -1;
  }
  return REAL("openat", Real)(dirfd, name, flags, mode);
}

int open(const char* name, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = ModeOf(flags, arguments);
  va_end(arguments);
  return openat(AT_FDCWD, name, flags, mode);
}

// The 64-bit names are the same calls on this system.
int open64(const char* name, int flags, ...) __attribute__((alias("open")));
int openat64(int dirfd, const char* name, int flags, ...) __attribute__((alias("openat")));
ssize_t pwrite64(int fd, const void* data, size_t count, off_t offset)
    __attribute__((alias("pwrite")));
int ftruncate64(int fd, off_t length) __attribute__((alias("ftruncate")));
