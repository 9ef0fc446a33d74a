/* glibc's 64-bit time calls in fixed-width terms, so that time32_calls.c, which is built with
 * the 32-bit time of Debian's archives, can use them without either structure layout
 * crossing between the two files. Each returns 0, or -1 with errno set. */
#pragma once

#include <pthread.h>
#include <stdint.h>

struct linkrig_time {
  int64_t seconds;
  int32_t nanoseconds;
};

/* What the callers of stat read; times at full width. */
struct linkrig_stat {
  uint64_t dev, ino, rdev;
  uint32_t mode, nlink, uid, gid;
  int64_t size, blksize, blocks;
  struct linkrig_time atime, mtime, ctime;
};

int linkrig_clock_gettime64(int clock, struct linkrig_time* now);
int linkrig_clock_getres64(int clock, struct linkrig_time* resolution);
int linkrig_nanosleep64(const struct linkrig_time* duration, struct linkrig_time* left);
int linkrig_cond_timedwait64(pthread_cond_t* cond, pthread_mutex_t* mutex,
                             const struct linkrig_time* deadline);
/* fstatat(2); with AT_EMPTY_PATH and "" it is fstat of dirfd. */
int linkrig_fstatat64(int dirfd, const char* path, int flags, struct linkrig_stat* out);
/* times: two entries (access, modification), or NULL for now. */
int linkrig_utimensat64(int dirfd, const char* path, const struct linkrig_time* times, int flags);
