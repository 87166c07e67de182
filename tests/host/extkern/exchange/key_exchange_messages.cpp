#include "host/extkern/exchange/key_exchange_messages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>

#include "common/der.h"
#include "interop/openssl_tool.h"

namespace der = certkern::der;

namespace {

void Must(bool condition) {
  if (!condition) throw std::runtime_error("not the structure that this test knows");
}

ByteVector ToVector(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

CRYPT_DATA_BLOB BlobOf(const ByteVector& bytes) {
  return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

Algorithm TakeAlgorithm(der::Reader& in) {
  der::Algorithm algorithm;
  Must(der::TakeAlgorithm(in, algorithm));
  return {algorithm.oid, ToVector(algorithm.parameters)};
}

certkern::SecretBytes Write(const Algorithm& algorithm) {
  return der::AlgorithmIdentifier(algorithm.oid, algorithm.parameters);
}

// --- parties ---

const std::string& Configuration() {
  static const std::string prefix = [] {
    const auto path = WorkDirectory() / "openssl.cnf";
    std::ofstream(path) << "openssl_conf = init\n[init]\nengines = engines\n[engines]\ngost = gost\n[gost]\n"
                           "engine_id = gost\ndefault_algorithms = ALL\n"
                           "[req]\ndistinguished_name = none\nprompt = no\n[none]\n";
    return "OPENSSL_CONF='" + path.string() + "' openssl ";
  }();
  return prefix;
}

void ReadCertificate(Party& party) {
  const ByteVector encoded = Load(party.certificate);
  der::Reader in(encoded), certificate, tbs, info;
  std::span<const BYTE> version, serial, signature, issuer, validity, subject, bits;
  Must(in.take(der::kSequence, certificate) && certificate.take(der::kSequence, tbs));
  if (tbs.nextTag() == der::ContextConstructed(0)) Must(tbs.takeWhole(version));
  Must(tbs.takeWhole(serial) && tbs.takeWhole(signature) && tbs.takeWhole(issuer) && tbs.takeWhole(validity)
       && tbs.takeWhole(subject) && tbs.take(der::kSequence, info));
  party.issuerAndSerial = ToVector(der::Sequence({issuer, serial}));
  party.algorithm = TakeAlgorithm(info);
  Must(info.takeBits(bits));
  party.publicKey = ToVector(bits);
}

}  // namespace

CRYPT_ALGORITHM_IDENTIFIER Algorithm::record() const {
  return {const_cast<LPSTR>(oid.c_str()), BlobOf(parameters)};
}

ByteVector SomeContent(size_t size) {
  ByteVector content(size);
  for (size_t i = 0; i < size; ++i) content[i] = static_cast<BYTE>(i * 7 + i / 256);
  return content;
}
ByteVector Load(const std::filesystem::path& path) { return ReadFile(path); }
std::filesystem::path PublishedData() { return CERTKERN_SOURCE_DIR "/tests/data/published"; }
void OpenSsl(const std::string& arguments) { RunShell(Configuration() + arguments); }

Party PartyFromKey(const std::filesystem::path& pkcs8) {
  Party party;
  const ByteVector key = Load(pkcs8);
  const BLOBHEADER header = {PRIVATEKEYBLOB, CUR_BLOB_VERSION, 0, 0};
  const KEY_BLOB_INFO info = {KEY_BLOB_PRIVATE, 0};
  ByteVector blob(sizeof(header) + sizeof(info));
  std::memcpy(blob.data(), &header, sizeof(header));
  std::memcpy(blob.data() + sizeof(header), &info, sizeof(info));
  blob.insert(blob.end(), key.begin(), key.end());
  KeyHandle imported;
  EXPECT_TRUE(
      CryptAcquireContextA(party.provider.out(), nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  EXPECT_TRUE(CryptImportKey(party.provider.get(), blob.data(), static_cast<DWORD>(blob.size()), 0, 0,
                             imported.out()))
      << pkcs8 << std::hex << GetLastError();
  party.privateKey = pkcs8;
  KeyHandle found;
  const bool exchange = CryptGetUserKey(party.provider.get(), AT_KEYEXCHANGE, found.out());
  party.keySpec = exchange ? AT_KEYEXCHANGE : AT_SIGNATURE;
  return party;
}

const Party& MadeParty(const std::string& genpkeyOptions) {
  // the key level must not be called any more when statics are destroyed
  static std::map<std::string, Party>& parties = *std::make_unique<std::map<std::string, Party>>().release();
  const auto found = parties.find(genpkeyOptions);
  if (found != parties.end()) return found->second;
  const std::string base = (WorkDirectory() / ("party" + std::to_string(parties.size()))).string();
  OpenSsl("genpkey " + genpkeyOptions + " -outform DER -out " + base + ".key");
  OpenSsl("pkcs8 -topk8 -nocrypt -inform DER -in " + base + ".key -outform DER -out " + base + ".p8");
  OpenSsl("req -x509 -new -key " + base + ".p8 -keyform DER -subj /CN=party -days 30 -outform DER -out "
          + base + ".crt");
  Party party = PartyFromKey(base + ".p8");
  party.certificate = base + ".crt";
  ReadCertificate(party);
  return parties.emplace(genpkeyOptions, std::move(party)).first->second;
}

// --- messages ---

Envelope::Envelope(const ByteVector& message) {
  der::Reader in(message), info, explicitContent, body, recipients, recipient, encryptedInfo, attributes;
  std::string type;
  std::span<const BYTE> bytes;
  uint32_t version;
  Must(in.take(der::kSequence, info) && info.takeOid(type)
       && info.take(der::ContextConstructed(0), explicitContent) && explicitContent.take(der::kSequence, body)
       && body.takeSmall(version) && body.take(der::kSet, recipients));
  agreement = recipients.nextTag() == der::ContextConstructed(1);
  Must(recipients.take(recipients.nextTag(), recipient) && recipient.takeSmall(version));
  if (agreement) {
    der::Reader choice, key, wrapped, one;
    Must(recipient.take(der::ContextConstructed(0), choice) && choice.take(der::ContextConstructed(1), key));
    originator = TakeAlgorithm(key);
    Must(key.takeBits(bytes));
    originatorKey = ToVector(bytes);
    if (recipient.take(der::ContextConstructed(1), wrapped)) {
      Must(wrapped.take(der::kOctetString, bytes));
      ukm = ToVector(bytes);
    }
    keyEncryption = TakeAlgorithm(recipient);
    Must(recipient.take(der::kSequence, wrapped) && wrapped.take(der::kSequence, one) && one.takeWhole(bytes)
         && one.take(der::kOctetString, bytes));
  } else {
    Must(recipient.takeWhole(bytes));
    keyEncryption = TakeAlgorithm(recipient);
    Must(recipient.take(der::kOctetString, bytes));
  }
  encryptedKey = ToVector(bytes);
  Must(body.take(der::kSequence, encryptedInfo) && encryptedInfo.takeOid(type));
  content = TakeAlgorithm(encryptedInfo);
  Must(encryptedInfo.take(der::Context(0), bytes));
  encrypted = ToVector(bytes);
  if (!body.take(der::ContextConstructed(1), attributes)) return;
  der::Reader attribute, values;
  Must(attributes.take(der::kSequence, attribute) && attribute.takeOid(type) && type == "1.2.643.7.1.0.6.1.1"
       && attribute.take(der::kSet, values) && values.take(der::kOctetString, bytes));
  tag = ToVector(bytes);
}

ByteVector Envelope::message(const Party& party) const {
  certkern::SecretBytes recipient;
  if (agreement) {
    const auto key =
        der::Element(der::ContextConstructed(1), {Write(originator), der::BitString(originatorKey)});
    certkern::SecretBytes material;
    if (!ukm.empty()) material = der::Element(der::ContextConstructed(1), {der::OctetString(ukm)});
    recipient = der::Element(
        der::ContextConstructed(1),
        {der::Small(3), der::Element(der::ContextConstructed(0), {key}), material, Write(keyEncryption),
         der::Sequence({der::Sequence({party.issuerAndSerial, der::OctetString(encryptedKey)})})});
  } else {
    recipient = der::Sequence(
        {der::Small(0), party.issuerAndSerial, Write(keyEncryption), der::OctetString(encryptedKey)});
  }
  certkern::SecretBytes attributes;
  if (!tag.empty())
    attributes = der::Element(
        der::ContextConstructed(1),
        {der::Sequence({der::Oid("1.2.643.7.1.0.6.1.1"), der::Element(der::kSet, {der::OctetString(tag)})})});
  const auto body =
      der::Sequence({der::Small(agreement || !tag.empty() ? 2 : 0), der::Element(der::kSet, {recipient}),
                     der::Sequence({der::Oid("1.2.840.113549.1.7.1"), Write(content),
                                    der::Element(der::Context(0), {encrypted})}),
                     attributes});
  return ToVector(
      der::Sequence({der::Oid("1.2.840.113549.1.7.3"), der::Element(der::ContextConstructed(0), {body})}));
}

// --- opening ---

namespace {

bool IsKexp(const std::string& oid) { return oid == "1.2.643.7.1.1.7.1.1" || oid == "1.2.643.7.1.1.7.2.1"; }

XnImportKeyTrans* TransportImporter(const std::string& oid) {
  if (IsKexp(oid)) return XnMsgDllImportKeyTrans_GR3412;
  return oid.starts_with("1.2.840.113549.1.1.") ? XnMsgDllImportKeyTransRSA : XnMsgDllImportKeyTrans;
}
XnImportKeyAgree* AgreementImporter(const std::string& oid) {
  if (IsKexp(oid)) return XnMsgDllImportKeyAgree_GR3412;
  return oid.starts_with("1.3.1") ? XnMsgDllImportKeyAgreeECDH : XnMsgDllImportKeyAgree;
}

DWORD TakeAgreedKey(const Envelope& envelope, const Party& recipient, KeyHandle& key) {
  CRYPT_ALGORITHM_IDENTIFIER content = envelope.content.record();
  const CRYPT_BIT_BLOB originatorKey = {static_cast<DWORD>(envelope.originatorKey.size()),
                                        const_cast<BYTE*>(envelope.originatorKey.data()), 0};
  CMSG_RECIPIENT_ENCRYPTED_KEY_INFO one = {};
  one.EncryptedKey = BlobOf(envelope.encryptedKey);
  PCMSG_RECIPIENT_ENCRYPTED_KEY_INFO ones[] = {&one};
  CMSG_KEY_AGREE_RECIPIENT_INFO info = {};
  info.dwVersion = 3;
  info.dwOriginatorChoice = envelope.originatorChoice;
  if (envelope.originatorChoice == CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY) {
    info.OriginatorPublicKeyInfo = {envelope.originator.record(), originatorKey};
  } else {
    info.OriginatorCertId.dwIdChoice = CERT_ID_ISSUER_SERIAL_NUMBER;
    info.OriginatorCertId.IssuerSerialNumber = {BlobOf(recipient.issuerAndSerial), {}};
  }
  info.UserKeyingMaterial = BlobOf(envelope.ukm);
  info.KeyEncryptionAlgorithm = envelope.keyEncryption.record();
  info.cRecipientEncryptedKeys = 1;
  info.rgpRecipientEncryptedKeys = ones;
  CMSG_CTRL_KEY_AGREE_DECRYPT_PARA para = {};
  para.cbSize = sizeof(para);
  para.hCryptProv = recipient.provider.get();
  para.dwKeySpec = recipient.keySpec;
  para.pKeyAgree = &info;
  para.OriginatorPublicKey = originatorKey;
  const auto import = AgreementImporter(envelope.keyEncryption.oid);
  return import(&content, &para, 0, nullptr, key.out()) ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

DWORD TakeKey(const Envelope& envelope, const Party& recipient, KeyHandle& key) {
  SetLastError(0);
  if (envelope.agreement) return TakeAgreedKey(envelope, recipient, key);
  CRYPT_ALGORITHM_IDENTIFIER content = envelope.content.record();
  CMSG_KEY_TRANS_RECIPIENT_INFO info = {};
  info.KeyEncryptionAlgorithm = envelope.keyEncryption.record();
  info.EncryptedKey = BlobOf(envelope.encryptedKey);
  CMSG_CTRL_KEY_TRANS_DECRYPT_PARA para = {};
  para.cbSize = sizeof(para);
  para.hCryptProv = recipient.provider.get();
  para.dwKeySpec = recipient.keySpec;
  para.pKeyTrans = &info;
  const auto import = TransportImporter(envelope.keyEncryption.oid);
  return import(&content, &para, 0, nullptr, key.out()) ? ERROR_SUCCESS : GetLastError();
}

DWORD Open(const Envelope& envelope, const Party& recipient, ByteVector& plain) {
  KeyHandle key;
  if (const DWORD code = TakeKey(envelope, recipient, key)) return code;
  plain = envelope.encrypted;
  plain.resize(plain.size() + 1);  // so that there is a pointer
  DWORD size = static_cast<DWORD>(envelope.encrypted.size());
  if (!CryptDecrypt(key.get(), 0, TRUE, 0, plain.data(), &size)) return GetLastError();
  plain.resize(size);
  if (envelope.tag.empty()) return ERROR_SUCCESS;
  const CRYPT_DATA_BLOB tag = BlobOf(envelope.tag);
  return CryptSetKeyParam(key.get(), KP_AUTH_TAG, reinterpret_cast<const BYTE*>(&tag), 0) ? ERROR_SUCCESS
                                                                                          : GetLastError();
}

// --- sealing ---

namespace {

std::set<void*> outstanding;
size_t allocationsLeft = std::numeric_limits<size_t>::max();

void* Allocate(size_t size) {
  if (!allocationsLeft--) return nullptr;
  void* piece = std::malloc(size);
  outstanding.insert(piece);
  return piece;
}
void Free(void* piece) {
  EXPECT_EQ(outstanding.erase(piece), 1u);
  std::free(piece);
}
void FreeIf(DWORD flags, DWORD bit, void* piece) {
  if (flags & bit) Free(piece);
}

Algorithm Copy(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
  return {
      algorithm.pszObjId,
      {algorithm.Parameters.pbData, algorithm.Parameters.pbData + algorithm.Parameters.cbData}
  };
}
template <class Blob>
ByteVector CopyBlob(const Blob& blob) {
  return {blob.pbData, blob.pbData + blob.cbData};
}

DWORD SealByTransport(CMSG_CONTENT_ENCRYPT_INFO& info, CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& recipient,
                      Envelope& envelope) {
  CMSG_KEY_TRANS_ENCRYPT_INFO out = {};
  out.cbSize = sizeof(out);
  const bool rsa = std::string_view(recipient.KeyEncryptionAlgorithm.pszObjId).starts_with("1.2.840.113549");
  const auto exporter = rsa ? XnMsgDllExportKeyTransRSA : XnMsgDllExportKeyTrans;
  if (!exporter(&info, &recipient, &out, 0, nullptr)) return GetLastError();
  envelope.keyEncryption = Copy(out.KeyEncryptionAlgorithm);
  envelope.encryptedKey = CopyBlob(out.EncryptedKey);
  FreeIf(out.dwFlags, CMSG_KEY_TRANS_ENCRYPT_FREE_PARA_FLAG, out.KeyEncryptionAlgorithm.Parameters.pbData);
  FreeIf(out.dwFlags, CMSG_KEY_TRANS_ENCRYPT_FREE_OBJID_FLAG, out.KeyEncryptionAlgorithm.pszObjId);
  Free(out.EncryptedKey.pbData);
  return ERROR_SUCCESS;
}

DWORD SealByAgreement(CMSG_CONTENT_ENCRYPT_INFO& info, CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient,
                      Envelope& envelope) {
  CMSG_KEY_AGREE_KEY_ENCRYPT_INFO one = {sizeof(one), {}};
  PCMSG_KEY_AGREE_KEY_ENCRYPT_INFO ones[] = {&one};
  CMSG_KEY_AGREE_ENCRYPT_INFO out = {};
  out.cbSize = sizeof(out);
  out.cKeyAgreeKeyEncryptInfo = 1;
  out.rgpKeyAgreeKeyEncryptInfo = ones;
  const bool sec1 = !std::strcmp(recipient.pEphemeralAlgorithm->pszObjId, "1.2.840.10045.2.1");
  const auto exporter = sec1 ? XnMsgDllExportKeyAgreeECDH : XnMsgDllExportKeyAgree;
  if (!exporter(&info, &recipient, &out, 0, nullptr)) return GetLastError();
  EXPECT_EQ(out.dwOriginatorChoice, DWORD{CMSG_KEY_AGREE_ORIGINATOR_PUBLIC_KEY});
  const CERT_PUBLIC_KEY_INFO& originator = out.OriginatorPublicKeyInfo;
  envelope.keyEncryption = Copy(out.KeyEncryptionAlgorithm);
  envelope.ukm = CopyBlob(out.UserKeyingMaterial);
  envelope.originator = Copy(originator.Algorithm);
  envelope.originatorKey = CopyBlob(originator.PublicKey);
  envelope.encryptedKey = CopyBlob(one.EncryptedKey);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_PARA_FLAG, out.KeyEncryptionAlgorithm.Parameters.pbData);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_OBJID_FLAG, out.KeyEncryptionAlgorithm.pszObjId);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_MATERIAL_FLAG, out.UserKeyingMaterial.pbData);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_ALG_FLAG, originator.Algorithm.pszObjId);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_PARA_FLAG, originator.Algorithm.Parameters.pbData);
  FreeIf(out.dwFlags, CMSG_KEY_AGREE_ENCRYPT_FREE_PUBKEY_BITS_FLAG, originator.PublicKey.pbData);
  Free(one.EncryptedKey.pbData);
  return ERROR_SUCCESS;
}

void Encrypt(HCRYPTKEY key, const ByteVector& plain, Envelope& envelope) {
  std::array<BYTE, 16> tag;
  DWORD size = static_cast<DWORD>(plain.size());
  DWORD tagSize = tag.size();
  envelope.encrypted = plain;
  envelope.encrypted.resize(plain.size() + 16);
  const DWORD room = static_cast<DWORD>(envelope.encrypted.size());
  EXPECT_TRUE(CryptEncrypt(key, 0, TRUE, 0, envelope.encrypted.data(), &size, room));
  envelope.encrypted.resize(size);
  if (CryptGetKeyParam(key, KP_AUTH_TAG, tag.data(), &tagSize, 0))
    envelope.tag.assign(tag.begin(), tag.begin() + tagSize);
}

}  // namespace

size_t OutstandingPieces() { return outstanding.size(); }
void FailAllocationsAfter(size_t count) { allocationsLeft = count; }

DWORD Seal(const Party& party, const char* content, const ByteVector& plain, const SealOptions& options,
           Envelope& envelope) {
  const Algorithm scheme = options.keyEncryption
      ? Algorithm{options.keyEncryption, options.keyEncryptionParameters}
      : party.algorithm;
  const CRYPT_BIT_BLOB publicKey = {static_cast<DWORD>(party.publicKey.size()),
                                    const_cast<BYTE*>(party.publicKey.data()), 0};
  CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO transport = {};
  transport.cbSize = sizeof(transport);
  transport.KeyEncryptionAlgorithm = scheme.record();
  transport.RecipientPublicKey = publicKey;
  CRYPT_ALGORITHM_IDENTIFIER ephemeral = party.algorithm.record();
  CMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO one = {};
  one.cbSize = sizeof(one);
  one.RecipientPublicKey = publicKey;
  PCMSG_RECIPIENT_ENCRYPTED_KEY_ENCODE_INFO ones[] = {&one};
  CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO agreement = {};
  agreement.cbSize = sizeof(agreement);
  agreement.KeyEncryptionAlgorithm = scheme.record();
  agreement.KeyWrapAlgorithm.pszObjId = const_cast<LPSTR>(options.keyWrap);
  agreement.dwKeyChoice = CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE;
  agreement.pEphemeralAlgorithm = &ephemeral;
  agreement.UserKeyingMaterial = BlobOf(options.ukm);
  agreement.cRecipientEncryptedKeys = 1;
  agreement.rgpRecipientEncryptedKeys = ones;
  CMSG_RECIPIENT_ENCODE_INFO recipient = {CMSG_KEY_TRANS_RECIPIENT, {&transport}};
  if (options.agreement) recipient = {CMSG_KEY_AGREE_RECIPIENT, {.pKeyAgree = &agreement}};
  CMSG_CONTENT_ENCRYPT_INFO info = {};
  info.cbSize = sizeof(info);
  info.ContentEncryptionAlgorithm = {const_cast<LPSTR>(content), BlobOf(options.contentParameters)};
  info.cRecipients = 1;
  info.rgCmsRecipients = &recipient;
  info.pfnAlloc = Allocate;
  info.pfnFree = Free;
  SetLastError(0);
  if (!XnMsgDllGenContentEncryptKey(&info, 0, nullptr)) return GetLastError();
  EXPECT_TRUE(info.dwFlags & CMSG_CONTENT_ENCRYPT_RELEASE_CONTEXT_FLAG);
  const ProviderHandle provider(info.hCryptProv);
  const KeyHandle key(info.hContentEncryptKey);
  envelope = {};
  envelope.agreement = options.agreement;
  envelope.content = Copy(info.ContentEncryptionAlgorithm);
  FreeIf(info.dwFlags, CMSG_CONTENT_ENCRYPT_FREE_PARA_FLAG,
         info.ContentEncryptionAlgorithm.Parameters.pbData);
  const DWORD code = options.agreement ? SealByAgreement(info, agreement, envelope)
                                       : SealByTransport(info, transport, envelope);
  if (!code) Encrypt(key.get(), plain, envelope);
  return code;
}
