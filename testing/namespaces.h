// Private kernel namespaces for tests that use machine-wide names: System V
// keys made from "/tmp", POSIX named semaphores in /dev/shm.
#ifndef ORU_TESTING_NAMESPACES_H
#define ORU_TESTING_NAMESPACES_H

namespace oru_testing {

// Gives this process (and its children) System V IPC of its own. Once per
// process; true when it is in force.
bool EnterPrivateIpcNamespace();

// EnterPrivateIpcNamespace, plus a mount namespace with empty, private /tmp,
// /var/tmp and /dev/shm. Call before making a Sandbox (which lives under
// /tmp).
bool EnterPrivateIpcAndTmp();

} // namespace oru_testing

#endif // ORU_TESTING_NAMESPACES_H
