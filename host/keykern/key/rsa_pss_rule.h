// What an RSA key that is for RSASSA-PSS alone says about its signatures. RFC 4055, 3.1
#ifndef CERTKERN_KEYKERN_KEY_RSA_PSS_RULE_H
#define CERTKERN_KEYKERN_KEY_RSA_PSS_RULE_H

#include <certkern/keykern.h>

#include <span>

namespace keykern {

struct RsaPssRule {
  ALG_ID hash = 0;        // the only one; 0: any
  DWORD minimumSalt = 0;  // bytes
};

// parameters: one whole element, or nothing, which stands for no rule. False: not such parameters, or a mask generation
// with another hash than the signature's, which nothing here can do.
bool ReadRsaPssRule(std::span<const BYTE> parameters, RsaPssRule& rule);

}  // namespace keykern

#endif
