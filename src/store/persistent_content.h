// What a store file holds, in whichever form, and how a store takes it over.
#ifndef CERTKERN_STORE_PERSISTENT_CONTENT_H
#define CERTKERN_STORE_PERSISTENT_CONTENT_H

#include <vector>

#include "store/message_store.h"
#include "store/serialized_image.h"

namespace certkern {

// The bytes of a file, and what they mean. An empty file is an empty store; one that doesn't begin as an image is a signed
// message with certificates and CRLs, or one certificate, either encoded or in a text form. Of several PEM blocks each is read.
class StoreContent {
 public:
  // False with ERROR_END_OF_MEDIA, CRYPT_E_FILE_ERROR or ERROR_NOT_ENOUGH_MEMORY.
  [[nodiscard]] bool take(std::vector<BYTE> bytes);
  const ImageContent& image() const { return image_; }
  // Whether the objects stand in the bytes where their places say.
  bool isSerialized() const { return serialized_; }

 private:
  bool takeMessage();
  bool takeBundle();
  bool takeObjects(MessageObjects objects);
  bool takeCertificate();

  std::vector<BYTE> bytes_;
  ImageContent image_;  // points into the bytes
  bool serialized_ = false;
};

// The layout of a file in which an image was found: number, end and dead bytes.
FileLayout LayoutOf(const StoreContent& content, uint32_t number);

// Fills a new store, for which a file was read that is `file`.
[[nodiscard]] bool LinkContent(CertStore& store, const StoreContent& content, const FileWitness& file);

// Makes the lists of a store hold the objects of its file, and marks the store as unchanged. An object that is in both,
// byte for byte, stays as it is with its properties. All or nothing: false with ERROR_NOT_ENOUGH_MEMORY.
[[nodiscard]] bool Reconcile(CertStore& store, const StoreContent& content, const FileWitness& file);

}  // namespace certkern

#endif
