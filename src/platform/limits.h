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

// Properties of one object in serialized form. Looking one up is a walk over them.
inline constexpr size_t kMaxElementProperties = size_t{1} << 16;

// A file that holds a store, and so the image that is written into one.
inline constexpr size_t kMaxStoreFile = size_t{1} << 30;

// Bytes of a store's path, and of what a location's directory is called, NUL included.
inline constexpr size_t kMaxStorePath = 4096;
inline constexpr size_t kMaxStoreDirectory = 1024;

// The name of a system store: wide characters without NUL, and bytes as part of its path, NUL included.
inline constexpr size_t kMaxSystemStoreName = 4096;
inline constexpr size_t kMaxSystemStoreFileName = 512;

// One chain build, clones included. Cross-certified CAs have as many paths as there are orders of them, and a server can
// mint a new issuer for each question: work ends here, and what was found so far is the answer.
inline constexpr size_t kMaxChainNodes = 512;  // of one path
inline constexpr uint32_t kMaxChainCandidateSteps = 4096;
inline constexpr uint32_t kMaxChainRetrievals = 64;         // over the wire
inline constexpr size_t kMaxChainBundleCertificates = 256;  // taken from one retrieval
inline constexpr size_t kMaxPolicyNodes = 65536;            // of both policy trees of one pass
inline constexpr unsigned kMaxRevocationClones = 16;        // within each other

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

}  // namespace certkern

#endif
