/** certkern: certificates, stores, names, chains, messages and PKCS #12 for Linux programs. This header is the whole
 *  interface; each of those below can be included by itself as well.
 *
 *  What holds everywhere:
 *  - A function answers TRUE or FALSE, or a handle or pointer or NULL, and a failure leaves its code for GetLastError.
 *  - An output whose size is not known is asked for twice: with a NULL buffer for the size, then with a buffer. Too
 *    small a buffer gives the size and, as a rule, ERROR_MORE_DATA.
 *  - What a Create, Open, Get, Find, Duplicate or Acquire function answers belongs to the caller, who gives it back with
 *    the Free or Close function that its docstring names.
 *  - Text: narrow (A) is UTF-8 or the current encoding, as told; wide (W) has 32 bits a character. The names without A
 *    and W below stand for the narrow form, or with UNICODE defined for the wide one.
 *  - Any thread may call any function; handles that may not be shared say so. */
#ifndef CERTKERN_CERTKERN_H
#define CERTKERN_CERTKERN_H

#include <certkern/attributes.h>
#include <certkern/cert.h>
#include <certkern/chain.h>
#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/find.h>
#include <certkern/keykern.h>
#include <certkern/keys.h>
#include <certkern/msg.h>
#include <certkern/msg_envelope.h>
#include <certkern/msg_simple.h>
#include <certkern/name.h>
#include <certkern/ocsp.h>
#include <certkern/oid.h>
#include <certkern/oids.h>
#include <certkern/pfx.h>
#include <certkern/policy.h>
#include <certkern/properties.h>
#include <certkern/revocation.h>
#include <certkern/store.h>
#include <certkern/sv.h>
#include <certkern/text.h>
#include <certkern/types.h>
#include <certkern/url.h>

#ifdef UNICODE
#define CERTKERN_TEXT_FORM(name) name##W
#else
#define CERTKERN_TEXT_FORM(name) name##A
#endif

/* CertOpenSystemStore is not among them: it is a function. */
#define CertAddEncodedCertificateToSystemStore CERTKERN_TEXT_FORM(CertAddEncodedCertificateToSystemStore)
#define CertGetNameString CERTKERN_TEXT_FORM(CertGetNameString)
#define CertNameToStr CERTKERN_TEXT_FORM(CertNameToStr)
#define CertRDNValueToStr CERTKERN_TEXT_FORM(CertRDNValueToStr)
#define CertStrToName CERTKERN_TEXT_FORM(CertStrToName)
#define CryptBinaryToString CERTKERN_TEXT_FORM(CryptBinaryToString)
#define CryptRetrieveObjectByUrl CERTKERN_TEXT_FORM(CryptRetrieveObjectByUrl)
#define CryptStringToBinary CERTKERN_TEXT_FORM(CryptStringToBinary)

#endif
