// Private kernel namespaces for tests that use machine-wide names: System V
// keys made from "/tmp", POSIX named semaphores in /dev/shm.
#ifndef ORU_TESTING_NAMESPACES_H
#define ORU_TESTING_NAMESPACES_H

namespace oru_testing {

// Gives this process (and its children) System V IPC of its own. Once per
// process; true when it is in force.
bool EnterPrivateIpcNamespace();

// EnterPrivateIpcNamespace, plus a mount namespace with an empty, private
// /dev/shm (where POSIX named semaphores live). No other folder is covered,
// so the programs under test stay reachable wherever the build is.
bool EnterPrivateIpcAndShm();

// In a private mount namespace (EnterPrivateIpcAndShm first): an empty,
// private /var/tmp. Anything the test runs from under /var/tmp is hidden
// afterwards.
bool MountPrivateVarTmp();

} // namespace oru_testing

#endif // ORU_TESTING_NAMESPACES_H
