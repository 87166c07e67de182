#include "keykern/container/disk_key_set.h"

#include "common/der.h"
#include "keykern/container/paths.h"
#include "keykern/key/key_codec.h"
#include "platform/limits.h"

namespace keykern {
namespace {

namespace der = certkern::der;
using Lock = Directory::Lock;

// EncryptedPrivateKeyInfo begins with an algorithm, PrivateKeyInfo with its version.
bool IsSealed(std::span<const BYTE> privateInfo) {
  der::Reader in(privateInfo), body;
  return in.take(der::kSequence, body) && body.nextTag() == der::kSequence;
}

// What is missing of a container that lists it is damage.
DWORD Expected(DWORD code) { return code == NTE_NOT_FOUND ? NTE_BAD_KEYSET : code; }

bool IsHalfOf(const StoredKey& stored, const PrivateKey& key) {
  PublicKeyPtr half;
  if (ParsePublicKeyInfo(stored.publicInfo, half)) return false;
  const FamilyRow* family = FindFamily(stored.row.algorithm);
  const SecretBytes print = Fingerprint(*half);
  return family && family->family == key.family() && !print.empty() && print == Fingerprint(*key.publicKey());
}

// Bytes that a wrong PIN gives are no PrivateKeyInfo; one whose inside is not right is damage.
DWORD ParseStored(const StoredKey& stored, bool wasSealed, std::span<const BYTE> info, PrivateKeyPtr& key) {
  PrivateKeyPtr parsed;
  const DWORD code = ParsePrivateKeyInfo(info, parsed);
  if (code == NTE_BAD_DATA && wasSealed) return SCARD_W_WRONG_CHV;
  if (code || !IsHalfOf(stored, *parsed)) return NTE_BAD_KEYSET;
  key = std::move(parsed);
  return ERROR_SUCCESS;
}

DWORD Unseal(const StoredKey& stored, std::span<const BYTE> pin, PrivateKeyPtr& key) {
  SecretBytes info;
  const DWORD code = OpenPrivateKeyInfo(stored.privateInfo, pin, info);
  if (code == NTE_BAD_DATA || code == NTE_BAD_ALGID) return NTE_BAD_KEYSET;
  return code ? code : ParseStored(stored, true, info, key);
}

// Whether what is about to be written gives the key again, by the way that it will be read.
bool ReadsBack(const StoredKey& stored, const PrivateKey& key, std::span<const BYTE> pin) {
  PrivateKeyPtr read;
  const DWORD code = IsSealed(stored.privateInfo) ? Unseal(stored, pin, read)
                                                  : ParseStored(stored, false, stored.privateInfo, read);
  return !code && Fingerprint(*read->publicKey()) == Fingerprint(*key.publicKey());
}

// Plain without a PIN: a password that everybody knows protects nothing. The key that this replaces is the only one
// there is, so the iterations of a password are spent once more to be sure of the new one.
DWORD WritePrivate(const PrivateKey& key, std::span<const BYTE> pin, StoredKey& stored) {
  SecretBytes info = key.privateKeyInfo();
  if (info.empty()) return NTE_FAIL;
  if (pin.empty()) {
    stored.privateInfo = std::move(info);
  } else if (const DWORD code = SealPrivateKeyInfo(info, pin, stored.privateInfo)) {
    return code;
  }
  return IsSealed(stored.privateInfo) != pin.empty() && ReadsBack(stored, key, pin) ? ERROR_SUCCESS
                                                                                    : NTE_FAIL;
}

}  // namespace

DWORD ContainerSession::begin(Scope scope, const std::string& name, Lock kind) {
  if (!ids) return NTE_PERM;
  if (const DWORD code = OpenKeysDirectory(scope, keys)) return code;
  const std::string fileName = ToFileName(name);
  // before the lock, which not everybody may take in a directory of the machine
  if (keys.look(fileName) == Entry::None) return NTE_KEYSET_NOT_DEF;
  if (const DWORD code = keys.lock(kind, kLockFile, lock)) return code;
  const DWORD code = files.open(keys, fileName);
  if (code) return code == NTE_NOT_FOUND ? NTE_KEYSET_NOT_DEF : code;
  SecretBytes text;
  if (const DWORD missing = files.read(kInfoFile, text)) return Expected(missing);
  return ReadInfo(text, info) ? ERROR_SUCCESS : NTE_BAD_KEYSET;
}

DWORD ContainerSession::readKey(const KeyRow& row, StoredKey& key) const {
  key.row = row;
  if (const DWORD code = files.read(PublicFile(row.spec), key.publicInfo)) return Expected(code);
  return Expected(files.read(PrivateFile(row.spec), key.privateInfo));
}

// --- reading ---

DWORD DiskKeySet::begin(Lock kind, ContainerSession& session) const {
  if (const DWORD code = session.begin(scope_, name_, kind)) return code;
  return session.info.id == id_ ? ERROR_SUCCESS : NTE_KEYSET_NOT_DEF;  // deleted, and made anew by somebody
}

DWORD DiskKeySet::openStored(const StoredKey& stored, PrivateKeyPtr& key) {
  const auto known = opened_.find(stored.row.spec);
  if (known != opened_.end() && known->second.stored == stored) {
    key = known->second.key;
    return ERROR_SUCCESS;
  }
  PrivateKeyPtr found;
  DWORD code = SCARD_W_CARD_NOT_AUTHENTICATED;
  if (!IsSealed(stored.privateInfo)) {
    code = ParseStored(stored, false, stored.privateInfo, found);
  } else if (pin_) {
    code = Unseal(stored, *pin_, found);
  }
  if (code) return code;
  opened_[stored.row.spec] = {stored, found};
  key = std::move(found);
  return ERROR_SUCCESS;
}

DWORD DiskKeySet::load(DWORD spec, KeyRecord& key) {
  const std::lock_guard lock(mutex_);
  StoredKey stored;
  {
    // the iterations of a password are not for others to wait for
    ContainerSession session;
    if (const DWORD code = begin(Lock::Shared, session)) return code;
    const KeyRow* row = session.info.find(spec);
    if (!row) return NTE_NO_KEY;
    if (const DWORD code = session.readKey(*row, stored)) return code;
  }
  PrivateKeyPtr opened;
  if (const DWORD code = openStored(stored, opened)) return code;
  key = {std::move(opened), stored.row.algorithm, stored.row.exportable};
  return ERROR_SUCCESS;
}

DWORD DiskKeySet::loadPublic(DWORD spec, PublicKeyPtr& key, ALG_ID& algorithm, bool& exportable) {
  ContainerSession session;
  if (const DWORD code = begin(Lock::Shared, session)) return code;
  const KeyRow* row = session.info.find(spec);
  if (!row) return NTE_NO_KEY;
  SecretBytes encoded;
  if (const DWORD code = session.files.read(PublicFile(spec), encoded)) return Expected(code);
  PublicKeyPtr found;
  if (ParsePublicKeyInfo(encoded, found)) return NTE_BAD_KEYSET;
  key = std::move(found);
  algorithm = row->algorithm;
  exportable = row->exportable;
  return ERROR_SUCCESS;
}

DWORD DiskKeySet::certificate(DWORD spec, SecretBytes& encoded) {
  ContainerSession session;
  if (const DWORD code = begin(Lock::Shared, session)) return code;
  return session.info.find(spec) ? session.files.read(CertificateFile(spec), encoded) : NTE_NOT_FOUND;
}

DWORD DiskKeySet::readExtensions(const ContainerSession& session,
                                 std::vector<ContainerExtension>& all) const {
  SecretBytes encoded;
  const DWORD code = session.files.read(kExtensionsFile, encoded);
  if (code == NTE_NOT_FOUND) {
    all.clear();
    return ERROR_SUCCESS;
  }
  if (code) return code;
  return ReadExtensions(encoded, all) ? ERROR_SUCCESS : NTE_BAD_KEYSET;
}

DWORD DiskKeySet::extensions(std::vector<ContainerExtension>& all) {
  ContainerSession session;
  if (const DWORD code = begin(Lock::Shared, session)) return code;
  return readExtensions(session, all);
}

bool DiskKeySet::needsPin() const {
  const std::lock_guard lock(mutex_);
  ContainerSession session;
  if (pin_ || begin(Lock::Shared, session)) return false;
  for (const KeyRow& row : session.info.keys) {
    SecretBytes privateInfo;
    if (!session.files.read(PrivateFile(row.spec), privateInfo) && IsSealed(privateInfo)) return true;
  }
  return false;
}

// --- changing ---

// Every key that is there, for what cannot be read must not be replaced, and what is added must be under the same PIN.
DWORD DiskKeySet::openAll(const ContainerSession& session, AllKeys& all) {
  for (const KeyRow& row : session.info.keys) {
    OpenedKey opened;
    if (const DWORD code = session.readKey(row, opened.stored)) return code;
    if (const DWORD code = openStored(opened.stored, opened.key)) return code;
    all.sealed = all.sealed || IsSealed(opened.stored.privateInfo);
    all.keys.push_back(std::move(opened));
  }
  return ERROR_SUCCESS;
}

DWORD DiskKeySet::store(DWORD spec, const KeyRecord& key) {
  if (const DWORD code = JudgeRecord(spec, key)) return code;
  const std::lock_guard lock(mutex_);
  ContainerSession session;
  if (const DWORD code = begin(Lock::Exclusive, session)) return code;
  AllKeys all;
  if (const DWORD code = openAll(session, all)) return code;
  SecretBytes stray;
  if (!session.info.find(spec) && session.files.read(PrivateFile(spec), stray) != NTE_NOT_FOUND) {
    return NTE_BAD_KEYSET;  // a key that the container does not know of
  }
  const bool seals = all.keys.empty() || all.sealed;
  StoredKey stored{
      {spec,            key.algorithm, key.exportable},
      key.key->publicKey()->publicKeyInfo(), {              }
  };
  const SecretBytes pin = seals && pin_ ? *pin_ : SecretBytes();
  if (const DWORD code = WritePrivate(*key.key, pin, stored)) return code;
  session.info.replace(stored.row);
  const DWORD code = session.files.change({
      {PrivateFile(spec),     stored.privateInfo     },
      {PublicFile(spec),      stored.publicInfo      },
      {CertificateFile(spec), {}                     },
      {kInfoFile,             WriteInfo(session.info)}
  });
  if (!code) opened_[spec] = {std::move(stored), key.key};
  return code;
}

DWORD DiskKeySet::setCertificate(DWORD spec, std::span<const BYTE> encoded) {
  if (encoded.size() > certkern::kMaxContainerFile) return NTE_BAD_LEN;
  ContainerSession session;
  if (const DWORD code = begin(Lock::Exclusive, session)) return code;
  if (!session.info.find(spec)) return NTE_NO_KEY;
  return session.files.change({
      {CertificateFile(spec), certkern::ToSecret(encoded)}
  });
}

DWORD DiskKeySet::setExtension(const ContainerExtension& extension) {
  ContainerSession session;
  if (const DWORD code = begin(Lock::Exclusive, session)) return code;
  std::vector<ContainerExtension> all;
  if (const DWORD code = readExtensions(session, all)) return code;
  if (const DWORD code = PutExtension(all, extension)) return code;
  const SecretBytes encoded = all.empty() ? SecretBytes() : WriteExtensions(all);
  return session.files.change({
      {kExtensionsFile, encoded}
  });
}

// Tried on the first key that is whole enough to tell. A PIN that was right before is tried again: somebody may have
// changed it.
DWORD DiskKeySet::presentPin(std::span<const BYTE> pin) {
  const std::lock_guard lock(mutex_);
  std::vector<StoredKey> sealed;
  {
    ContainerSession session;
    if (const DWORD code = begin(Lock::Shared, session)) return code;
    for (const KeyRow& row : session.info.keys) {
      StoredKey stored;
      if (const DWORD code = session.readKey(row, stored)) return code;
      if (IsSealed(stored.privateInfo)) sealed.push_back(std::move(stored));
    }
    if (session.info.keys.empty()) pin_ = certkern::ToSecret(pin);
  }
  DWORD code = ERROR_SUCCESS;
  for (StoredKey& stored : sealed) {
    PrivateKeyPtr key;
    code = Unseal(stored, pin, key);
    if (code == NTE_BAD_KEYSET) continue;
    if (code) break;
    pin_ = certkern::ToSecret(pin);
    const DWORD spec = stored.row.spec;
    opened_[spec] = {std::move(stored), std::move(key)};
    break;
  }
  return code;
}

DWORD DiskKeySet::changePin(std::span<const BYTE> pin) {
  const std::lock_guard lock(mutex_);
  ContainerSession session;
  if (const DWORD code = begin(Lock::Exclusive, session)) return code;
  AllKeys all;
  if (const DWORD code = openAll(session, all)) return code;
  FileChanges changes;
  for (OpenedKey& opened : all.keys) {
    if (const DWORD code = WritePrivate(*opened.key, pin, opened.stored)) return code;
    changes[PrivateFile(opened.stored.row.spec)] = opened.stored.privateInfo;
  }
  if (!changes.empty()) {
    if (const DWORD code = session.files.change(changes)) return code;
  }
  for (OpenedKey& opened : all.keys) opened_[opened.stored.row.spec] = opened;
  pin_.reset();
  if (!pin.empty()) pin_ = certkern::ToSecret(pin);
  return ERROR_SUCCESS;
}

}  // namespace keykern
