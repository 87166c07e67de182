#include "store_selection.h"

#include "decoded.h"
#include "encoded.h"
#include "extension_options.h"
#include "subject.h"
#include "text.h"

#include <certkern/cert.h>
#include <certkern/errors.h>
#include <certkern/name.h>
#include <certkern/properties.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>
#include <span>

namespace certkern::cli {
namespace {

std::span<const BYTE> WithoutZeros(std::span<const BYTE> bigEndian) {
  while (bigEndian.size() > 1 && !bigEndian.front()) bigEndian = bigEndian.subspan(1);
  return bigEndian;
}

// One question that the library's search answers.
struct Question {
  DWORD type;
  const void* parameter;
};

// The questions of a selection, with what they point to.
class Questions {
 public:
  explicit Questions(const Selection& selection) {
    // what the library looks up goes before what it has to walk for
    addHash(selection.hash, "--hash", CERT_FIND_HASH, hash_);
    addHash(selection.keyId, "--key-id", CERT_FIND_KEY_IDENTIFIER, keyId_);
    addText(selection.subject, "--subject", CERT_FIND_SUBJECT_STR_W, subject_);
    addText(selection.issuer, "--issuer", CERT_FIND_ISSUER_STR_W, issuer_);
    addPurposes(selection.purposes);
    if (selection.hasKey) list_.push_back({CERT_FIND_HAS_PRIVATE_KEY, nullptr});
    if (list_.empty()) list_.push_back({CERT_FIND_ANY, nullptr});
  }
  Questions(const Questions&) = delete;
  Questions& operator=(const Questions&) = delete;

  std::span<const Question> list() const { return list_; }

 private:
  struct Hash {
    Bytes bytes;
    CRYPT_HASH_BLOB blob{};
  };
  void addHash(const std::string& text, const char* option, DWORD type, Hash& hash) {
    if (text.empty()) return;
    hash.bytes = BytesOfHex(text, option);
    hash.blob = BlobOf(hash.bytes);
    list_.push_back({type, &hash.blob});
  }
  void addText(const std::string& text, const char* option, DWORD type, std::wstring& wide) {
    if (text.empty()) return;
    wide = Wide(text, option);
    list_.push_back({type, wide.c_str()});
  }
  void addPurposes(const std::vector<std::string>& purposes) {
    if (purposes.empty()) return;
    for (const std::string& purpose : purposes) purposes_.push_back(PurposeOid(purpose, "--extended-usage"));
    for (std::string& purpose : purposes_) pointers_.push_back(purpose.data());
    usage_ = {CheckedSize(pointers_.size()), pointers_.data()};
    list_.push_back({CERT_FIND_ENHKEY_USAGE, &usage_});
  }

  Hash hash_, keyId_;
  std::wstring subject_, issuer_;
  std::vector<std::string> purposes_;
  std::vector<LPSTR> pointers_;
  CERT_ENHKEY_USAGE usage_{};
  std::vector<Question> list_;
};

PCCERT_CONTEXT Find(HCERTSTORE store, const Question& question, PCCERT_CONTEXT previous) {
  return CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, question.type, question.parameter, previous);
}

// A store of this one certificate answers for it.
bool Answers(PCCERT_CONTEXT certificate, std::span<const Question> questions) {
  if (questions.empty()) return true;
  const StoreHandle alone = OpenMemoryStore();
  if (!CertAddCertificateContextToStore(alone.get(), certificate, CERT_STORE_ADD_ALWAYS, nullptr))
    ThrowLastError("memory");
  return std::all_of(questions.begin(), questions.end(), [&](const Question& question) {
    return static_cast<bool>(CertificateHandle(Find(alone.get(), question, nullptr)));
  });
}

// What the library has no search for.
class Remainder {
 public:
  explicit Remainder(const Selection& selection) : usages_(UsageBits(selection.usages)) {
    if (!selection.serial.empty()) serial_ = BytesOfHex(selection.serial, "--serial");
  }
  bool fits(PCCERT_CONTEXT certificate) const {
    return hasSerial(*certificate->pCertInfo) && hasUsages(*certificate);
  }

