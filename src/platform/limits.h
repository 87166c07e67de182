// Every bound that foreign bytes or callers meet stands here, by name.
#ifndef CERTKERN_PLATFORM_LIMITS_H
#define CERTKERN_PLATFORM_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace certkern {

// Sizes cross the interface as 32-bit words; arithmetic is done in 64 bits and refused above this.
inline constexpr uint64_t kMaxInterfaceSize = 0xFFFFFFFFu;

// Narrow form of a general name's text, NUL included.
inline constexpr size_t kMaxAltNameText = 512;

// Content octets of one arc of an object identifier that the decoder takes.
inline constexpr size_t kMaxOidArcOctets = 8;

// A configuration file larger than this is refused, not read.
inline constexpr size_t kMaxConfigurationFile = size_t{1} << 20;

// Names in one dotted key or table header, and tables inside tables. Far above any real setting, and low
// enough that what recurses over the tables stays within a small thread's stack.
inline constexpr size_t kMaxConfigurationDepth = 32;

// Bytes of a record with its newline. No more than PIPE_BUF, so that a pipe, too, takes it in one piece.
inline constexpr size_t kMaxTraceRecord = 4096;

// Bytes of a mutex name. Names are made of whole paths, so they may be as long as these, and a suffix.
inline constexpr size_t kMaxMutexName = 4096 + 256;

// Conversions between code pages count in int; one wide character is four bytes of a record.
inline constexpr size_t kMaxConvertedText = 0x7FFFFFFF / sizeof(wchar_t);

// Bytes of a container's name once it is a file name.
inline constexpr size_t kMaxContainerName = 200;

// A file of a key container: the largest key, certificate or list of extensions that is read.
inline constexpr size_t kMaxContainerFile = size_t{1} << 20;

// Iterations of a password derivation that anything from outside may ask for.
inline constexpr uint32_t kMaxIterations = 5'000'000;

// A message that is signed itself, not its hash, is kept whole until then.
inline constexpr size_t kMaxSignedMessage = size_t{1} << 30;

// Bits of an RSA key: those above only serve to keep a verifier busy.
inline constexpr uint32_t kMaxRsaBits = 16384;
// The bound unless the configuration raises it, up to the one above: a verification takes four times as long there.
inline constexpr uint32_t kDefaultMaxRsaBits = 8192;

// Octets of the exponent of an RSA key; for the same reason.
inline constexpr size_t kMaxRsaExponentOctets = 8;

// Masks that a GOST private key may be multiplied with.
inline constexpr size_t kMaxKeyMasks = 8;

// Octets of the user keying material of an agreement: more would only be reduced modulo the order.
inline constexpr size_t kMaxUkmOctets = 64;

// Signings that one thread has announced and not taken back.
inline constexpr size_t kMaxAnnouncedSignings = 1024;

// A key blob, decoded or made.
inline constexpr size_t kMaxKeyBlob = size_t{1} << 20;

// Issuers' keys that stay imported, and the bytes of one that is worth it.
inline constexpr size_t kMaxHeldKeys = 64;
inline constexpr size_t kMaxHeldKey = 4096;

// Properties of one object in serialized form. Looking one up is a walk over them.
inline constexpr size_t kMaxElementProperties = size_t{1} << 16;

// A file that holds a store, and so the image that is written into one.
inline constexpr size_t kMaxStoreFile = size_t{1} << 30;

// A journal beside one: a whole image with its header, or pieces of one with their table.
inline constexpr size_t kMaxJournal = kMaxStoreFile + kMaxStoreFile / 4;

// How often a store file may be replaced by another while somebody waits for its lock.
inline constexpr unsigned kMaxStoreFileReplacements = 1000;

// Bytes of a store's path, and of what a location's directory is called, NUL included.
inline constexpr size_t kMaxStorePath = 4096;
inline constexpr size_t kMaxStoreDirectory = 1024;

// The name of a system store: wide characters without NUL, and bytes as part of its path, NUL included.
inline constexpr size_t kMaxSystemStoreName = 4096;
inline constexpr size_t kMaxSystemStoreFileName = 512;

// One chain build, clones included. Cross-certified CAs have as many paths as there are orders of them, and a server can
// mint a new issuer for each question: work ends here, and what was found so far is the answer.
inline constexpr size_t kMaxChainNodes = 512;                    // of one path
inline constexpr uint32_t kMaxChainCandidateSteps = 4096;        // to issuers whose signature holds
inline constexpr uint32_t kMaxChainCandidateLooks = 1u << 18;    // at issuers, whatever comes of it
inline constexpr size_t kMaxChainCandidates = 1u << 14;          // of one certificate or CRL
inline constexpr uint32_t kMaxChainRetrievals = 64;              // over the wire
inline constexpr size_t kMaxChainIssuerUrls = 64;                // of one certificate
inline constexpr size_t kMaxChainBundleCertificates = 256;       // taken from one retrieval
inline constexpr size_t kMaxPolicyNodes = 65536;                 // of both policy trees of one pass
inline constexpr uint64_t kMaxPolicyVisits = uint64_t{1} << 26;  // of their nodes, in all passes
inline constexpr size_t kMaxChainCrlUrls = 64;                   // of all points of one certificate or CRL
inline constexpr size_t kMaxChainCrlPoints = 64;                 // of one certificate that are looked at
inline constexpr uint32_t kMaxChainCrlSteps = 1u << 17;  // CRLs collected, and looked at for each point
inline constexpr unsigned kMaxRevocationClones = 16;     // within each other

