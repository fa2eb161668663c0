/* The floor of the hand-over benchmark, in C and without any of the
 * project's code: block on the rendezvous semaphore until it is posted,
 * remove it, and start the app in a new session with its standard streams on
 * /dev/null, as the launcher does. The same system calls and nothing else.
 * Usage: handover_floor KEY APP ARGUMENT... (KEY: the System V key, decimal) */
#define _GNU_SOURCE /* POSIX_SPAWN_SETSID */
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/sem.h>

extern char** environ;

int main(int argc, char** argv) {
  if (argc < 3) {
    return 2;
  }
  const int set = semget((key_t)strtol(argv[1], NULL, 10), 1, 0);
  struct sembuf take = {0, -1, 0};
  while (set >= 0 && semop(set, &take, 1) != 0 && errno == EINTR) {
  }
  if (set < 0) {
    return 1;
  }
  semctl(set, 0, IPC_RMID);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  return posix_spawn(&child, argv[2], &actions, &attributes, argv + 2, environ) == 0 ? 0 : 1;
}
