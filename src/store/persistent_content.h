// What a store file holds, in whichever form, and how a store takes it over.
#ifndef CERTKERN_STORE_PERSISTENT_CONTENT_H
#define CERTKERN_STORE_PERSISTENT_CONTENT_H

#include <vector>

#include "store/serialized_image.h"

namespace certkern {

// The bytes of a file, and what they mean. An empty file is an empty store; one that doesn't begin as an image is a signed
// message with certificates and CRLs, or one certificate, either encoded or in a text form.
class StoreContent {
 public:
  // False with ERROR_END_OF_MEDIA or CRYPT_E_FILE_ERROR.
  [[nodiscard]] bool take(std::vector<BYTE> bytes);
  const ImageContent& image() const { return image_; }

 private:
  bool takeMessage();
  bool takeCertificate();

  std::vector<BYTE> bytes_;
  ImageContent image_;  // points into the bytes
};

// Makes the lists of a store hold the objects of an image, and marks the store as unchanged. An object that is in both,
// byte for byte, stays as it is with its properties. All or nothing: false with ERROR_NOT_ENOUGH_MEMORY.
[[nodiscard]] bool Reconcile(CertStore& store, const ImageContent& content);

}  // namespace certkern

#endif
