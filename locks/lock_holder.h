// Who holds a resource lock: a record file beside the resource
// ("NuvexUpdaterPrefs.dat.holder" for "NuvexUpdaterPrefs.dat") that the
// holder keeps locked (platform/open_file_lock.h) while it holds or takes
// the resource's named semaphore, and that names it:
//   "pid=1234 taken=1763906102123456789\n"
// The kernel drops the record's lock when its holder dies, so a record
// that is there while its lock is free was left by a process that died
// holding (or taking) the semaphore: that semaphore is stale and may be
// removed. A semaphore with no record was taken by a program that keeps
// none, and nothing here ever judges it.
#ifndef ORU_LOCKS_LOCK_HOLDER_H
#define ORU_LOCKS_LOCK_HOLDER_H

#include "platform/scoped_fd.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace esd {

constexpr const char* kHolderRecordSuffix = ".holder";

// The record path of a resource, empty for a resource that is not an
// absolute file path (such a lock keeps no record).
std::string HolderRecordPath(const std::string& resource);

struct HolderRecord {
  pid_t pid = 0;
  uint64_t takenNanoseconds = 0; // when it was written (realtime clock)
  bool empty() const { return pid <= 0; }
  bool operator==(const HolderRecord& other) const {
    return pid == other.pid && takenNanoseconds == other.takenNanoseconds;
  }
};

// The record of one resource, as its holder keeps it.
class HolderRecordFile {
public:
  // Opens (or makes) the record; false leaves a lock without record.
  bool Open(const std::string& resource);
  bool IsOpen() const { return file_.valid(); }

  // Takes the record's lock without waiting.
  bool TryLock();
  void Unlock();
  // The record as it stands, while the lock is held.
  HolderRecord Read() const;
  bool WriteThisProcess();
  bool Clear();

private:
  static constexpr ssize_t kUnknownBytes = -1;

  platform::ScopedFd file_;
  // The file's length as this process last read or left it while holding
  // the record's lock (nobody else writes it then), so that a write over an
  // empty record need not cut anything off after it.
  mutable ssize_t bytes_ = kUnknownBytes;
};

// What a look from outside sees; takes and changes nothing.
struct HolderView {
  enum class Record {
    kNone, // no record file, or it names nobody: the holder (if any) keeps none
    kLive, // a process holds the record's lock: it holds or is taking the semaphore
    kDead, // a record whose process is gone: its semaphore, if any, is stale
  };
  Record record = Record::kNone;
  HolderRecord holder;
};
HolderView LookAtHolder(const std::string& resource);

} // namespace esd

#endif // ORU_LOCKS_LOCK_HOLDER_H