// Signature verifications of one chain build, its clones and its further chains, and of all builds over one message. The
// unit is a verification with an RSA key of 2048 bits and the exponent 65537, or 16 KiB under the slowest common hash, some
// 30 us: a call ends within a few seconds, whatever keys and sizes it meets, and a message with a thousand signers of one
// authority is far from the bound.
inline constexpr uint32_t kMaxChainVerificationUnits = 1u << 15;
inline constexpr int64_t kMaxMessageVerificationUnits = 1 << 15;
inline constexpr size_t kHashedPerVerificationUnit = size_t{16} << 10;  // bytes
// Keys for which a certificate or CRL remembers whether they made its signature.
inline constexpr size_t kMaxLinkVerdicts = 64;

// Bytes of a URL that is fetched, or kept with an object in the URL cache.
inline constexpr size_t kMaxUrl = 8192;

// Redirects of one transfer.
inline constexpr long kMaxRedirects = 5;

// Bytes of one downloaded object unless the configuration says otherwise, and whatever it says.
inline constexpr int64_t kDefaultDownloadSize = int64_t{256} << 20;
inline constexpr int64_t kMaxDownloadSize = int64_t{1} << 30;

// Bytes of a downloaded certificate, or of a bundle of them: no real one comes near.
inline constexpr size_t kMaxDownloadedCertificate = size_t{1} << 20;

// Bytes of all the header lines of one transfer, those of redirects and interim answers included.
inline constexpr size_t kMaxDownloadHeaders = size_t{256} << 10;

// Milliseconds of a transfer for which the caller has set no limit.
inline constexpr long kDefaultTransferTime = 60'000;

// Bytes of a text that becomes a part of a posted request, NUL included.
inline constexpr size_t kMaxRequestText = 248;

// Bytes of a decoded certificate that stays in its store after the last context of it has gone. Common ones are smaller.
inline constexpr size_t kMaxKeptInfo = 4096;

// Bytes of the question about a trusted root, and characters of the name in it: with a full name the question still
// fits in either language.
inline constexpr size_t kMaxConfirmationText = 1023;
inline constexpr size_t kMaxConfirmedName = 128;

// The identifier of a policy that a site has configured, as text.
inline constexpr size_t kMaxPolicyOidText = 1024;

// Generated ASN.1 types. One allocation of a message's heap is refused from this size on; a message grows no larger.
inline constexpr uint64_t kAsn1AllocationRefused = 2147483600;
inline constexpr uint64_t kMaxAsn1Message = kAsn1AllocationRefused - 1;
// Types within types, and elements of indefinite length within each other.
inline constexpr unsigned kMaxAsn1Depth = 128;
// Elements of one input, counted each time that they are looked at.
inline constexpr uint64_t kMaxAsn1Elements = uint64_t{1} << 24;
// What decoding may take of the heap: a structure of pointers for a two-octet element is fair, thousands of them are not.
inline constexpr uint64_t kAsn1HeapPerInput = 64;
inline constexpr uint64_t kAsn1HeapBase = uint64_t{1} << 16;
// Digits behind the full stop of a GeneralizedTime. With this many a product by the seconds of an hour fits 64 bits.
inline constexpr size_t kMaxAsn1FractionDigits = 15;

// Bytes of a file that is loaded into a blob.
inline constexpr uint64_t kMaxBlobSize = uint64_t{1} << 30;

// Bytes in front of the content of a message, of any type: two lengths of up to 127 octets, and an identifier between them.
inline constexpr size_t kMaxMessagePrefix = 2 + 127 + 11 + 1 + 1 + 127;

// Bytes of a hash's identifier that a hashed message keeps, as text.
inline constexpr size_t kMaxHashOidText = 254;

// The tool's look into the elements of one file: those that are shown, and their levels added up, which is what indentation
// makes of them. An element in octets that are only looked into on trial counts as well. The largest CRLs have some millions.
inline constexpr size_t kMaxAsn1ShownElements = size_t{1} << 22;
inline constexpr size_t kMaxAsn1ShownLevels = size_t{1} << 25;
inline constexpr size_t kMaxAsn1TriedElements = size_t{1} << 24;
// Memory for the values of one type that is checked on the way.
inline constexpr uint64_t kMaxAsn1CheckedHeap = uint64_t{1} << 30;
// A type's name for which similar ones are looked for.
inline constexpr size_t kMaxAsn1TypeName = 128;

}  // namespace certkern

#endif
