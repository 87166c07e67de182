// What a container says about itself: the files "info" and "extensions.der".
#ifndef CERTKERN_KEYKERN_CONTAINER_INFO_H
#define CERTKERN_KEYKERN_CONTAINER_INFO_H

#include "keykern/container/container.h"

#include <string>
#include <vector>

namespace keykern {

// A key of the container; there is at most one of each spec, in their order.
struct KeyRow {
  DWORD spec = 0;  // AT_KEYEXCHANGE or AT_SIGNATURE
  ALG_ID algorithm = 0;
  bool exportable = false;
};

struct ContainerInfo {
  std::string id;       // 32 hexadecimal digits; tells a container from a later one of the same name
  std::string name;     // as it was given
  std::string created;  // "2026-02-03T04:05:06Z"
  std::vector<KeyRow> keys;

  const KeyRow* find(DWORD spec) const;
  void replace(const KeyRow& row);
};

// Twice as many hexadecimal digits as bytes are asked for. False when there are no random numbers.
[[nodiscard]] bool RandomDigits(size_t bytes, std::string& digits);
// A new one, without keys. False when there are no random numbers.
[[nodiscard]] bool NewContainerInfo(const std::string& name, ContainerInfo& info);
// Line by line:
//   certkern-container 1
//   id <32 digits>
//   name <text>
//   created <moment>
//   key <spec> <algorithm> exportable|fixed        for each
SecretBytes WriteInfo(const ContainerInfo& info);
// Takes exactly what is written: a file of another version, or one that something happened to, is none.
[[nodiscard]] bool ReadInfo(std::span<const BYTE> text, ContainerInfo& info);

// SEQUENCE OF SEQUENCE { OBJECT IDENTIFIER, critical BOOLEAN DEFAULT FALSE, value OCTET STRING }. RFC 5280, 4.1
SecretBytes WriteExtensions(const std::vector<ContainerExtension>& all);
[[nodiscard]] bool ReadExtensions(std::span<const BYTE> encoded, std::vector<ContainerExtension>& all);
// Replaces the one of the same OID; an empty value removes it. NTE_BAD_DATA: no OID; NTE_BAD_LEN: more than is kept.
DWORD PutExtension(std::vector<ContainerExtension>& all, const ContainerExtension& extension);

// Whether a key may be stored as that: 0, or NTE_BAD_KEY.
DWORD JudgeRecord(DWORD spec, const KeyRecord& record);

}  // namespace keykern

#endif
