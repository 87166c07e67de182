#include "extkern/key_gost_forms.h"

#include <algorithm>
#include <cstring>

#include "common/der.h"

namespace extkern {
namespace {

namespace der = certkern::der;

constexpr size_t kMac = 4;
constexpr BYTE kTransportParameters = der::ContextConstructed(0);
constexpr BYTE kEphemeralPublicKey = der::ContextConstructed(0);

constexpr GostWrapRow kWraps[] = {
    {"1.2.643.2.2.13.0",    CALG_EXPORT_SIMPLE,      kGostUkm}, // RFC 4357, 6.1
    {"1.2.643.2.2.13.1",    CALG_EXPORT_DIVERSIFIED, kGostUkm}, // RFC 4357, 6.3
    {"1.2.643.7.1.1.7.1.1", CALG_EXPORT_KEXP15_M,    kKegUkm },
    {"1.2.643.7.1.1.7.2.1", CALG_EXPORT_KEXP15_K,    kKegUkm },
};

bool TakeEncrypted28147(der::Reader& in, Wrapped28147& wrapped) {
  der::Reader body;
  return in.take(der::kSequence, body) && body.take(der::kOctetString, wrapped.key)
      && body.take(der::kOctetString, wrapped.mac) && body.empty() && wrapped.mac.size() == kMac;
}

// The whole content of a sequence that nothing follows.
bool OpenSequence(std::span<const BYTE> encoded, der::Reader& body) {
  der::Reader in(encoded);
  return in.take(der::kSequence, body) && in.empty();
}

}  // namespace

const GostWrapRow* FindGostWrap(const char* oid) {
  const auto* row = std::find_if(std::begin(kWraps), std::end(kWraps),
                                 [&](const GostWrapRow& one) { return std::strcmp(one.oid, oid) == 0; });
  return row == std::end(kWraps) ? nullptr : row;
}

const GostWrapRow* FindGostWrap(ALG_ID method) {
  const auto* row = std::find_if(std::begin(kWraps), std::end(kWraps),
                                 [&](const GostWrapRow& one) { return one.method == method; });
  return row == std::end(kWraps) ? nullptr : row;
}

bool Wrapped28147::split(std::span<const BYTE> wrapped) {
  if (wrapped.size() < kGostUkm + kMac) return false;
  ukm = wrapped.first(kGostUkm);
  key = wrapped.subspan(kGostUkm, wrapped.size() - kGostUkm - kMac);
  mac = wrapped.last(kMac);
  return true;
}

Bytes Wrapped28147::join() const {
  Bytes wrapped = certkern::ToSecret(ukm);
  certkern::Append(wrapped, key);
  certkern::Append(wrapped, mac);
  return wrapped;
}

bool ReadEncrypted28147(std::span<const BYTE> encoded, Wrapped28147& wrapped) {
  der::Reader in(encoded);
  return TakeEncrypted28147(in, wrapped) && in.empty();
}

Bytes WriteEncrypted28147(const Wrapped28147& wrapped) {
  return der::Sequence({der::OctetString(wrapped.key), der::OctetString(wrapped.mac)});
}

bool Transport28147::read(std::span<const BYTE> encoded) {
  der::Reader body;
  der::Reader parameters;
  std::span<const BYTE> key;
  if (!OpenSequence(encoded, body) || !TakeEncrypted28147(body, wrapped)
      || !body.take(kTransportParameters, parameters) || !body.empty())
    return false;
  if (!parameters.takeOid(box) || !parameters.take(kEphemeralPublicKey, key)
      || !parameters.take(der::kOctetString, wrapped.ukm) || !parameters.empty())
    return false;
  ephemeral = der::Sequence({key});
  return wrapped.ukm.size() == kGostUkm;
}

Bytes Transport28147::write() const {
  der::Reader key;
  if (!OpenSequence(ephemeral, key)) return {};
  const Bytes parameters = der::Element(
      kTransportParameters,
      {der::Oid(box), der::Element(kEphemeralPublicKey, {key.rest()}), der::OctetString(wrapped.ukm)});
  return der::Sequence({WriteEncrypted28147(wrapped), parameters});
}

bool TransportKexp::read(std::span<const BYTE> encoded) {
  der::Reader body;
  return OpenSequence(encoded, body) && body.take(der::kOctetString, key) && body.nextTag() == der::kSequence
      && body.takeWhole(ephemeral) && body.take(der::kOctetString, ukm) && body.empty()
      && ukm.size() == kKegUkm;
}

Bytes TransportKexp::write() const {
  return der::Sequence({der::OctetString(key), ephemeral, der::OctetString(ukm)});
}

bool Agreement28147::read(std::span<const BYTE> parameters) {
  der::Reader body;
  der::Reader inner;
  return OpenSequence(parameters, body) && body.takeOid(wrap) && body.take(der::kSequence, inner)
      && body.empty() && inner.takeOid(box) && inner.empty();
}

Bytes Agreement28147::write() const {
  return der::Sequence({der::Oid(wrap), der::Sequence({der::Oid(box)})});
}

}  // namespace extkern
