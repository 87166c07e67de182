#include "keykern/container/journal.h"

#include <certkern/errors.h>

#include <algorithm>
#include <string_view>

namespace keykern {
namespace {

constexpr char kNext[] = ".next";
constexpr char kCommit[] = ".commit";

bool HoldsSecrets(std::string_view name) { return name.starts_with("private-"); }

DWORD Unless(DWORD harmless, DWORD code) { return code == harmless ? ERROR_SUCCESS : code; }

DWORD RemoveFile(const Directory& directory, const std::string& name) {
  if (HoldsSecrets(name)) {
    if (const DWORD code = Unless(NTE_NOT_FOUND, directory.erase(name))) return code;
  }
  return Unless(NTE_NOT_FOUND, directory.unlink(name));
}

// ".next" and ".commit" have only files in them.
DWORD DestroyFiles(const Directory& parent, const std::string& name) {
  Directory directory;
  const DWORD entered = parent.enter(name, directory);
  if (entered) return Unless(NTE_NOT_FOUND, entered);
  std::vector<std::string> names;
  if (const DWORD code = directory.list(names)) return code;
  for (const std::string& file : names) {
    if (const DWORD code = RemoveFile(directory, file)) return code;
  }
  return parent.removeEmpty(name);
}

// What stops RemoveFile, found before it stops half way.
DWORD JudgeRemoval(const Directory& directory, const std::string& name) {
  if (const DWORD code = directory.judgeRemoval(name)) return code;
  return HoldsSecrets(name) ? directory.judgeErasure(name) : ERROR_SUCCESS;
}

DWORD JudgeFiles(const Directory& directory, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (const DWORD code = JudgeRemoval(directory, name)) return code;
  }
  return ERROR_SUCCESS;
}

}  // namespace

std::string PrivateFile(DWORD spec) { return "private-" + std::to_string(spec) + ".p8"; }
std::string PublicFile(DWORD spec) { return "public-" + std::to_string(spec) + ".der"; }
std::string CertificateFile(DWORD spec) { return "certificate-" + std::to_string(spec) + ".der"; }

DWORD ContainerFiles::open(const Directory& keys, const std::string& fileName) {
  if (const DWORD code = keys.enter(fileName, directory_)) return code;
  return Unless(NTE_NOT_FOUND, directory_.enter(kCommit, committed_));
}

DWORD ContainerFiles::read(const std::string& name, SecretBytes& content) const {
  if (committed_) {
    SecretBytes changed;
    const DWORD code = committed_.read(name, changed);
    if (code == ERROR_SUCCESS && changed.empty()) return NTE_NOT_FOUND;
    if (code == ERROR_SUCCESS) content = std::move(changed);
    if (code != NTE_NOT_FOUND) return code;
  }
  return directory_.read(name, content);
}

// Brings one committed file to its place. What it replaces is erased first: it counts no more.
DWORD ContainerFiles::settle(const std::string& name) {
  SecretBytes changed;
  if (const DWORD code = committed_.read(name, changed)) return code;
  if (changed.empty()) {
    if (const DWORD code = RemoveFile(directory_, name)) return code;
    return committed_.unlink(name);
  }
  if (HoldsSecrets(name)) {
    if (const DWORD code = Unless(NTE_NOT_FOUND, directory_.erase(name))) return code;
  }
  return committed_.moveTo(directory_, name, name);
}

DWORD ContainerFiles::finishEarlier() {
  if (committed_) {
    std::vector<std::string> names;
    if (const DWORD code = committed_.list(names)) return code;
    for (const std::string& name : names) {
      if (const DWORD code = settle(name)) return code;
    }
    // the files must be in their places for good before the directory that stands for them goes
    if (const DWORD code = directory_.sync()) return code;
    if (const DWORD code = directory_.removeEmpty(kCommit)) return code;
    committed_ = Directory();
  }
  return DestroyFiles(directory_, kNext);
}

DWORD ContainerFiles::change(const FileChanges& changes) {
  if (const DWORD code = finishEarlier()) return code;
  // once committed, a change that cannot come to its place would stand in the way of every later one
  for (const auto& [name, content] : changes) {
    if (const DWORD code = Unless(NTE_NOT_FOUND, JudgeRemoval(directory_, name))) return code;
  }
  Directory next;
  DWORD code = directory_.make(kNext, next);
  for (auto change = changes.begin(); !code && change != changes.end(); ++change) {
    code = next.write(change->first, change->second);
  }
  if (!code) code = next.sync();
  if (!code) code = directory_.moveTo(directory_, kNext, kCommit);
  if (code) {
    static_cast<void>(DestroyFiles(directory_, kNext));  // the failure before is the one to tell
    return code;
  }
  committed_ = std::move(next);
  if (const DWORD unsure = directory_.sync()) return unsure;
  static_cast<void>(finishEarlier());  // the change is valid; what is left undone the next writer does
  return ERROR_SUCCESS;
}

DWORD JudgeDestruction(const Directory& directory) {
  std::vector<std::string> names;
  if (const DWORD code = directory.list(names)) return code;
  for (const char* own : {kNext, kCommit}) {
    Directory inner;
    std::vector<std::string> files;
    const DWORD entered = directory.enter(own, inner);
    if (entered == NTE_NOT_FOUND) continue;
    if (entered) return entered;
    if (const DWORD code = inner.list(files)) return code;
    if (const DWORD code = JudgeFiles(inner, files)) return code;
    std::erase(names, own);
  }
  return JudgeFiles(directory, names);
}

DWORD DestroyDirectory(const Directory& parent, const std::string& name) {
  Directory directory;
  const DWORD entered = parent.enter(name, directory);
  if (entered) return Unless(NTE_NOT_FOUND, entered);
  if (const DWORD code = JudgeDestruction(directory)) return code;
  for (const char* own : {kNext, kCommit}) {
    if (const DWORD code = DestroyFiles(directory, own)) return code;
  }
  return DestroyFiles(parent, name);
}

}  // namespace keykern
