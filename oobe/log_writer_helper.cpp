// A process of the product writing to a shared log, for the multi-process
// tests.
//   log_writer_helper write FOLDER FILE ID COUNT START_SECONDS PAD
//     registers a target on FOLDER/FILE, waits until standard input closes
//     (the start gate), then writes COUNT lines "p<ID> n<i> <PAD x's>", the
//     i-th stamped START_SECONDS + i, and unregisters.
//   log_writer_helper records FOLDER FILE ID COUNT PAD
//     writes COUNT records "<ID> r<i> <PAD x's>" at once and prints
//     "written <i>" for each that the library reports written.
//   log_writer_helper hold FOLDER FILE
//     takes the file's cross-process lock, prints "locked" and waits to be
//     killed.
#include "oobe/file_lock.h"
#include "oobe/log_manager.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <unistd.h>

namespace {

int WriteLines(char** argv) {
  const std::string folder = argv[2];
  const std::string file = argv[3];
  const std::string id = argv[4];
  const long count = std::stol(argv[5]);
  const long long start = std::stoll(argv[6]);
  const std::string pad(std::stoul(argv[7]), 'x');

  oobe::LogTargetDefault target("LOAD");
  if (!target.SetLogFile(file.c_str(), folder.c_str()) ||
      !oobe::LogManager::Instance().AddTarget(&target)) {
    return 1;
  }
  std::string gate;
  while (std::getline(std::cin, gate)) {
  }
  for (long i = 0; i < count; ++i) {
    const std::string message = "p" + id + " n" + std::to_string(i) + " " + pad;
    oobe::LogManager::Instance().Write("LOAD", oobe::kLevelInfo, "load", "helper", id.c_str(), "",
                                       "", "", message.c_str(), (start + i) * 1000);
  }
  return oobe::LogManager::Instance().RemoveTarget("LOAD", &target) ? 0 : 1;
}

int WriteRecords(char** argv) {
  const std::string id = argv[4];
  const long count = std::stol(argv[5]);
  const std::string pad(std::stoul(argv[6]), 'x');
  oobe::LogTargetDefault target("RECORDS");
  if (!target.SetLogFile(argv[3], argv[2]) || !oobe::LogManager::Instance().AddTarget(&target)) {
    return 1;
  }
  for (long i = 0; i < count; ++i) {
    const uint64_t unwritten = target.UnwrittenRecords();
    const std::string message = id + " r" + std::to_string(i) + " " + pad;
    oobe::LogManager::Instance().Write("RECORDS", oobe::kLevelInfo, "records", "helper", "", "", "",
                                       "", message.c_str(), 0);
    if (target.UnwrittenRecords() == unwritten) {
      std::cout << "written " << i << std::endl;
    }
  }
  return oobe::LogManager::Instance().RemoveTarget("RECORDS", &target) ? 0 : 1;
}

int HoldLock(char** argv) {
  const std::string path = std::string(argv[2]) + "/" + argv[3];
  oobe::FileLockHandle handle;
  if (!oobe::CreateFileLock(handle, path) || !oobe::LockFile(handle)) {
    return 1;
  }
  std::cout << "locked" << std::endl;
  while (true) {
    pause();
  }
}

} // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "write" && argc == 8) {
    return WriteLines(argv);
  }
  if (command == "records" && argc == 7) {
    return WriteRecords(argv);
  }
  if (command == "hold" && argc == 4) {
    return HoldLock(argv);
  }
  std::fprintf(stderr, "usage: log_writer_helper write FOLDER FILE ID COUNT START PAD | "
                       "records FOLDER FILE ID COUNT PAD | hold FOLDER FILE\n");
  return 2;
}
