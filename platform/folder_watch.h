// Waiting for something to change in a folder: a file made, written,
// renamed or removed there. Where the system tells of such changes, the
// wait ends when one happens; elsewhere it ends after a short pause, and the
// waiter looks for itself.
#ifndef ORU_PLATFORM_FOLDER_WATCH_H
#define ORU_PLATFORM_FOLDER_WATCH_H

#include "platform/scoped_fd.h"

#include <string>

namespace platform {

class FolderWatch {
public:
  // Starts watching `folder`. False, with errno, when no watching can be
  // set up at all; a folder that is not there (yet) is not watched, and
  // each wait then lasts its whole timeout.
  bool Start(const std::string& folder);

  // Waits until something in the folder changed, or `timeout_ms` passed,
  // or a signal came. False, with errno, when waiting itself failed.
  bool Wait(int timeout_ms);

private:
  ScopedFd events_;
};

} // namespace platform

#endif // ORU_PLATFORM_FOLDER_WATCH_H
