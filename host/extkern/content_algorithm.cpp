#include "extkern/content_algorithm.h"

#include <algorithm>
#include <cstring>

#include "common/der.h"

namespace extkern {
namespace {

namespace der = certkern::der;

constexpr ContentRow kContents[] = {
    {"1.2.643.2.2.21",          ContentForm::Gost28147, CRYPT_MODE_CFB,            8 },
    {"1.2.643.7.1.1.5.1.1",     ContentForm::Gost3412,  CRYPT_MODE_CTR_ACPKM,      12},
    {"1.2.643.7.1.1.5.1.2",     ContentForm::Gost3412,  CRYPT_MODE_CTR_ACPKM_OMAC, 12},
    {"1.2.643.7.1.1.5.2.1",     ContentForm::Gost3412,  CRYPT_MODE_CTR_ACPKM,      16},
    {"1.2.643.7.1.1.5.2.2",     ContentForm::Gost3412,  CRYPT_MODE_CTR_ACPKM_OMAC, 16},
    {"2.16.840.1.101.3.4.1.2",  ContentForm::Iv,        CRYPT_MODE_CBC,            16},
    {"2.16.840.1.101.3.4.1.22", ContentForm::Iv,        CRYPT_MODE_CBC,            16},
    {"2.16.840.1.101.3.4.1.42", ContentForm::Iv,        CRYPT_MODE_CBC,            16},
    {"1.2.840.113549.3.7",      ContentForm::Iv,        CRYPT_MODE_CBC,            8 },
    {"1.3.14.3.2.7",            ContentForm::Iv,        CRYPT_MODE_CBC,            8 },
    {"1.2.840.113549.3.2",      ContentForm::Rc2,       CRYPT_MODE_CBC,            8 },
    {"1.2.840.113549.3.4",      ContentForm::None,      0,                         0 },
};

// What stands for a length of RC2 keys. RFC 3370, 5.2
struct Rc2Version {
  DWORD bits;
  DWORD version;
};
constexpr Rc2Version kRc2Versions[] = {
    {40,  160},
    {64,  120},
    {128, 58 },
};

DWORD ReadRc2Version(der::Reader& in, DWORD& bits) {
  uint32_t version;
  if (!in.takeSmall(version)) return NTE_BAD_DATA;
  for (const Rc2Version& row : kRc2Versions) {
    if (row.version == version) return bits = row.bits, ERROR_SUCCESS;
  }
  return NTE_BAD_ALGID;
}

// What the form has around and behind its initial value. The iv is not copied before its size is known.
DWORD ReadFields(der::Reader in, ContentAlgorithm& content, std::span<const BYTE>& iv) {
  const ContentForm form = content.row->form;
  der::Reader body = in;
  if (form != ContentForm::Iv && (!in.take(der::kSequence, body) || !in.empty())) return NTE_BAD_DATA;
  if (form == ContentForm::Rc2) {
    if (const DWORD code = ReadRc2Version(body, content.rc2Bits)) return code;
  }
  if (!body.take(der::kOctetString, iv)) return NTE_BAD_DATA;
  if (form == ContentForm::Gost28147 && !body.takeOid(content.box)) return NTE_BAD_DATA;
  return body.empty() ? ERROR_SUCCESS : DWORD{NTE_BAD_DATA};
}

}  // namespace

bool HasParameters(const CRYPT_ALGORITHM_IDENTIFIER& identifier) {
  const CRYPT_OBJID_BLOB& blob = identifier.Parameters;
  return blob.cbData && !(blob.cbData == 2 && blob.pbData && blob.pbData[0] == der::kNull && !blob.pbData[1]);
}

DWORD FindContentAlgorithm(LPCSTR oid, ContentAlgorithm& content) {
  const auto* row = std::find_if(std::begin(kContents), std::end(kContents),
                                 [&](const ContentRow& one) { return std::strcmp(one.oid, oid) == 0; });
  if (row == std::end(kContents)) return NTE_BAD_ALGID;
  const PCCRYPT_OID_INFO info =
      CryptFindOIDInfo(CRYPT_OID_INFO_OID_KEY, const_cast<LPSTR>(oid), CRYPT_ENCRYPT_ALG_OID_GROUP_ID);
  if (!info) return NTE_BAD_ALGID;
  content.row = row;
  content.algorithm = info->Algid;
  return ERROR_SUCCESS;
}

DWORD ReadContentAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& identifier, ContentAlgorithm& content) {
  if (const DWORD code = FindContentAlgorithm(identifier.pszObjId, content)) return code;
  if (content.row->form == ContentForm::None)
    return HasParameters(identifier) ? DWORD{NTE_BAD_DATA} : ERROR_SUCCESS;
  const CRYPT_OBJID_BLOB& blob = identifier.Parameters;
  if (blob.cbData && !blob.pbData) return ERROR_INVALID_PARAMETER;
  std::span<const BYTE> iv;
  if (const DWORD code = ReadFields(der::Reader({blob.pbData, blob.cbData}), content, iv)) return code;
  if (iv.size() != content.row->ivSize) return NTE_BAD_DATA;
  content.iv = certkern::ToSecret(iv);
  return ERROR_SUCCESS;
}

DWORD WriteContentParameters(const ContentAlgorithm& content, Bytes& parameters) {
  const Bytes iv = der::OctetString(content.iv);
  switch (content.row->form) {
    case ContentForm::None:
      return parameters.clear(), ERROR_SUCCESS;
    case ContentForm::Iv:
      return parameters = iv, ERROR_SUCCESS;
    case ContentForm::Gost3412:
      return parameters = der::Sequence({iv}), ERROR_SUCCESS;
    case ContentForm::Gost28147:
      return parameters = der::Sequence({iv, der::Oid(content.box)}), ERROR_SUCCESS;
    case ContentForm::Rc2:
      break;
  }
  for (const Rc2Version& row : kRc2Versions) {
    if (row.bits != content.rc2Bits) continue;
    parameters = der::Sequence({der::Small(row.version), iv});
    return ERROR_SUCCESS;
  }
  return NTE_BAD_LEN;
}

DWORD SetSubstitutionBox(HCRYPTKEY key, const std::string& box) {
  const DWORD code = SetText(key, KP_CIPHEROID, box);
  return code == NTE_BAD_DATA ? DWORD{NTE_BAD_ALGID} : code;
}

DWORD PrepareContentKey(HCRYPTKEY key, const ContentAlgorithm& content) {
  if (content.rc2Bits) {
    // a key of another length than the parameters tell would decrypt to noise
    DWORD bits = 0;
    if (const DWORD code = GetNumber(key, KP_KEYLEN, bits)) return code;
    if (bits != content.rc2Bits) return NTE_BAD_DATA;
  }
  if (content.row->mode) {
    if (const DWORD code = SetNumber(key, KP_MODE, content.row->mode)) return code;
  }
  if (!content.box.empty()) {
    if (const DWORD code = SetSubstitutionBox(key, content.box)) return code;
  }
  return content.row->ivSize ? SetIv(key, content.iv) : ERROR_SUCCESS;
}

}  // namespace extkern
