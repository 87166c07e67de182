// What all messages share: opening, how a type is found, handles, sizes; and plain data.
#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/oids.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <set>

#include "api/trace_recorder.h"
#include "certkern/CMSMessageProxy.h"
#include "certkern/cms_objects.h"
#include "platform/exceptions.h"
#include "platform/limits.h"
#include "store/fault_plan.h"
#include "support/hex.h"

using namespace certkern;
using namespace certkern::test;

namespace {

constexpr char kDataOid[] = "06092a864886f70d010701";

Bytes Published(const std::string& name) {
  return ReadFile(CERTKERN_SOURCE_DIR "/tests/data/published/" + name);
}

DWORD UpdateCode(const Message& message, const Bytes& data, BOOL final) {
  const BYTE none = 0;
  const BYTE* const bytes = data.empty() ? &none : data.data();
  return CryptMsgUpdate(message.get(), bytes, static_cast<DWORD>(data.size()), final) ? 0 : GetLastError();
}
DWORD ParameterCode(const Message& message, DWORD type) {
  DWORD size = 0;
  return CryptMsgGetParam(message.get(), type, 0, nullptr, &size) ? 0 : GetLastError();
}
DWORD ControlCode(const Message& message, DWORD control) {
  return CryptMsgControl(message.get(), 0, control, nullptr) ? 0 : GetLastError();
}
Message OpenDecoder(DWORD type = 0, DWORD flags = 0) {
  return Message(CryptMsgOpenToDecode(0, flags, type, 0, nullptr, nullptr));
}
Message OpenDataEncoder() {
  return Message(CryptMsgOpenToEncode(X509_ASN_ENCODING, 0, CMSG_DATA, nullptr, nullptr, nullptr));
}

Bytes Counting(size_t size) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), BYTE{0});
  return bytes;
}

}  // namespace

// --- the type ---

TEST(MessageType, DetectedFromTheStart) {
  struct Case {
    const char* name;
    std::string hex;
    DWORD type;  // 0: refused
    size_t offset;
  };
  const std::string manyLengthOctets = "ff" + std::string(254, '0');
  const Case cases[] = {
      {"short lengths",         "300f" + std::string(kDataOid) + "a002",                      1, 15 },
      {"long lengths",          "308200ff06092a864886f70d010702a08200ee",                     2, 19 },
      {"indefinite lengths",    "308006092a864886f70d010703a080",                             3, 15 },
      {"lengths that are lies", "307f06092a864886f70d010705a000",                             5, 15 },
      {"the longest start",     "30" + manyLengthOctets + kDataOid + "a0" + manyLengthOctets, 1, 269},
      {"signed and enveloped",  "300f06092a864886f70d010704a002",                             0, 13 },
      {"encrypted",             "300f06092a864886f70d010706a002",                             0, 13 },
      {"of another arc",        "300f06092a864886f70d010801a002",                             0, 12 },
      {"a longer identifier",   "300f060a2a864886f70d01070101a0",                             0, 4  },
      {"no content",            "300f06092a864886f70d0107010500",                             0, 14 },
      {"no sequence",           "310f" + std::string(kDataOid) + "a002",                      0, 1  },
      {"no identifier",         "3003020100",                                                 0, 3  },
  };
  for (const auto& [name, hex, type, offset] : cases) {
    SCOPED_TRACE(name);
    const Bytes bytes = FromHex(hex);
    for (size_t size = 0; size < offset; ++size) {
      ASSERT_FALSE(DetectContent(std::span(bytes).first(size))) << size;
    }
    if (!type) {
      EXPECT_THROW(DetectContent(std::span(bytes).first(std::max<size_t>(offset, 3))), CryptException);
      continue;
    }
    const auto found = DetectContent(bytes);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->type, type);
    EXPECT_EQ(found->offset, offset);
    EXPECT_LE(offset, kMaxMessagePrefix);
  }
}

