// A throw-away home for one test: a fresh temporary folder with HOME, the
// XDG base directory variables and TMPDIR pointing into it, so that nothing
// the code under test looks up lies outside. Everything is put back, and the
// folder removed, on destruction.
#ifndef ORU_TESTING_SANDBOX_H
#define ORU_TESTING_SANDBOX_H

#include <map>
#include <string>

namespace oru_testing {

// Sets (or, with `unset`, removes) one environment variable for its lifetime.
class ScopedEnv {
public:
  ScopedEnv(const char* name, const std::string& value);
  explicit ScopedEnv(const char* name); // unsets
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
  std::string name_;
  bool had_value_;
  std::string old_value_;
};

class Sandbox {
public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  const std::string& root() const { return root_; }
  std::string home() const { return root_ + "/home"; }
  std::string data_home() const { return root_ + "/home/.local/share"; }
  std::string cache_home() const { return root_ + "/home/.cache"; }
  std::string config_home() const { return root_ + "/home/.config"; }
  std::string state_home() const { return root_ + "/home/.local/state"; }
  std::string local_data() const { return root_ + "/local/share"; }
  std::string local_config() const { return root_ + "/local/xdg"; }
  std::string tmp() const { return root_ + "/tmp"; }

  // A path under the root, for the test's own files.
  std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

private:
  void Set(const char* name, const std::string& value);

  std::string root_;
  std::map<std::string, std::pair<bool, std::string>> saved_;
};

// Small file helpers for tests; they abort the test program on failure.
void WriteFile(const std::string& path, const std::string& contents);
std::string ReadFile(const std::string& path);

// Removes a tree without using the code under test, clearing the immutable
// attribute where it is set.
void RemoveTree(const std::string& path);

// Sets or clears the immutable attribute; false where the file system has
// none or the caller may not change it.
bool SetImmutable(const std::string& path, bool immutable);

} // namespace oru_testing

#endif // ORU_TESTING_SANDBOX_H
