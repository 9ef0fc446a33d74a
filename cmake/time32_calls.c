/* Debian 12 builds its 32-bit libraries with a 32-bit time_t, the static archives linked into
 * linkrig included: libdbus-1, dbus-c++, the Avahi client, libnl, libubootenv, Boost and the
 * C++ runtime call glibc's 32-bit time functions, which fail with EOVERFLOW from 2038-01-19
 * on and leave their results unset; their callers do not look. Linked with
 * --wrap=NAME (cmake/Time.cmake), each such call comes here instead and is answered by
 * glibc's 64-bit function through time64_calls.c, converted explicitly:
 *
 *   - a time handed in (a sleep, a deadline, file times) widens exactly;
 *   - a time handed out keeps its low 32 bits: from 2038 on the archives see the clock wrap
 *     instead of garbage. They use these readings to measure intervals (time-outs, poll
 *     loops), which stay right across the wrap except at its instant; the monotonic clock,
 *     which the waits use, never comes near it;
 *   - a file's times keep their low 32 bits too, where glibc would fail the whole stat: what
 *     linkrig has the archives read is sizes and types, never those times.
 *
 * This file speaks the archives' language: the build's 64-bit switches are undone here. */
#undef _TIME_BITS
#undef _FILE_OFFSET_BITS
#define _GNU_SOURCE 1

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>

#include "time64_calls.h"

_Static_assert(sizeof(time_t) == 4, "the archives' time_t is 32 bits wide");

/* The low 32 bits, as a 32-bit clock shows the time (two's complement, as GCC defines). */
static time_t narrow(int64_t seconds) { return (time_t)(int32_t)(uint32_t)(uint64_t)seconds; }

static struct timespec narrow_timespec(const struct linkrig_time* t) {
  struct timespec out = {narrow(t->seconds), t->nanoseconds};
  return out;
}

static struct linkrig_time widen(const struct timespec* t) {
  struct linkrig_time out = {t->tv_sec, (int32_t)t->tv_nsec};
  return out;
}

int __wrap_clock_gettime(clockid_t clock, struct timespec* now);
int __wrap_clock_getres(clockid_t clock, struct timespec* resolution);
int __wrap_gettimeofday(struct timeval* now, void* zone);
time_t __wrap_time(time_t* now);
int __wrap_nanosleep(const struct timespec* duration, struct timespec* left);
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const struct timespec* deadline);
int __wrap_stat(const char* path, struct stat* out);
int __wrap_stat64(const char* path, struct stat64* out);
int __wrap_lstat64(const char* path, struct stat64* out);
int __wrap_fstat64(int fd, struct stat64* out);
int __wrap_utimensat(int dirfd, const char* path, const struct timespec times[2], int flags);

int __wrap_clock_gettime(clockid_t clock, struct timespec* now) {
  struct linkrig_time value;
  if (linkrig_clock_gettime64(clock, &value) != 0) return -1;
  *now = narrow_timespec(&value);
  return 0;
}

int __wrap_clock_getres(clockid_t clock, struct timespec* resolution) {
  struct linkrig_time value;
  if (linkrig_clock_getres64(clock, &value) != 0) return -1;
  if (resolution != NULL) *resolution = narrow_timespec(&value);
  return 0;
}

/* Callers pass no time zone: the kernel's is obsolete, and none of them asks for it. */
int __wrap_gettimeofday(struct timeval* now, void* zone) {
  struct linkrig_time value;
  (void)zone;
  if (linkrig_clock_gettime64(CLOCK_REALTIME, &value) != 0) return -1;
  if (now != NULL) {
    now->tv_sec = narrow(value.seconds);
    now->tv_usec = value.nanoseconds / 1000;
  }
  return 0;
}

time_t __wrap_time(time_t* now) {
  struct linkrig_time value;
  if (linkrig_clock_gettime64(CLOCK_REALTIME, &value) != 0) return (time_t)-1;
  const time_t seconds = narrow(value.seconds);
  if (now != NULL) *now = seconds;
  return seconds;
}

