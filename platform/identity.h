// Who this process is, who other users are, and acting as another user for
// a while.
//
// A privileged process (effective uid 0) that works inside a folder owned by
// another user does that work as that user: whatever it creates belongs to
// the user, and it can reach nothing the user could not.
#ifndef ORU_PLATFORM_IDENTITY_H
#define ORU_PLATFORM_IDENTITY_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace platform {

// A user of the password database.
struct UserRecord {
  uid_t uid = 0;
  gid_t gid = 0;
  std::string name;
  std::string home;
};

// The password-database entry of `uid` / of the user called `name`; false
// when there is none.
bool LookUpUser(uid_t uid, UserRecord& out);
bool LookUpUserByName(const std::string& name, UserRecord& out);

// The value of an environment variable, or the empty string when unset.
std::string EnvironmentVariable(const char* name);

// True when the process runs with an effective uid of 0.
bool IsPrivileged();

// Everything the kernel checks access against: uid, primary group and
// supplementary groups.
struct Credentials {
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;
};

// The credentials of `uid`: its password-database group and memberships, or,
// for a uid without an entry (a bare number), `fallback_gid` alone.
Credentials CredentialsOf(uid_t uid, gid_t fallback_gid);

// While it lives, the process acts as `uid` (effective uid, effective gid and
// supplementary groups) when it is privileged and `uid` is another user;
// otherwise it changes nothing. Everything is put back on destruction.
// `ok()` is false when the switch failed: the caller must then not do the
// work, since it would be done with more rights than the user has.
class ScopedActAsUser {
public:
  ScopedActAsUser(uid_t uid, gid_t fallback_gid);
  ~ScopedActAsUser();
  ScopedActAsUser(const ScopedActAsUser&) = delete;
  ScopedActAsUser& operator=(const ScopedActAsUser&) = delete;

  bool ok() const { return ok_; }

private:
  void Restore();

  bool switched_ = false;
  bool ok_ = true;
  gid_t saved_gid_ = 0;
  std::vector<gid_t> saved_groups_;
};

} // namespace platform

#endif // ORU_PLATFORM_IDENTITY_H
