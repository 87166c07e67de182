// Key containers, opened for a command.
#ifndef CERTKERN_CLI_CONTAINER_H
#define CERTKERN_CLI_CONTAINER_H

#include "handles.h"
#include "key_families.h"
#include "pin.h"

#include <certkern/encode.h>
#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace certkern::cli {

// Which container, and whose.
struct Place {
  std::string name;
  bool machine = false;
  std::string shown() const;  // for a message
};

// Which of its keys.
struct KeyChoice {
  Place place;
  std::string purpose;  // empty: the only one
  PinOptions pin;
};

void AddMachineOption(CLI::App& command, Place& place);
// The name as an operand, and --machine.
void AddPlaceOptions(CLI::App& command, Place& place);
void AddPurposeOption(CLI::App& command, std::string& purpose, const std::string& text);

// A provider without a container, which serves every algorithm.
ProviderHandle OpenProvider(bool machine = false);

std::vector<std::string> ContainerNames(bool machine);
ProviderHandle OpenContainer(const Place& place, DWORD providerType);

// One key of a container.
struct ContainerKey {
  ProviderHandle provider;
  KeyHandle key;
  DWORD spec = 0;
  const KeyFamily* family = nullptr;
};

// The public half: wants no PIN.
ContainerKey OpenKey(const Place& place, DWORD spec);
// The key that a choice means. Fails when there is none, or when there are two and the choice names neither.
ContainerKey OpenKey(const KeyChoice& choice);
// The specs of the keys that are there.
std::vector<DWORD> SpecsIn(HCRYPTPROV provider);

// Whether the private half is behind a PIN that has not been given.
bool NeedsPin(const ContainerKey& key);
// Asks for the PIN if it is needed, and gives it.
void Unlock(const ContainerKey& key, const PinOptions& pin, const Place& place);

// The public key as certificates hold it; what it points to lies in the same bytes.
struct PublicKeyRecord {
  std::vector<BYTE> memory;
  CERT_PUBLIC_KEY_INFO& info() { return *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(memory.data()); }
};
PublicKeyRecord PublicKeyOf(const ContainerKey& key);

// Fails when there is a container of that name.
void RequireFree(const Place& place);

// A container that is made by a command. Without keep() it is deleted again at the end.
class NewContainer {
 public:
  NewContainer(const Place& place, DWORD providerType, std::span<const BYTE> pin);
  ~NewContainer();
  NewContainer(const NewContainer&) = delete;
  NewContainer& operator=(const NewContainer&) = delete;

  HCRYPTPROV provider() const { return provider_.get(); }
  void keep() { kept_ = true; }

 private:
  const Place& place_;
  ProviderHandle provider_;
  bool kept_ = false;
};

void DeleteContainer(const Place& place);

}  // namespace certkern::cli

#endif