TEST(MessageType, HeldBackUntilItIsKnown) {
  const Bytes encoded = Published("rfc4134/3.1.bin");  // indefinite lengths
  constexpr size_t kStart = 15;
  for (const size_t first : {size_t{1}, size_t{2}, size_t{7}, kStart - 1}) {
    const Message message = OpenDecoder();
    EXPECT_EQ(ParameterCode(message, CMSG_TYPE_PARAM), DWORD{CRYPT_E_STREAM_MSG_NOT_READY});
    EXPECT_EQ(ControlCode(message, CMSG_CTRL_VERIFY_HASH), DWORD{ERROR_INVALID_PARAMETER});
    const auto split = encoded.begin() + static_cast<ptrdiff_t>(first);
    ASSERT_EQ(UpdateCode(message, Bytes(encoded.begin(), split), FALSE), 0u);
    EXPECT_EQ(ParameterCode(message, CMSG_TYPE_PARAM), DWORD{CRYPT_E_STREAM_MSG_NOT_READY});
    ASSERT_EQ(UpdateCode(message, Bytes(split, encoded.end()), TRUE), 0u);
    const Bytes content = Parameter(message.get(), CMSG_CONTENT_PARAM);
    EXPECT_EQ(std::string(content.begin(), content.end()), "This is some sample content.");
  }
  EXPECT_EQ(UpdateCode(OpenDecoder(), {0x30}, FALSE), 0u);
  EXPECT_EQ(UpdateCode(OpenDecoder(), {0x30}, TRUE), DWORD{E_INVALIDARG});
  const Message refused = OpenDecoder();
  EXPECT_EQ(UpdateCode(refused, {0x31}, FALSE), DWORD{CRYPT_E_INVALID_MSG_TYPE});
  EXPECT_EQ(UpdateCode(refused, encoded, TRUE), DWORD{CRYPT_E_INVALID_MSG_TYPE}) << "for good";
}

TEST(MessageType, WithoutMemoryOneMayTryAgain) {
  const Bytes encoded = SignedBytes("rsa-attached.cms");
  const Certificate certificate = SignerCertificate("rsa");
  int told = 0;
  for (FaultPlan plan; plan.next() && plan.faults() < 30;) {  // later on keys and hashes are at work
    const Message message = OpenDecoder();
    DWORD code = 0;
    if (plan.run([&] { return !(code = UpdateCode(message, encoded, TRUE)); })) continue;
    ++told;
    const DWORD again = UpdateCode(message, encoded, TRUE);
    EXPECT_NE(code, 0u);
    if (!again) {
      EXPECT_EQ(VerifyByIndex(message.get(), 0, certificate.get()), 0u) << plan.faults();
    }
    for (const DWORD type : {CMSG_CONTENT_PARAM, CMSG_CERT_PARAM, CMSG_CMS_SIGNER_INFO_PARAM}) {
      static_cast<void>(ParameterCode(message, type));
    }
  }
  EXPECT_GT(told, 10);
}

