// Any bytes as any type of the extension library, and as any public key: what is read fills exactly the room that was
// asked for, which is in proportion to the bytes, and what is written of it reads as the same record again.
#include <certkern/keykern.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <string>

#include "platform/extkern.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Of exactly this size even when that is 0, so that the sanitizer sees the first byte too many.
struct Exact {
  explicit Exact(size_t count) : data(std::make_unique<BYTE[]>(count)), size(static_cast<DWORD>(count)) {}
  explicit Exact(std::span<const BYTE> bytes) : Exact(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), data.get());
  }
  std::unique_ptr<BYTE[]> data;
  DWORD size;
  bool operator==(const Exact& other) const {
    return size == other.size && std::equal(data.get(), data.get() + size, other.data.get());
  }
};

struct Codec {
  XnEncode* encode;
  XnDecode* decode;
};
constexpr Codec kCodecs[] = {
    {XnRsaPublicKeyEncode,                   XnRsaPublicKeyDecode                            },
    {XnDllSigningCertificateEncode,          XnDllSigningCertificateDecode                   },
    {XnDllSigningCertificateV2Encode,        XnDllSigningCertificateV2Decode                 },
    {XnDllOtherSigningCertificateEncode,     XnDllOtherSigningCertificateDecode              },
    {XnDllPrivateKeyUsagePeriodEncode,       XnDllPrivateKeyUsagePeriodDecode                },
    {XnDllIssuerSignToolEncode,              XnDllIssuerSignToolDecode                       },
    {XnDllGostPrivateCertificateStoreEncode, XnDllGostPrivateCertificateStoreDecode          },
    {nullptr,                                XnDllPrivateKeyDeriveCounterDecode              },
    {nullptr,                                XnDllGostPrivateKeyTimeValidityControlModeDecode},
};

// Pieces behind a record that a short element announces: an array's record and its paddings.
constexpr size_t kMostPerByte = 32;
constexpr size_t kLargestRecord = 32;

// Null when there is no record.
std::unique_ptr<Exact> Decode(const Codec& codec, const Exact& input) {
  DWORD needed = 0;
  if (!codec.decode(1, nullptr, input.data.get(), input.size, 0, nullptr, &needed)) {
    Require(GetLastError() != 0);
    return nullptr;
  }
  Require(needed <= kLargestRecord + kMostPerByte * input.size);
  auto record = std::make_unique<Exact>(needed);
  Require(codec.decode(1, nullptr, input.data.get(), input.size, 0, record->data.get(), &needed));
  Require(needed == record->size);
  return record;
}

// Null when the record has no encoding: a text may be of another size than is written.
std::unique_ptr<Exact> Encode(const Codec& codec, const Exact& record) {
  DWORD needed = 0;
  if (!codec.encode(1, nullptr, record.data.get(), nullptr, &needed)) return nullptr;
  auto encoded = std::make_unique<Exact>(needed);
  Require(codec.encode(1, nullptr, record.data.get(), encoded->data.get(), &needed));
  Require(needed == encoded->size);
  return encoded;
}

void TryCodec(const Codec& codec, std::span<const BYTE> bytes) {
  const auto record = Decode(codec, Exact(bytes));
  if (!record || !codec.encode) return;
  const auto encoded = Encode(codec, *record);
  Require(encoded || codec.encode == XnDllIssuerSignToolEncode);
  if (!encoded) return;
  const auto again = Decode(codec, *encoded);
  Require(again != nullptr);
  Require(*Encode(codec, *again) == *encoded);
}

struct Converter {
  XnConvertKey* convert;
  const char* oid;
};
constexpr Converter kConverters[] = {
    {XnRsaConvertPublicKeyInfo,   "1.2.840.113549.1.1.1" },
    {XnRsaConvertPublicKeyInfo,   "1.2.840.113549.1.1.10"},
    {XnEcdsaConvertPublicKeyInfo, "1.2.840.10045.2.1"    },
    {XnEdDSAConvertPublicKeyInfo, "1.3.101.112"          },
    {XnConvertPublicKeyInfo,      "1.2.643.7.1.1.1.1"    },
};

// The first byte is the size of the parameters; they and the key follow.
void TryConverter(const Converter& converter, std::span<const BYTE> bytes) {
  if (bytes.empty()) return;
  const size_t split = std::min<size_t>(bytes[0], bytes.size() - 1);
  const Exact parameters(bytes.subspan(1, split));
  const Exact key(bytes.subspan(1 + split));
  std::string oid = converter.oid;
  CERT_PUBLIC_KEY_INFO info = {
      {oid.data(),      {parameters.size, parameters.data.get()}},
      { key.size, key.data.get(),                                        0}
  };
  BYTE* blob = nullptr;
  DWORD size = 0;
  if (!converter.convert(0, &info, 0, 0, &blob, &size)) return;
  const std::unique_ptr<BYTE, decltype(&std::free)> owner(blob, std::free);
  Require(size > sizeof(BLOBHEADER) && blob[0] == PUBLICKEYBLOB);
  if (blob[8] != 'R') return;
  // the published form of RSA is what the codec of that form makes of the same key, but for the algorithm
  const auto decoded = Decode(kCodecs[0], key);
  Require(decoded && decoded->size == size);
  Require(std::equal(blob + sizeof(BLOBHEADER), blob + size, decoded->data.get() + sizeof(BLOBHEADER)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const size_t choice = data[0] % (std::size(kCodecs) + std::size(kConverters));
  const std::span<const BYTE> rest(data + 1, size - 1);
  if (choice < std::size(kCodecs)) {
    TryCodec(kCodecs[choice], rest);
  } else {
    TryConverter(kConverters[choice - std::size(kCodecs)], rest);
  }
  return 0;
}
