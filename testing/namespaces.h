// Private kernel namespaces for tests that use machine-wide names: System V
// keys made from "/tmp", POSIX named semaphores in /dev/shm.
#ifndef ORU_TESTING_NAMESPACES_H
#define ORU_TESTING_NAMESPACES_H

#include <string>
#include <sys/types.h>

namespace oru_testing {

// Gives this process (and its children) System V IPC of its own. Once per
// process; true when it is in force.
bool EnterPrivateIpcNamespace();

// EnterPrivateIpcNamespace, plus a mount namespace with an empty, private
// /dev/shm (where POSIX named semaphores live). No other folder is covered,
// so the programs under test stay reachable wherever the build is.
bool EnterPrivateIpcAndShm();

// In a private mount namespace (EnterPrivateIpcAndShm first): an empty,
// private /var/tmp, in which the entries that hold this test program or its
// working folder (a checkout cloned under /var/tmp) are bound back, so that
// the programs under test stay reachable wherever the build is.
bool MountPrivateVarTmp();

// In a private mount namespace (EnterPrivateIpcAndShm first): a console
// user as a desktop has one. A private /run holds logind's seat0 state
// naming `uid` as its active user, and a password database bound over
// /etc/passwd holds the machine's entries plus one for `uid` (group `uid`)
// with `home`. `scratch` is a folder for the database's file.
bool MountConsoleUser(const std::string& scratch, uid_t uid, const std::string& home);

} // namespace oru_testing

#endif // ORU_TESTING_NAMESPACES_H
