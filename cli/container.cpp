#include "container.h"

#include "text.h"

#include <certkern/errors.h>
#include <certkern/keys.h>
#include <fmt/format.h>
#include <CLI/Option.hpp>

namespace certkern::cli {
namespace {

constexpr DWORD kAnyType =
    PROV_GOST_2012_256;  // types differ in what they are the default for, and in no more
constexpr DWORD kSpecs[] = {AT_KEYEXCHANGE, AT_SIGNATURE};

DWORD ScopeFlag(bool machine) { return machine ? CRYPT_MACHINE_KEYSET : 0; }

ProviderHandle Acquire(const Place& place, DWORD providerType, DWORD flags) {
  // the library would open the container of the user's name
  if (place.name.empty()) throw WrongUsage("the name of a key container is empty");
  ProviderHandle provider;
  if (!CryptAcquireContextA(provider.out(), place.name.c_str(), nullptr, providerType,
                            flags | ScopeFlag(place.machine)))
    ThrowLastError(place.shown());
  return provider;
}

void PresentPin(HCRYPTPROV provider, DWORD spec, std::span<const BYTE> pin, const std::string& what) {
  const DWORD param = spec == AT_SIGNATURE ? PP_SIGNATURE_PIN : PP_KEYEXCHANGE_PIN;
  if (!CryptSetProvParam(provider, param, pin.data(), 0)) ThrowLastError(what);
}

const KeyFamily& FamilyOf(HCRYPTKEY key, const Place& place) {
  const KeyFamily* family = FindFamilyByAlgorithm(KeyParam<ALG_ID>(key, KP_ALGID, place.shown()));
  if (!family) throw Failure(place.shown() + ": a key of a kind that this tool does not know");
  return *family;
}

}  // namespace

std::string Place::shown() const { return Escaped(Utf8Of(std::string_view(name))); }

void AddMachineOption(CLI::App& command, Place& place) {
  command.add_flag("--machine", place.machine, "The machine's keys, not the user's");
}

void AddPlaceOptions(CLI::App& command, Place& place) {
  command.add_option("NAME", place.name, "The key container")->required()->type_name("");
  AddMachineOption(command, place);
}

void AddPurposeOption(CLI::App& command, std::string& purpose, const std::string& text) {
  command.add_option("--purpose", purpose, text)->check(CLI::IsMember({"exchange", "signature"}));
}

ProviderHandle OpenProvider(bool machine) {
  ProviderHandle provider;
  if (!CryptAcquireContextA(provider.out(), nullptr, nullptr, kAnyType,
                            CRYPT_VERIFYCONTEXT | ScopeFlag(machine)))
    ThrowLastError("the key library");
  return provider;
}

std::vector<std::string> ContainerNames(bool machine) {
  const ProviderHandle provider = OpenProvider(machine);
  std::vector<std::string> names;
  for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
    Bytes name;
    const auto ask = [&](BYTE* out, DWORD* size) {
      return CryptGetProvParam(provider.get(), PP_ENUMCONTAINERS, out, size, out ? DWORD{0} : flag);
    };
    if (!AskBytes(ask, name)) break;
    names.emplace_back(reinterpret_cast<const char*>(name.data()));
  }
  if (GetLastError() != ERROR_NO_MORE_ITEMS) ThrowLastError("the key containers");
  return names;
}

ProviderHandle OpenContainer(const Place& place, DWORD providerType) {
  return Acquire(place, providerType, 0);
}

std::vector<DWORD> SpecsIn(HCRYPTPROV provider) {
  std::vector<DWORD> specs;
  for (const DWORD spec : kSpecs) {
    KeyHandle key;
    if (CryptGetUserKey(provider, spec, key.out())) {
      specs.push_back(spec);
    } else if (GetLastError() != NTE_NO_KEY) {
      ThrowLastError("the key container");
    }
  }
  return specs;
}

ContainerKey OpenKey(const Place& place, DWORD spec) {
  ContainerKey opened{OpenContainer(place, kAnyType), {}, spec, nullptr};
  if (!CryptGetUserKey(opened.provider.get(), spec, opened.key.out())) ThrowLastError(place.shown());
  opened.family = &FamilyOf(opened.key.get(), place);
  if (opened.family->providerType == kAnyType) return opened;
  // public keys travel by the converter of the provider's type
  opened.key.reset();
  opened.provider = OpenContainer(place, opened.family->providerType);
  if (!CryptGetUserKey(opened.provider.get(), spec, opened.key.out())) ThrowLastError(place.shown());
  return opened;
}

ContainerKey OpenKey(const KeyChoice& choice) {
  if (!choice.purpose.empty()) return OpenKey(choice.place, SpecOfPurpose(choice.purpose));
  const std::vector<DWORD> specs = SpecsIn(OpenContainer(choice.place, kAnyType).get());
  if (specs.empty()) throw Failure(choice.place.shown() + ": the key container is empty");
  if (specs.size() > 1)
    throw Failure(choice.place.shown()
                  + ": there are two keys; say --purpose exchange or --purpose signature");
  return OpenKey(choice.place, specs[0]);
}

// To ask for a signature's size takes the private key, and makes nothing.
bool NeedsPin(const ContainerKey& key) {
  HashHandle hash;
  if (!CryptCreateHash(key.provider.get(), CALG_SHA_256, 0, 0, hash.out())) ThrowLastError("SHA-256");
  DWORD size = 0;
  if (CryptSignHashA(hash.get(), key.spec, nullptr, 0, nullptr, &size)) return false;
  const DWORD code = GetLastError();
  if (code == SCARD_W_CARD_NOT_AUTHENTICATED) return true;
  ThrowCode("the private key", code);
}

void Unlock(const ContainerKey& key, const PinOptions& pin, const Place& place) {
  if (!NeedsPin(key)) return;
  PresentPin(key.provider.get(), key.spec, AskPin(pin, "PIN of " + place.shown()), place.shown());
}

PublicKeyRecord PublicKeyOf(const ContainerKey& key) {
  PublicKeyRecord record;
  const auto ask = [&](BYTE* out, DWORD* size) {
    return CryptExportPublicKeyInfo(key.provider.get(), key.spec, X509_ASN_ENCODING,
                                    reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(out), size);
  };
  if (!AskBytes(ask, record.memory)) ThrowLastError("the public key");
  return record;
}

void RequireFree(const Place& place) {
  if (place.name.empty()) throw WrongUsage("the name of a key container is empty");
  ProviderHandle provider;
  const bool exists =
      CryptAcquireContextA(provider.out(), place.name.c_str(), nullptr, kAnyType, ScopeFlag(place.machine));
  const DWORD code = exists ? NTE_EXISTS : GetLastError();
  if (code != NTE_KEYSET_NOT_DEF) ThrowCode(place.shown(), code);
}

NewContainer::NewContainer(const Place& place, DWORD providerType, std::span<const BYTE> pin)
    : place_(place), provider_(Acquire(place, providerType, CRYPT_NEWKEYSET)) {
  try {
    if (!pin.empty()) PresentPin(provider_.get(), AT_KEYEXCHANGE, pin, place.shown());
  } catch (...) {
    provider_.reset();
    DeleteContainer(place_);
    throw;
  }
}

NewContainer::~NewContainer() {
  if (kept_) return;
  provider_.reset();
  HCRYPTPROV none = 0;
  CryptAcquireContextA(&none, place_.name.c_str(), nullptr, kAnyType,
                       CRYPT_DELETEKEYSET | ScopeFlag(place_.machine));
}

void DeleteContainer(const Place& place) { Acquire(place, kAnyType, CRYPT_DELETEKEYSET); }

}  // namespace certkern::cli