TEST(MessageType, WhatIsNotServedIsRefused) {
  EXPECT_EQ(UpdateCode(OpenDecoder(), Published("rfc4134/5.1.bin"), TRUE), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  CMSG_STREAM_INFO stream{CMSG_INDEFINITE_LENGTH, nullptr, nullptr};
  const auto openCode = [&](DWORD type, CMSG_STREAM_INFO* info) {
    SetLastError(0);
    return Message(CryptMsgOpenToDecode(0, 0, type, 0, nullptr, info)) ? 0 : GetLastError();
  };
  EXPECT_EQ(openCode(CMSG_ENVELOPED, nullptr), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(openCode(CMSG_HASHED, &stream), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  EXPECT_EQ(openCode(CMSG_DATA, &stream), DWORD{ERROR_CALL_NOT_IMPLEMENTED});
  for (const DWORD type : {CMSG_SIGNED_AND_ENVELOPED, CMSG_ENCRYPTED, 7u, ~0u}) {
    EXPECT_EQ(openCode(type, nullptr), DWORD{ERROR_INVALID_PARAMETER}) << type;
  }
}

// --- opening, and the calls around it ---

TEST(MessageOpen, Arguments) {
  CMSG_SIGNED_ENCODE_INFO bag{};
  bag.cbSize = sizeof bag;
  CMSG_HASHED_ENCODE_INFO hashed{};
  CMSG_STREAM_INFO stream{CMSG_INDEFINITE_LENGTH, nullptr, nullptr};
  struct Case {
    const char* name;
    DWORD encoding, flags, type;
    const void* info;
    const char* inner;
    CMSG_STREAM_INFO* stream;
    DWORD code;
  };
  const Case cases[] = {
      {"data",                     1,       0, CMSG_DATA,                 nullptr, nullptr,        nullptr, 0                         },
      {"both encodings",           0x10001, 0, CMSG_DATA,                 nullptr, "1.2.3",        nullptr, 0                         },
      {"signed by nobody",         0x10000, 0, CMSG_SIGNED,               &bag,    nullptr,        nullptr, 0                         },
      {"no encoding",              0,       0, CMSG_DATA,                 nullptr, nullptr,        nullptr, ERROR_INVALID_PARAMETER   },
      {"another encoding",         3,       0, CMSG_DATA,                 nullptr, nullptr,        nullptr, ERROR_INVALID_PARAMETER   },
      {"no type",                  1,       0, 0,                         &bag,    nullptr,        nullptr, ERROR_INVALID_PARAMETER   },
      {"a type beyond",            1,       0, CMSG_ENCRYPTED,            &bag,    nullptr,        nullptr, ERROR_INVALID_PARAMETER   },
      {"signed and enveloped",     1,       0, CMSG_SIGNED_AND_ENVELOPED, &bag,    nullptr,        nullptr,
       ERROR_INVALID_PARAMETER                                                                                                        },
      {"signed without info",      1,       0, CMSG_SIGNED,               nullptr, nullptr,        nullptr, ERROR_INVALID_PARAMETER   },
      {"data with info",           1,       0, CMSG_DATA,                 &bag,    nullptr,        nullptr, DWORD(E_INVALIDARG)       },
      {"detached data",            1,       4, CMSG_DATA,                 nullptr, nullptr,        nullptr, DWORD(E_INVALIDARG)       },
      {"a stream of another type", 1,       0, CMSG_SIGNED,               &bag,    "1.2.3",        &stream, ERROR_INVALID_PARAMETER   },
      {"a stream of hashed data",  1,       0, CMSG_HASHED,               &hashed, nullptr,        &stream, ERROR_INVALID_PARAMETER   },
      {"a stream",                 1,       0, CMSG_DATA,                 nullptr, szOID_RSA_data, &stream, ERROR_CALL_NOT_IMPLEMENTED},
      {"enveloped",                1,       0, CMSG_ENVELOPED,            &bag,    nullptr,        nullptr, ERROR_CALL_NOT_IMPLEMENTED},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    SetLastError(0);
    const Message message(CryptMsgOpenToEncode(each.encoding, each.flags, each.type, each.info,
                                               const_cast<LPSTR>(each.inner), each.stream));
    EXPECT_EQ(static_cast<bool>(message), each.code == 0);
    EXPECT_EQ(GetLastError(), each.code);
  }
  EXPECT_FALSE(CryptMsgOpenToDecode(0, CMSG_CRYPT_RELEASE_CONTEXT_FLAG, 0, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(MessageHandles, NullIsRefusedAndNoDataIsNothing) {
  const BYTE byte = 0;
  SetLastError(0);
  EXPECT_FALSE(CryptMsgUpdate(nullptr, &byte, 1, TRUE));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(CryptMsgGetParam(nullptr, CMSG_TYPE_PARAM, 0, nullptr, nullptr));
  EXPECT_FALSE(CryptMsgControl(nullptr, 0, CMSG_CTRL_VERIFY_HASH, nullptr));
  EXPECT_FALSE(CryptMsgDuplicate(nullptr));
  EXPECT_FALSE(CryptMsgClose(nullptr));
  const Message message = OpenDataEncoder();
  EXPECT_FALSE(CryptMsgUpdate(message.get(), nullptr, 1, TRUE));
  EXPECT_TRUE(CryptMsgUpdate(message.get(), nullptr, 0, TRUE));
  EXPECT_EQ(ParameterCode(message, CMSG_CONTENT_PARAM), DWORD{ERROR_MORE_DATA}) << "not finished by that";
}

TEST(MessageHandles, TheLastCloseFrees) {
  Message message = OpenDataEncoder();
  const Message second(CryptMsgDuplicate(message.get()));
  EXPECT_EQ(second.get(), message.get());
  SetLastError(0x1234);
  EXPECT_TRUE(CryptMsgClose(message.release()));
  EXPECT_EQ(GetLastError(), 0x1234u);
  EXPECT_EQ(UpdateCode(second, {1}, TRUE), 0u);
}

TEST(MessageHandles, CountersignaturesAreNotServed) {
  SetLastError(0x1234);
  EXPECT_FALSE(CryptMsgCountersign(nullptr, 0, 0, nullptr));
  EXPECT_FALSE(CryptMsgCountersignEncoded(1, nullptr, 0, 0, nullptr, nullptr, nullptr));
  EXPECT_FALSE(CryptMsgVerifyCountersignatureEncoded(0, 1, nullptr, 0, nullptr, 0, nullptr));
  EXPECT_FALSE(CryptMsgVerifyCountersignatureEncodedEx(0, 1, nullptr, 0, nullptr, 0, 1, nullptr, 0, nullptr));
  EXPECT_EQ(GetLastError(), 0x1234u);
}

TEST(MessageTrace, AnswersAreNotFaults) {
  TraceRecorder recorder;
  EXPECT_EQ(UpdateCode(OpenDecoder(), {0x31}, TRUE), DWORD{CRYPT_E_INVALID_MSG_TYPE});
  EXPECT_EQ(UpdateCode(OpenDecoder(), {0x30}, TRUE), DWORD{E_INVALIDARG});
  EXPECT_FALSE(OpenDecoder(CMSG_ENCRYPTED));
  EXPECT_EQ(UpdateCode(OpenDecoder(CMSG_HASHED), {0x30, 0}, TRUE), DWORD{CRYPT_E_ASN1_CORRUPT});
  std::vector<std::string> said;
  for (const TraceRecord& each : recorder.records) {
    if (each.level < 4) said.push_back(std::to_string(each.level) + " " + each.text);
  }
  ASSERT_EQ(said.size(), 4u);
  EXPECT_TRUE(said[0].starts_with("2 () Exception :'Error 0x80091004.' at file:'certkern/CMSMessageProxy'"));
  EXPECT_TRUE(said[1].starts_with("1 () Exception :'Error 0x80070057.'"));
  EXPECT_TRUE(
      said[2].starts_with("1 () Exception :'Unsupported dwMsgType' at file:'certkern/CMSMessage' line:"));
  EXPECT_TRUE(said[3].starts_with("1 () Exception :'ASN.1 ERROR:"));
}

// --- answers ---

TEST(MessageParameters, RoomIsAskedForAndChecked) {
  const Message message = OpenMessage(Published("rfc4134/3.1.bin"));
  DWORD value = 0x5A5A5A5A, size = 3;
  EXPECT_FALSE(CryptMsgGetParam(message.get(), CMSG_TYPE_PARAM, 0, &value, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(size, 4u);
  EXPECT_FALSE(CryptMsgGetParam(message.get(), CMSG_TYPE_PARAM, 0, &value, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(value, 0x5A5A5A5Au) << "nothing was written";
  size = 100;
  EXPECT_TRUE(CryptMsgGetParam(message.get(), CMSG_TYPE_PARAM, 0, &value, &size));
  EXPECT_EQ(value, DWORD{CMSG_DATA});
  EXPECT_EQ(size, 4u);
  EXPECT_TRUE(CryptMsgGetParam(message.get(), CMSG_TYPE_PARAM, 0, nullptr, nullptr));
}

// What each kind of message tells and takes, and no other.
TEST(MessageParameters, EachKindHasItsOwn) {
  const OwnKey key("p256");
  CMSG_HASHED_ENCODE_INFO hashed{};
  hashed.cbSize = sizeof hashed;
  hashed.HashAlgorithm.pszObjId = const_cast<char*>("2.16.840.1.101.3.4.2.1");
  struct Kind {
    const char* name;
    Message message;
    std::set<DWORD> parameters, controls;
  };
  Kind kinds[6] = {
      {"data, written",   OpenDataEncoder(),                               {1, 2, 3},                                                                       {}                                                                                                                        },
      {"data, read",      OpenMessage(Published("rfc4134/3.1.bin")),       {1, 2, 3, 29},                                                                   {}                                                                                                                        },
      {"hashed, written",
       Message(CryptMsgOpenToEncode(X509_ASN_ENCODING,                     0,                                                                               CMSG_HASHED,                                                                                                                &hashed, nullptr, nullptr)),
       {1, 2, 3, 4, 20, 21, 22, 30},
       {}},
      {"hashed, read",          OpenMessage(Published("rfc4134/6.0.bin")),                                                {1, 2, 3, 4, 20, 21, 22, 29, 30},                                                                                                                        {5}                                                                                                                                                                                                                                                                             },
      {"signed, written",    OpenToSign({key.signer()}), {1, 2, 3, 6, 22, 27, 28, 39}, {8, 9, 10, 12}},
      {"signed, read",
       OpenMessage(SignedBytes("rsa-attached.cms")),
       {1, 2, 3, 4, 5, 6, 7, 9, 10, 11, 12, 13, 14, 22, 27, 28, 29, 30, 38, 39},
       {1, 6, 7, 8, 9, 10, 11, 12, 13, 19, 20}                                                                                                                                                                                 },
  };
  for (Kind& kind : kinds) {
    ASSERT_TRUE(kind.message) << kind.name;
    static_cast<void>(UpdateCode(kind.message, {}, TRUE));  // the writers' content is empty
    for (DWORD code = 0; code <= 45; ++code) {
      DWORD size = 0;
      const BOOL told = CryptMsgGetParam(kind.message.get(), code, 0, nullptr, &size);
      EXPECT_EQ(told || GetLastError() != CRYPT_E_INVALID_MSG_TYPE, kind.parameters.contains(code))
          << kind.name << ", parameter " << code;
      EXPECT_TRUE(told || !kind.parameters.contains(code)) << kind.name << ", parameter " << code;
    }
    for (DWORD code = 0; code <= 25; ++code) {
      const BOOL done = CryptMsgControl(kind.message.get(), 0, code, nullptr);
      EXPECT_EQ(done || GetLastError() != CRYPT_E_INVALID_MSG_TYPE, kind.controls.contains(code))
          << kind.name << ", control " << code;
    }
  }
}

// --- plain data ---

TEST(DataMessages, WrittenAsEncodersOfOthersWrite) {
  struct Case {
    size_t size;
    const char* header;  // of the ContentInfo; the last two fields are the OCTET STRING's
  };
  const Case cases[] = {
      {0,     "300f06092a864886f70d010701a0020400"},
      {3,     "301206092a864886f70d010701a0050403"},
      {200,
       "3081d906092a864886f70d010701a081cb0481"
       "c8"                                       },
      {70000,
       "3083011185"
       "06092a864886f70d010701a083011175"
       "0483011170"                               },
  };
  for (const auto& [size, header] : cases) {
    SCOPED_TRACE(size);
    const Bytes content = Counting(size);
    const Message message = OpenDataEncoder();
    for (size_t at = 0; at < size; at += 1000) {
      const auto from = content.begin() + static_cast<ptrdiff_t>(at);
      const auto to = content.begin() + static_cast<ptrdiff_t>(std::min(size, at + 1000));
      ASSERT_EQ(UpdateCode(message, Bytes(from, to), FALSE), 0u);
      ASSERT_EQ(ParameterCode(message, CMSG_BARE_CONTENT_PARAM), DWORD{ERROR_MORE_DATA});
    }
    ASSERT_EQ(UpdateCode(message, {}, TRUE), 0u);
    Bytes expected = FromHex(header);
    expected.insert(expected.end(), content.begin(), content.end());
    EXPECT_EQ(Parameter(message.get(), CMSG_CONTENT_PARAM), expected);
    const Bytes bare = Parameter(message.get(), CMSG_BARE_CONTENT_PARAM);
    EXPECT_TRUE(std::equal(bare.rbegin(), bare.rend(), expected.rbegin()));
    EXPECT_EQ(bare[0], 0x04);
    EXPECT_EQ(UpdateCode(message, {1}, TRUE), DWORD{E_INVALIDARG}) << "after the end";

    for (const DWORD flags : {DWORD{0}, DWORD{CMSG_BARE_CONTENT_FLAG}}) {
      EXPECT_EQ(
          CryptMsgCalculateEncodedLength(1, flags, CMSG_DATA, nullptr, nullptr, static_cast<DWORD>(size)),
          flags ? bare.size() : expected.size());
    }
    const Message read = OpenMessage(expected);
    EXPECT_EQ(Parameter(read.get(), CMSG_CONTENT_PARAM), content);
    EXPECT_EQ(Parameter(read.get(), CMSG_ENCODED_MESSAGE), bare);
    EXPECT_EQ(Parameter(read.get(), CMSG_BARE_CONTENT_PARAM), Bytes());
  }
}

TEST(DataMessages, ReadInEveryForm) {
  const std::pair<const char*, const char*> cases[] = {
      {"0403616263",           "616263"},
      {"24070401610402626363", "616263"}, // what comes behind is not looked at
      {"2480040161240404026263"
       "0000",          "616263"},
      {"0400",                 ""      },
      {"2400",                 ""      },
  };
  for (const auto& [hex, content] : cases) {
    const Message message = OpenDecoder(CMSG_DATA);
    EXPECT_EQ(ParameterCode(message, CMSG_CONTENT_PARAM), DWORD{ERROR_MORE_DATA});
    EXPECT_TRUE(Parameter(message.get(), CMSG_ENCODED_MESSAGE).empty()) << "nothing yet";
    ASSERT_EQ(UpdateCode(message, FromHex(hex), FALSE), 0u) << hex;
    EXPECT_EQ(ToHex(Parameter(message.get(), CMSG_ENCODED_MESSAGE)), std::string(hex));
    EXPECT_EQ(ToHex(Parameter(message.get(), CMSG_CONTENT_PARAM)), content) << hex;
    EXPECT_EQ(UpdateCode(message, {1}, TRUE), DWORD{E_INVALIDARG}) << "a second message";
  }
  for (const char* const hex : {"", "04", "0405616263", "0500", "248004016104026263", "24030502"}) {
    EXPECT_EQ(UpdateCode(OpenDecoder(CMSG_DATA), FromHex(hex), TRUE), DWORD{CRYPT_E_ASN1_INTERNAL}) << hex;
  }
}

TEST(DataMessages, TakeNeitherProvidersNorFlags) {
  HCRYPTPROV provider = 0;
  ASSERT_TRUE(CryptAcquireContextA(&provider, nullptr, nullptr, PROV_GOST_2012_256, CRYPT_VERIFYCONTEXT));
  SetLastError(0);
  EXPECT_FALSE(
      CryptMsgOpenToDecode(0, CMSG_CRYPT_RELEASE_CONTEXT_FLAG, CMSG_DATA, provider, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), DWORD(E_INVALIDARG));
  EXPECT_FALSE(OpenDecoder(CMSG_DATA, CMSG_DETACHED_FLAG));
  EXPECT_EQ(GetLastError(), DWORD(E_INVALIDARG));

  // found out late when the type comes late; the provider still goes with the message
  const Bytes encoded = Published("rfc4134/3.1.bin");
  EXPECT_EQ(UpdateCode(OpenDecoder(0, CMSG_DETACHED_FLAG), encoded, TRUE), DWORD(E_INVALIDARG));
  Message message(CryptMsgOpenToDecode(0, CMSG_CRYPT_RELEASE_CONTEXT_FLAG, 0, provider, nullptr, nullptr));
  EXPECT_EQ(UpdateCode(message, encoded, TRUE), DWORD(E_INVALIDARG));
  EXPECT_TRUE(CryptContextAddRef(provider, nullptr, 0) && CryptReleaseContext(provider, 0)) << "still there";
  message.reset();
  EXPECT_FALSE(CryptReleaseContext(provider, 0)) << "released once, by the close";
}

// --- who signed ---

TEST(SignerSearch, FindsAndVerifies) {
  const Message message = OpenMessage(SignedBytes("two.cms"));  // rsa, p256, with their certificates
  ASSERT_TRUE(message);
  PCCERT_CONTEXT found = nullptr;
  DWORD index = 77;
  const auto search = [&](DWORD flags, std::vector<HCERTSTORE> stores = {}) {
    const BOOL done = CryptMsgGetAndVerifySigner(message.get(), static_cast<DWORD>(stores.size()),
                                                 stores.data(), flags, &found, &index);
    return done ? DWORD{0} : GetLastError();
  };
  EXPECT_EQ(search(0), 0u);
  EXPECT_EQ(index, 0u);
  const Certificate first(found);
  for (const DWORD wanted : {0u, 1u}) {
    index = wanted;
    EXPECT_EQ(search(CMSG_USE_SIGNER_INDEX_FLAG), 0u);
    EXPECT_EQ(index, wanted);
    const Certificate signer(found);
    EXPECT_EQ(VerifyByIndex(message.get(), wanted, signer.get()), 0u);
    EXPECT_NE(VerifyByIndex(message.get(), 1 - wanted, signer.get()), 0u);
  }
  index = 2;
  EXPECT_EQ(search(CMSG_USE_SIGNER_INDEX_FLAG), DWORD{CRYPT_E_NO_TRUSTED_SIGNER});
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(search(8), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(
      CryptMsgGetAndVerifySigner(message.get(), 0, nullptr, CMSG_USE_SIGNER_INDEX_FLAG, &found, nullptr));

  // only the caller's store counts: without a certificate, with the second signer's
  EXPECT_EQ(search(CMSG_TRUSTED_SIGNER_FLAG), DWORD{CRYPT_E_NO_TRUSTED_SIGNER});
  const Owner<HCERTSTORE, CertCloseStore> trusted(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
  const Certificate second = SignerCertificate("p256");
  ASSERT_TRUE(CertAddCertificateContextToStore(trusted.get(), second.get(), CERT_STORE_ADD_ALWAYS, nullptr));
  EXPECT_EQ(search(CMSG_TRUSTED_SIGNER_FLAG, {trusted.get()}), 0u);
  EXPECT_EQ(VerifyByIndex(message.get(), index, second.get()), 0u);
  CertFreeCertificateContext(found);
}

TEST(SignerSearch, TellsAForgedMessage) {
  Bytes forged = SignedBytes("rsa-attached.cms");
  const auto content =
      std::search(forged.begin(), forged.end(), SignedContent().begin(), SignedContent().end());
  ASSERT_NE(content, forged.end());
  *content ^= 1;
  const Message message = OpenMessage(forged);
  PCCERT_CONTEXT found = nullptr;
  EXPECT_FALSE(CryptMsgGetAndVerifySigner(message.get(), 0, nullptr, 0, &found, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{NTE_BAD_SIGNATURE});
  EXPECT_EQ(found, nullptr);
  EXPECT_TRUE(CryptMsgGetAndVerifySigner(message.get(), 0, nullptr, CMSG_SIGNER_ONLY_FLAG, &found, nullptr));
  CertFreeCertificateContext(found);
}

// One store for all signers, as long as it has what the message has.
TEST(SignerSearch, TheStoreStaysWithTheMessage) {
  const Message message = OpenMessage(SignedBytes("p256-attached.cms"));
  HCERTSTORE last = nullptr;
  const auto search = [&] {
    PCCERT_CONTEXT found = nullptr;
    const BOOL done =
        CryptMsgGetAndVerifySigner(message.get(), 0, nullptr, CMSG_SIGNER_ONLY_FLAG, &found, nullptr);
    last = found ? found->hCertStore : nullptr;
    EXPECT_EQ(found != nullptr, done != FALSE);
    return Certificate(found);
  };
  EXPECT_TRUE(search());
  const HCERTSTORE first = last;
  const Certificate kept = search();
  EXPECT_EQ(last, first);
  EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(kept.get())));
  EXPECT_TRUE(search()) << "the message has it still";
  DWORD index = 0;
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_DEL_CERT, &index));
  EXPECT_FALSE(search());
  EXPECT_EQ(GetLastError(), DWORD{CRYPT_E_NO_TRUSTED_SIGNER});
  const CERT_BLOB again = {kept.get()->cbCertEncoded, kept.get()->pbCertEncoded};
  EXPECT_TRUE(CryptMsgControl(message.get(), 0, CMSG_CTRL_ADD_CERT, &again));
  EXPECT_TRUE(search());
}

// What fails on the way to a verdict is none: neither that the signature is bad, nor that there is no signer.
TEST(SignerSearch, WantOfMemoryIsNoVerdict) {
  const Bytes encoded = SignedBytes("p256-attached.cms");
  const Certificate certificate = SignerCertificate("p256");
  CRYPT_VERIFY_MESSAGE_PARA para{};
  para.cbSize = sizeof para;
  para.dwMsgAndCertEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  const std::pair<const char*, std::function<bool(HCRYPTMSG)>> kWays[] = {
      {"by index",       [&](HCRYPTMSG message) { return VerifyByIndex(message, 0, certificate.get()) == 0; }},
      {"by certificate",
       [&](HCRYPTMSG message) { return VerifyByCertificate(message, certificate.get()) == 0; }               },
      {"with a search",
       [&](HCRYPTMSG message) {
         return CryptMsgGetAndVerifySigner(message, 0, nullptr, 0, nullptr, nullptr) != FALSE;
       }                                                                                                     },
      {"simply",
       [&](HCRYPTMSG) {
         return CryptVerifyMessageSignature(&para, 0, encoded.data(), static_cast<DWORD>(encoded.size()),
                                            nullptr, nullptr, nullptr)
             != FALSE;
       }                                                                                                     },
  };
  for (const auto& [name, verify] : kWays) {
    for (FaultPlan plan; plan.next();) {
      const Message message = OpenMessage(encoded);
      SetLastError(0);
      if (plan.run([&] { return verify(message.get()); })) continue;
      const DWORD code = GetLastError();
      EXPECT_TRUE(code != NTE_BAD_SIGNATURE && code != CRYPT_E_NO_TRUSTED_SIGNER && code != CRYPT_E_NO_SIGNER
                  && code != CRYPT_E_NOT_FOUND && code != 0)
          << name << " " << plan.faults() << " " << std::hex << code;
    }
  }
}
