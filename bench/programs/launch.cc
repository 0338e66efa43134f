// Runs a command on one CPU and tells what its process took: launch CPU RESULT COMMAND [ARGUMENT...]
// writes "NANOSECONDS BYTES" of CPU time and of memory at most to the file RESULT.
//
// It is small on purpose: a new process is charged for the memory of the one that started it, and
// an interpreter would be charged along.
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static long long nanoseconds(const struct timeval& time) {
  return time.tv_sec * 1000000000LL + time.tv_usec * 1000LL;
}

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s CPU RESULT COMMAND [ARGUMENT...]\n", argv[0]);
    return 2;
  }
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  CPU_SET(static_cast<size_t>(std::atoi(argv[1])), &cpus);
  if (sched_setaffinity(0, sizeof cpus, &cpus) != 0) {
    std::perror("sched_setaffinity");
    return 125;
  }
  pid_t child = 0;
  const int failed = posix_spawn(&child, argv[3], nullptr, nullptr, argv + 3, environ);
  if (failed != 0) {
    std::fprintf(stderr, "%s: %s\n", argv[3], std::strerror(failed));
    return 127;
  }
  int status = 0;
  struct rusage usage = {};
  while (wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) return 125;
  }
  std::FILE* result = std::fopen(argv[2], "w");
  if (result == nullptr) return 125;
  std::fprintf(result, "%lld %lld\n", nanoseconds(usage.ru_utime) + nanoseconds(usage.ru_stime),
               usage.ru_maxrss * 1024LL);
  if (std::fclose(result) != 0) return 125;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