 private:
  bool hasSerial(const CERT_INFO& info) const {
    if (!serial_) return true;
    const std::span<const BYTE> little = BytesOf(info.SerialNumber);
    const Bytes big(little.rbegin(), little.rend());
    return std::ranges::equal(WithoutZeros(big), WithoutZeros(*serial_));
  }
  bool hasUsages(const CERT_CONTEXT& certificate) const {
    if (!usages_[0] && !usages_[1]) return true;
    std::array<BYTE, 2> own{};
    return CertGetIntendedKeyUsage(X509_ASN_ENCODING, certificate.pCertInfo, own.data(), own.size())
        && (own[0] & usages_[0]) == usages_[0] && (own[1] & usages_[1]) == usages_[1];
  }

  std::optional<Bytes> serial_;
  std::array<BYTE, 2> usages_;
};

// Only what can be said of a list as well.
bool MeansCrls(const Selection& selection) {
  return selection.subject.empty() && selection.serial.empty() && selection.keyId.empty()
      && selection.usages.empty() && selection.purposes.empty() && !selection.hasKey;
}

bool FitsCrl(PCCRL_CONTEXT crl, const Selection& selection) {
  if (!selection.hash.empty()) {
    Bytes hash;
    const auto ask = [&](BYTE* out, DWORD* size) {
      return CertGetCRLContextProperty(crl, CERT_SHA1_HASH_PROP_ID, out, size);
    };
    if (!AskBytes(ask, hash) || hash != BytesOfHex(selection.hash, "--hash")) return false;
  }
  if (selection.issuer.empty()) return true;
  CERT_NAME_BLOB issuer = crl->pCrlInfo->Issuer;
  std::wstring text(CertNameToStrW(X509_ASN_ENCODING, &issuer, CERT_SIMPLE_NAME_STR, nullptr, 0), L'\0');
  CertNameToStrW(X509_ASN_ENCODING, &issuer, CERT_SIMPLE_NAME_STR, text.data(), CheckedSize(text.size()));
  return text.find(Wide(selection.issuer, "--issuer")) != text.npos;
}

}  // namespace

bool Selection::empty() const { return MeansCrls(*this) && hash.empty() && issuer.empty(); }

void AddSelectionOptions(CLI::App& command, Selection& selection) {
  command.add_option("--subject", selection.subject, "The subject has this text in it")->type_name("TEXT");
  command.add_option("--issuer", selection.issuer, "The issuer has this text in it")->type_name("TEXT");
  command.add_option("--serial", selection.serial, "The serial number")->type_name("HEX");
  command.add_option("--hash", selection.hash, "SHA-1 of the whole object")->type_name("HEX");
  command.add_option("--key-id", selection.keyId, "The subject's key identifier")->type_name("HEX");
  AddUsageOption(command, selection.usages,
                 "The key usage has all of these, as digitalSignature,keyCertSign");
  command
      .add_option("--extended-usage", selection.purposes,
                  "The extended key usage has all of these, as serverAuth or dotted identifiers")
      ->allow_extra_args(false)
      ->delimiter(',')
      ->type_name("NAMES");
  command.add_flag("--has-key", selection.hasKey, "A private key belongs to it");
}

void CheckSelection(const Selection& selection) {
  const Questions questions(selection);
  const Remainder remainder(selection);
}

Selected SelectFrom(HCERTSTORE store, const Selection& selection) {
  const Questions questions(selection);
  const Remainder remainder(selection);
  Selected selected;
  for (PCCERT_CONTEXT each = nullptr; (each = Find(store, questions.list().front(), each));) {
    if (!Answers(each, questions.list().subspan(1)) || !remainder.fits(each)) continue;
    selected.certificates.emplace_back(CertDuplicateCertificateContext(each));
  }
  if (!MeansCrls(selection)) return selected;
  ForEachCrl(store, [&](PCCRL_CONTEXT each) {
    if (FitsCrl(each, selection)) selected.crls.emplace_back(CertDuplicateCRLContext(each));
  });
  return selected;
}

}  // namespace certkern::cli
