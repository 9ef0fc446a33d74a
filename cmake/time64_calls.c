/* The 64-bit side of time32_calls.c, built like the rest of the program (64-bit time_t). */
#include "time64_calls.h"

#include <stddef.h>
#include <sys/stat.h>
#include <time.h>

_Static_assert(sizeof(time_t) == 8, "built with 64-bit time_t");

static struct timespec to_timespec(const struct linkrig_time* t) {
  struct timespec out = {t->seconds, t->nanoseconds};
  return out;
}

static struct linkrig_time from_timespec(const struct timespec* t) {
  struct linkrig_time out = {t->tv_sec, (int32_t)t->tv_nsec};
  return out;
}

int linkrig_clock_gettime64(int clock, struct linkrig_time* now) {
  struct timespec value;
  if (clock_gettime(clock, &value) != 0) return -1;
  *now = from_timespec(&value);
  return 0;
}

int linkrig_clock_getres64(int clock, struct linkrig_time* resolution) {
  struct timespec value;
  if (clock_getres(clock, &value) != 0) return -1;
  *resolution = from_timespec(&value);
  return 0;
}

int linkrig_nanosleep64(const struct linkrig_time* duration, struct linkrig_time* left) {
  const struct timespec wanted = to_timespec(duration);
  struct timespec remaining = {0, 0};
  const int result = nanosleep(&wanted, &remaining);
  if (left != NULL) *left = from_timespec(&remaining);
  return result;
}

int linkrig_cond_timedwait64(pthread_cond_t* cond, pthread_mutex_t* mutex,
                             const struct linkrig_time* deadline) {
  const struct timespec until = to_timespec(deadline);
  return pthread_cond_timedwait(cond, mutex, &until);
}

int linkrig_fstatat64(int dirfd, const char* path, int flags, struct linkrig_stat* out) {
  struct stat st;
  if (fstatat(dirfd, path, &st, flags) != 0) return -1;
  out->dev = st.st_dev;
  out->ino = st.st_ino;
  out->rdev = st.st_rdev;
  out->mode = st.st_mode;
  out->nlink = st.st_nlink;
  out->uid = st.st_uid;
  out->gid = st.st_gid;
  out->size = st.st_size;
  out->blksize = st.st_blksize;
  out->blocks = st.st_blocks;
  out->atime = from_timespec(&st.st_atim);
  out->mtime = from_timespec(&st.st_mtim);
  out->ctime = from_timespec(&st.st_ctim);
  return 0;
}

int linkrig_utimensat64(int dirfd, const char* path, const struct linkrig_time* times, int flags) {
  if (times == NULL) return utimensat(dirfd, path, NULL, flags);
  const struct timespec values[2] = {to_timespec(&times[0]), to_timespec(&times[1])};
  return utimensat(dirfd, path, values, flags);
}
