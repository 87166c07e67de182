// What is wrong with a signer although his signature verifies: what it does not cover, and what his certificate is not for.
#ifndef CERTKERN_CLI_SIGNER_FAULTS_H
#define CERTKERN_CLI_SIGNER_FAULTS_H

#include "message.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace certkern::cli {

enum class SignerFault {
  UnknownAlgorithm,
  AlgorithmOfAnotherKey,
  AlgorithmOfAnotherHash,
  AttributesAsContent,
  NoContentType,
  OtherContentType,
  SeveralDigests,
  NotForSignatures,
};
// What a fault is against.
enum class FaultSubject { Signature, ContentType, Certificate };
FaultSubject SubjectOf(SignerFault fault);
std::string_view NameOf(SignerFault fault);      // for programs
std::string_view SentenceOf(SignerFault fault);  // behind what it is against

// The algorithm that a signer names is not signed, and any key verifies with its own: it has to be that of the key, over the
// hash that the signer names.
std::optional<SignerFault> AlgorithmFault(const CMSG_CMS_SIGNER_INFO& info, const CERT_PUBLIC_KEY_INFO& key);
// RFC 5652, 5.3, 11.1 and 11.2: signed attributes have the type of the content among them, which is signed nowhere else, and its
// digest, both once; and only plain data may do without them.
std::optional<SignerFault> SignedAttributesFault(const CMSG_CMS_SIGNER_INFO& info,
                                                 std::string_view contentType);
// Signed attributes are hashed as a SET, and so is content without attributes as it is: such a SET, put in as the content, has a
// signature that somebody made for something else.
bool AreSignedAttributes(std::span<const BYTE> content);
std::optional<SignerFault> UsageFault(PCCERT_CONTEXT certificate);

// Whether the signer has signed which certificate is his. RFC 5035
enum class BindingFinding { None, Same, Other };
BindingFinding JudgeBinding(const CMSG_CMS_SIGNER_INFO& info, PCCERT_CONTEXT certificate);

// Hashes for which other content of the same value can be made.
bool IsWeakHash(LPCSTR oid);

// Nothing for a hash that the key library does not have.
std::optional<Bytes> HashOf(LPCSTR oid, std::span<const BYTE> bytes);

}  // namespace certkern::cli

#endif
