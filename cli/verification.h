// Judging the signers of a message.
#ifndef CERTKERN_CLI_VERIFICATION_H
#define CERTKERN_CLI_VERIFICATION_H

#include "chain_report.h"
#include "message.h"
#include "signer_faults.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace certkern::cli {

struct VerifyOptions {
  std::string file;
  std::string content;  // of a detached message
  DWORD signer = 0;     // from 1; 0: all
  ChainOptions chain;
};

// Unknown: nothing in the message tells it apart from the signature.
enum class ContentFinding { Intact, Changed, Unknown };
enum class SignatureFinding { Valid, Invalid, Unchecked };

// What one certificate makes of a signature.
struct CertificateFindings {
  SignatureFinding signature = SignatureFinding::Unchecked;
  DWORD code = 0;  // why it is not valid
  BindingFinding binding = BindingFinding::None;
  std::vector<SignerFault> faults;
  std::optional<BuiltChain> chain;  // none: no certificate was found
};

struct SignerFindings {
  DWORD number = 0;  // from 1
  Bytes record;      // a CMSG_CMS_SIGNER_INFO
  std::optional<FILETIME> signingTime;
  ContentFinding content = ContentFinding::Unknown;
  CertificateFindings certificate;

  const CMSG_CMS_SIGNER_INFO& info() const { return RecordIn<CMSG_CMS_SIGNER_INFO>(record); }
};
Verdict VerdictOn(const SignerFindings& signer);

struct MessageFindings {
  bool detached = false;
  size_t contentSize = 0;
  DWORD signerCount = 0;  // in the message
  std::vector<SignerFindings> signers;
};
// The worst of all signers'.
Verdict VerdictOn(const MessageFindings& message);

MessageFindings VerifyMessage(const VerifyOptions& options);

std::string VerificationText(const MessageFindings& message);
Field VerificationField(const MessageFindings& message);

}  // namespace certkern::cli

#endif
