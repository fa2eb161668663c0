// Stands in for the Zelto application in tests, the demo and the benchmark.
// At its first instruction it reads the monotonic clock; it then writes a
// record next to its executable ("<argv[0]>.record": the start time in
// nanoseconds and, after a blank, "uid=U gid=G groups=G1,G2" of the process,
// then each argument, one per line, argv[0] first), renamed
// into place so that a reader never sees half of it, and finally writes one
// byte to "<argv[0]>.fifo" if someone is listening there.
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <time.h>
#include <unistd.h>

int main(int argc, char** argv) {
  struct timespec started;
  clock_gettime(CLOCK_MONOTONIC, &started);
  if (argc < 1) {
    return 1;
  }
  const std::string self = argv[0];
  std::string record =
      std::to_string(static_cast<long long>(started.tv_sec) * 1000000000LL + started.tv_nsec) +
      " uid=" + std::to_string(getuid()) + " gid=" + std::to_string(getgid()) + " groups=";
  gid_t groups[64];
  const int count = getgroups(64, groups);
  for (int i = 0; i < count; ++i) {
    record += (i > 0 ? "," : "") + std::to_string(groups[i]);
  }
  record += "\n";
  for (int i = 0; i < argc; ++i) {
    record += argv[i];
    record += '\n';
  }
  const std::string partial = self + ".record.partial";
  FILE* out = std::fopen(partial.c_str(), "w");
  if (!out) {
    return 1;
  }
  std::fwrite(record.data(), 1, record.size(), out);
  std::fclose(out);
  std::rename(partial.c_str(), (self + ".record").c_str());
  const int fifo = open((self + ".fifo").c_str(), O_WRONLY | O_NONBLOCK);
  if (fifo >= 0) {
    (void)!write(fifo, "1", 1);
    close(fifo);
  }
  return 0;
}
