#include "testing/sandbox.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <ftw.h>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace oru_testing {

namespace {

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "test support: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

std::string MakeTempRoot() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/oru-sandbox-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    Fail("mkdtemp " + pattern);
  }
  return pattern;
}

void MakeFolder(const std::string& path) {
  std::string level;
  size_t start = 1;
  while (start <= path.size()) {
    const size_t slash = path.find('/', start);
    level = path.substr(0, slash);
    if (mkdir(level.c_str(), 0700) != 0 && errno != EEXIST) {
      Fail("mkdir " + level);
    }
    if (slash == std::string::npos) {
      break;
    }
    start = slash + 1;
  }
}

int RemoveEntry(const char* path, const struct stat* info, int type, struct FTW*) {
  if (type == FTW_DP || type == FTW_D) {
    SetImmutable(path, false);
    rmdir(path);
    return 0;
  }
  if (S_ISREG(info->st_mode)) {
    SetImmutable(path, false);
  }
  unlink(path);
  return 0;
}

int UnlockEntry(const char* path, const struct stat* info, int, struct FTW*) {
  if (S_ISREG(info->st_mode) || S_ISDIR(info->st_mode)) {
    SetImmutable(path, false);
  }
  return 0;
}

} // namespace

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name) {
  setenv(name, value.c_str(), 1);
}

ScopedEnv::ScopedEnv(const char* name) : name_(name) {
  const char* old = std::getenv(name);
  had_value_ = old != nullptr;
  old_value_ = old ? old : "";
  unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (had_value_) {
    setenv(name_.c_str(), old_value_.c_str(), 1);
  } else {
    unsetenv(name_.c_str());
  }
}

Sandbox::Sandbox() : root_(MakeTempRoot()) {
  for (const std::string& folder : {home(), tmp()}) {
    MakeFolder(folder);
  }
  Set("HOME", home());
  Set("XDG_DATA_HOME", data_home());
  Set("XDG_CACHE_HOME", cache_home());
  Set("XDG_CONFIG_HOME", config_home());
  Set("XDG_STATE_HOME", state_home());
  Set("XDG_DATA_DIRS", local_data());
  Set("XDG_CONFIG_DIRS", local_config());
  Set("TMPDIR", tmp());
}

Sandbox::~Sandbox() {
  for (const auto& [name, old] : saved_) {
    if (old.first) {
      setenv(name.c_str(), old.second.c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  RemoveTree(root_);
}

void Sandbox::Set(const char* name, const std::string& value) {
  const char* old = std::getenv(name);
  saved_.emplace(name, std::make_pair(old != nullptr, old ? std::string(old) : std::string()));
  setenv(name, value.c_str(), 1);
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream stream(path, std::ios::binary | std::ios::trunc);
  stream << contents;
  if (!stream) {
    Fail("write " + path);
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    Fail("read " + path);
  }
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

void RemoveTree(const std::string& path) {
  // First unlock everything (a locked folder's entries cannot be removed),
  // then remove depth first. Links are not followed.
  nftw(path.c_str(), UnlockEntry, 64, FTW_PHYS);
  nftw(path.c_str(), RemoveEntry, 64, FTW_PHYS | FTW_DEPTH);
}

} // namespace oru_testing
