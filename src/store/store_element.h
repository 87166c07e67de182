// An element of a store, or a record that stands for itself: the encoded object, its one decoded context, and its
// properties. One allocation holds the header and, right behind it, the encoded bytes: the address of the bytes is how
// everybody gets from a context to its element.
//
// Who owns what: refs counts the list (if the element is in one) and each reference that is held through the context;
// the last one frees the element. The element holds a reference on its PropertyBlock. It does not count on its store:
// each live context does (StoreRecord.records), and only contexts lead to an element that has left its list.
//
// Locks: StoreElement.lock comes behind the store's lock and PropertyBlock.lock; the registry is behind it.
#ifndef CERTKERN_STORE_STORE_ELEMENT_H
#define CERTKERN_STORE_STORE_ELEMENT_H

#include <certkern/properties.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "platform/owner.h"
#include "store/property_block.h"

namespace certkern {

struct CertStore;
struct ContextRecord;

// The values are those of the serialized form.
enum class ElementType : DWORD { Certificate = 32, Crl = 33 };

// What follows from an element's bytes alone and is dear to find out. Never changes, so it may outlive the element.
using ElementFacts = std::shared_ptr<const void>;

// Where an element stands in its store's file. Offsets are good for one layout of the file only.
struct FilePlace {
  DWORD start = 0;      // of its first record
  DWORD object = 0;     // of the object's record, behind those of the properties
  DWORD end = 0;        // behind that
  uint32_t layout = 0;  // FileLayout.number; 0: the place isn't known
};

struct StoreElement {
  std::mutex lock;             // guards refs, context, detached
  CertStore* store = nullptr;  // set before the element can be seen, and never again; null: stands for itself
  ContextRecord* context = nullptr;     // the one decoded context, while somebody holds it; not owned
  PropertyBlock* properties = nullptr;  // one reference is ours; never changes
  StoreElement* prev = nullptr;         // towards the newer; under the store's lock, as the three that follow
  StoreElement* next = nullptr;         // towards the older
  uint64_t sequence = 0;                // number of the insertion: lists are in falling order of it
  bool linked = false;                  // in its store's list
  bool detached = false;                // the store's contents are gone: the element has no store any more
  bool isLink = false;                  // the properties are another element's
  bool isFiled = false;  // stood in the file when that was last read or written; under the store's lock
  bool isHeir =
      false;  // not filed; another of its bytes was, and was replaced for its properties' sake; as isFiled
  FilePlace place;                             // under the store's lock
  StoreElement* nextRemoved = nullptr;         // see RemovedElements
  std::atomic<bool> propertiesChanged{false};  // since the file was last written
  const ElementType type;
  const DWORD encoding;  // what contexts report
  uint32_t refs = 1;
  DWORD infoSize = 0;    // bytes of the decoded record once there was one; under lock, as the next
  void* info = nullptr;  // the record between two contexts, where it is kept; ours
  std::atomic<bool> keepsInfo{false};               // a search found it and may do so again
  std::atomic<DWORD> encodedLength;                 // bytes; that of the DER object once a context was made
  uint32_t indexSlot = ~uint32_t{0};                // the index's own, under the store's lock
  std::atomic<const ElementFacts*> facts{nullptr};  // see FactsOf; set at most once

  StoreElement(ElementType elementType, DWORD encodingType, DWORD length)
      : type(elementType), encoding(encodingType), encodedLength(length) {}

  BYTE* bytes() { return reinterpret_cast<BYTE*>(this + 1); }
  std::span<const BYTE> encoded() const {
    return {reinterpret_cast<const BYTE*>(this + 1), encodedLength.load(std::memory_order_relaxed)};
  }
};

// From the encoded bytes of a context back to the element.
inline StoreElement& ElementOfBytes(const BYTE* encoded) {
  return *reinterpret_cast<StoreElement*>(const_cast<BYTE*>(encoded - sizeof(StoreElement)));
}

// Gives one reference back; the last frees the element.
void ReleaseElement(StoreElement* element) noexcept;
using ElementOwner = Owner<StoreElement*, ReleaseElement>;

// One more reference.
ElementOwner ShareElement(StoreElement& element) noexcept;

// Makes an element with one reference, which its owner gives to a list or drops once a context holds the element.
// The bytes are copied, not looked at; properties are handed over (empty: a block of its own without items). Empty with
// ERROR_NOT_ENOUGH_MEMORY, or std::bad_alloc. `store` may be null.
ElementOwner NewElement(ElementType type, DWORD encoding, std::span<const BYTE> encoded, CertStore* store,
                        PropertyBlockOwner properties);

// A copy for a store (null: for itself) with copies of all properties in their order; a link shares them instead.
enum class ElementForm { Copy, Link };
ElementOwner NewElementLike(const StoreElement& source, CertStore* store, ElementForm form);

// The facts that somebody kept with the element; null: nobody did. There is one kind for each element type.
ElementFacts FactsOf(const StoreElement& element);
// Keeps them for whoever asks next. Of several threads the first wins, and all get its facts.
ElementFacts KeepFacts(StoreElement& element, ElementFacts facts);

// The store that an element has in the public sense, as hCertStore tells: null once the store's contents are gone. The
// record behind the answer stays readable while the caller holds a context of the element, or the store's handle.
CertStore* StoreOf(StoreElement& element);

}  // namespace certkern

#endif
