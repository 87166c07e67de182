// Signers of messages, between the generated type and both published records.
#ifndef CERTKERN_CERTKERN_ASN1SIGNERTRAITS_H
#define CERTKERN_CERTKERN_ASN1SIGNERTRAITS_H

#include <certkern/msg.h>

#include "certkern/ASN1Traits.h"

namespace certkern {

// In the records, parameters that are NULL and absent ones are the same: empty.
struct SignerInfoTraits {
  using Generated = asn1data::ASN1T_SignerInfo;
  // A signer that is named by its key leaves Issuer and SerialNumber empty.
  static void get(const Generated& generated, CMSG_SIGNER_INFO& record, BerDecodeArena& arena);
  // False for an identifier of another kind.
  [[nodiscard]] static bool get(const Generated& generated, CMSG_CMS_SIGNER_INFO& record,
                                BerDecodeArena& arena);
  // Both algorithms by the rule of AlgorithmTraits. Attributes keep their order: what a signature counts on must be
  // sorted already, and the encoder told SetOrder::AsGiven.
  [[nodiscard]] static bool set(ASN1Context& context, const CMSG_CMS_SIGNER_INFO& record,
                                Generated& generated);
};

}  // namespace certkern

#endif