int __wrap_nanosleep(const struct timespec* duration, struct timespec* left) {
  const struct linkrig_time wanted = widen(duration);
  struct linkrig_time remaining;
  const int result = linkrig_nanosleep64(&wanted, &remaining);
  if (left != NULL) *left = narrow_timespec(&remaining);
  return result;
}

/* The one caller, libdbus, sets its condition variables to the monotonic clock, whose
 * deadlines fit in 32 bits; a deadline on the wall clock widens as its caller computed it. */
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const struct timespec* deadline) {
  const struct linkrig_time until = widen(deadline);
  return linkrig_cond_timedwait64(cond, mutex, &until);
}

/* Fills one of the archives' two stat layouts (32-bit or 64-bit sizes); false when a size or
 * an inode number does not fit, which glibc's own call reports as EOVERFLOW too. */
#define LINKRIG_STAT_FILLER(name, type)                                             \
  static int name(const struct linkrig_stat* in, type* out) {                       \
    memset(out, 0, sizeof *out);                                                    \
    out->st_dev = in->dev;                                                          \
    out->st_ino = in->ino;                                                          \
    out->st_rdev = in->rdev;                                                        \
    out->st_mode = in->mode;                                                        \
    out->st_nlink = in->nlink;                                                      \
    out->st_uid = in->uid;                                                          \
    out->st_gid = in->gid;                                                          \
    out->st_size = in->size;                                                        \
    out->st_blksize = in->blksize;                                                  \
    out->st_blocks = in->blocks;                                                    \
    out->st_atim = narrow_timespec(&in->atime);                                     \
    out->st_mtim = narrow_timespec(&in->mtime);                                     \
    out->st_ctim = narrow_timespec(&in->ctime);                                     \
    return (int64_t)out->st_size == in->size && (uint64_t)out->st_ino == in->ino && \
           (int64_t)out->st_blocks == in->blocks;                                   \
  }
LINKRIG_STAT_FILLER(fill_stat, struct stat)
LINKRIG_STAT_FILLER(fill_stat64_fields, struct stat64)

static int fill_stat64(const struct linkrig_stat* in, struct stat64* out) {
  const int fits = fill_stat64_fields(in, out);
#ifdef _HAVE_STAT64___ST_INO
  out->__st_ino = (__ino_t)in->ino; /* the old 32-bit field, as glibc fills it */
#endif
  return fits;
}

static int stat64_of(int dirfd, const char* path, int flags, struct stat64* out) {
  struct linkrig_stat in;
  if (linkrig_fstatat64(dirfd, path, flags, &in) != 0) return -1;
  if (!fill_stat64(&in, out)) {
    errno = EOVERFLOW;
    return -1;
  }
  return 0;
}

int __wrap_stat(const char* path, struct stat* out) {
  struct linkrig_stat in;
  if (linkrig_fstatat64(AT_FDCWD, path, 0, &in) != 0) return -1;
  if (!fill_stat(&in, out)) {
    errno = EOVERFLOW;
    return -1;
  }
  return 0;
}

int __wrap_stat64(const char* path, struct stat64* out) {
  return stat64_of(AT_FDCWD, path, 0, out);
}

int __wrap_lstat64(const char* path, struct stat64* out) {
  return stat64_of(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, out);
}

int __wrap_fstat64(int fd, struct stat64* out) { return stat64_of(fd, "", AT_EMPTY_PATH, out); }

int __wrap_utimensat(int dirfd, const char* path, const struct timespec times[2], int flags) {
  if (times == NULL) return linkrig_utimensat64(dirfd, path, NULL, flags);
  const struct linkrig_time values[2] = {widen(&times[0]), widen(&times[1])};
  return linkrig_utimensat64(dirfd, path, values, flags);
}
