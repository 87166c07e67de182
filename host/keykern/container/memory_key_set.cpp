// The key set of a verify context, which lives as long as the provider.
#include "keykern/container/container.h"
#include "keykern/container/info.h"

#include <map>
#include <mutex>

namespace keykern {
namespace {

class MemoryKeySet final : public KeySet {
 public:
  bool persistent() const override { return false; }

  DWORD load(DWORD spec, KeyRecord& key) override {
    const std::lock_guard lock(mutex_);
    const auto found = keys_.find(spec);
    if (found == keys_.end()) return NTE_NO_KEY;
    key = found->second;
    return ERROR_SUCCESS;
  }

  DWORD loadPublic(DWORD spec, PublicKeyPtr& key, ALG_ID& algorithm, bool& exportable) override {
    KeyRecord record;
    if (const DWORD code = load(spec, record)) return code;
    key = record.key->publicKey();
    algorithm = record.algorithm;
    exportable = record.exportable;
    return ERROR_SUCCESS;
  }

  DWORD store(DWORD spec, const KeyRecord& key) override {
    if (const DWORD code = JudgeRecord(spec, key)) return code;
    const std::lock_guard lock(mutex_);
    keys_[spec] = key;
    certificates_.erase(spec);
    return ERROR_SUCCESS;
  }

  DWORD certificate(DWORD spec, SecretBytes& encoded) override {
    const std::lock_guard lock(mutex_);
    const auto found = certificates_.find(spec);
    if (found == certificates_.end()) return NTE_NOT_FOUND;
    encoded = found->second;
    return ERROR_SUCCESS;
  }

  DWORD setCertificate(DWORD spec, std::span<const BYTE> encoded) override {
    const std::lock_guard lock(mutex_);
    if (!keys_.contains(spec)) return NTE_NO_KEY;
    certificates_.erase(spec);
    if (!encoded.empty()) certificates_[spec] = certkern::ToSecret(encoded);
    return ERROR_SUCCESS;
  }

  DWORD extensions(std::vector<ContainerExtension>& all) override {
    const std::lock_guard lock(mutex_);
    all = extensions_;
    return ERROR_SUCCESS;
  }

  DWORD setExtension(const ContainerExtension& extension) override {
    const std::lock_guard lock(mutex_);
    return PutExtension(extensions_, extension);
  }

  DWORD presentPin(std::span<const BYTE>) override { return ERROR_SUCCESS; }
  DWORD changePin(std::span<const BYTE>) override { return ERROR_SUCCESS; }
  bool needsPin() const override { return false; }

 private:
  std::mutex mutex_;
  std::map<DWORD, KeyRecord> keys_;
  std::map<DWORD, SecretBytes> certificates_;
  std::vector<ContainerExtension> extensions_;
};

}  // namespace

std::unique_ptr<KeySet> NewMemoryKeySet() { return std::make_unique<MemoryKeySet>(); }

}  // namespace keykern
