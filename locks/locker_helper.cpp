// Takes a resource lock and holds it, as another process of the updater
// would. Usage: locker_helper RESOURCE
// Prints "locked" (or "busy") on standard output, then holds the lock until
// a line arrives on standard input (then unlocks and exits 0) or the process
// is killed. Exit status 1: the lock could not be taken.
#include "locks/resource_locker.h"

#include <cstdio>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: locker_helper RESOURCE\n");
    return 2;
  }
  esd::ResourceLocker locker(argv[1], 0);
  if (!locker.Lock()) {
    std::cout << "busy" << std::endl;
    return 1;
  }
  std::cout << "locked" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  return locker.Unlock(false) ? 0 : 3;
}
