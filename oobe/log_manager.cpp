#include "oobe/log_manager.h"

#include <algorithm>

namespace oobe {

LogManager& LogManager::Instance() {
  static LogManager manager;
  return manager;
}

LogManager::~LogManager() {
  for (auto& [name, targets] : registry_) {
    for (LogTargetBase* target : targets) {
      target->Close();
    }
  }
}

bool LogManager::AddTarget(LogTargetBase* target) {
  if (!target || !target->Open()) {
    return false;
  }
  std::vector<LogTargetBase*>& targets = registry_[target->GetName()];
  if (std::find(targets.begin(), targets.end(), target) != targets.end()) {
    return true;
  }
  targets.push_back(target);
  target->AddRef();
  return true;
}

bool LogManager::RemoveTarget(const std::string& name, LogTargetBase* target) {
  const auto found = registry_.find(name);
  if (!target || found == registry_.end()) {
    return false;
  }
  std::vector<LogTargetBase*>& targets = found->second;
  const auto position = std::find(targets.begin(), targets.end(), target);
  if (position == targets.end()) {
    return false;
  }
  targets.erase(position);
  if (targets.empty()) {
    registry_.erase(found);
  }
  target->Release();
  return target->RefCount() == 0 ? target->Close() : true;
}

void LogManager::Write(const std::string& name, int32_t level, const char* f1, const char* f2,
                       const char* f3, const char* f4, const char* f5, const char* f6,
                       const char* message, int64_t time_ms) {
  const auto found = registry_.find(name);
  if (found == registry_.end()) {
    return;
  }
  for (LogTargetBase* target : found->second) {
    target->Write(level, f1, f2, f3, f4, f5, f6, message, nullptr, time_ms, true);
  }
}

std::vector<LogTargetBase*> LogManager::TargetsNamed(const std::string& name) const {
  const auto found = registry_.find(name);
  return found == registry_.end() ? std::vector<LogTargetBase*>() : found->second;
}

} // namespace oobe
