// Users and acting as them, over the POSIX password and group databases.
#include "platform/identity.h"

#include <cstdlib>
#include <errno.h>
#include <grp.h>
#include <mutex>
#include <pwd.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr size_t kPasswdBufferBytes = 16384;
constexpr int kMaxGroups = 256;

// The groups a user belongs to; at least its primary group.
std::vector<gid_t> GroupsOf(const UserRecord& user) {
  int count = kMaxGroups;
  std::vector<gid_t> groups(static_cast<size_t>(count));
  if (getgrouplist(user.name.c_str(), user.gid, groups.data(), &count) < 0 || count <= 0) {
    return {user.gid};
  }
  groups.resize(static_cast<size_t>(count));
  return groups;
}

// The last credentials looked up: a privileged run acts as one user many
// times, and each look-up reads the password and group databases.
std::mutex cache_mutex;
bool cache_valid = false;
uid_t cached_uid = 0;
gid_t cached_fallback = 0;
Credentials cached;

bool CopyEntry(const struct passwd* found, UserRecord& out) {
  if (!found) {
    return false;
  }
  out.uid = found->pw_uid;
  out.gid = found->pw_gid;
  out.name = found->pw_name ? found->pw_name : "";
  out.home = found->pw_dir ? found->pw_dir : "";
  return true;
}

} // namespace

bool LookUpUser(uid_t uid, UserRecord& out) {
  std::vector<char> buffer(kPasswdBufferBytes);
  struct passwd entry;
  struct passwd* found = nullptr;
  return getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 &&
         CopyEntry(found, out);
}

bool LookUpUserByName(const std::string& name, UserRecord& out) {
  std::vector<char> buffer(kPasswdBufferBytes);
  struct passwd entry;
  struct passwd* found = nullptr;
  return getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
         CopyEntry(found, out);
}

std::string EnvironmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

bool IsPrivileged() {
  return geteuid() == 0;
}

Credentials CredentialsOf(uid_t uid, gid_t fallback_gid) {
  const std::lock_guard<std::mutex> guard(cache_mutex);
  if (cache_valid && cached_uid == uid && cached_fallback == fallback_gid) {
    return cached;
  }
  Credentials credentials;
  credentials.uid = uid;
  UserRecord user;
  if (LookUpUser(uid, user)) {
    credentials.gid = user.gid;
    credentials.groups = GroupsOf(user);
  } else {
    credentials.gid = fallback_gid;
    credentials.groups = {fallback_gid};
  }
  cached = credentials;
  cached_uid = uid;
  cached_fallback = fallback_gid;
  cache_valid = true;
  return credentials;
}

ScopedActAsUser::ScopedActAsUser(uid_t uid, gid_t fallback_gid) {
  if (!IsPrivileged() || uid == 0) {
    return;
  }
  const Credentials target = CredentialsOf(uid, fallback_gid);
  saved_gid_ = getegid();
  const int count = getgroups(0, nullptr);
  saved_groups_.resize(count > 0 ? static_cast<size_t>(count) : 0);
  if (count < 0 || getgroups(count, saved_groups_.data()) != count) {
    ok_ = false;
    return;
  }
  // Groups and gid first: once the uid is the user's, they can no longer be
  // changed. The effective uid goes last and comes back first.
  switched_ = true;
  if (setgroups(target.groups.size(), target.groups.data()) != 0 || setegid(target.gid) != 0 ||
      seteuid(target.uid) != 0) {
    const int error = errno;
    Restore();
    errno = error;
    ok_ = false;
  }
}

ScopedActAsUser::~ScopedActAsUser() {
  const int saved = errno;
  Restore();
  errno = saved;
}

void ScopedActAsUser::Restore() {
  if (!switched_) {
    return;
  }
  switched_ = false;
  // The saved set-user-ID is still 0, so each of these succeeds whenever the
  // switch itself was allowed; nothing better can be done if one fails.
  (void)!seteuid(0);
  (void)!setegid(saved_gid_);
  (void)!setgroups(saved_groups_.size(), saved_groups_.data());
}

} // namespace platform
