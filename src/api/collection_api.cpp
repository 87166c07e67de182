// Collections of stores.
#include <certkern/errors.h>
#include <certkern/store.h>

#include "api/frame.h"
#include "store/collection.h"

using certkern::AsStore;
using certkern::Frame;
using certkern::Plain;

extern "C" {

BOOL CertAddStoreToCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore, DWORD dwUpdateFlags,
                              DWORD dwPriority) {
  return Plain([&](Frame& frame) -> BOOL {
    frame.entry("(hCollectionStore = %p, hSiblingStore = %p, dwUpdateFlags = 0x%.8X, dwPriority = %u)",
                hCollectionStore, hSiblingStore, dwUpdateFlags, dwPriority);
    if (!hCollectionStore) return frame.failed(ERROR_INVALID_PARAMETER);
    if (!hSiblingStore) return frame.result(TRUE);
    if (!certkern::AddStoreToCollection(*AsStore(hCollectionStore), *AsStore(hSiblingStore), dwUpdateFlags,
                                        dwPriority)) {
      return frame.failed();
    }
    return frame.result(TRUE);
  });
}

void CertRemoveStoreFromCollection(HCERTSTORE hCollectionStore, HCERTSTORE hSiblingStore) {
  Plain([&](Frame& frame) -> void {
    frame.entry("(hCollectionStore = %p, hSiblingStore = %p)", hCollectionStore, hSiblingStore);
    if (!hCollectionStore) {
      frame.invalidArguments();
    } else if (hSiblingStore
               && !certkern::RemoveStoreFromCollection(*AsStore(hCollectionStore), *AsStore(hSiblingStore))) {
      frame.failed();
    } else {
      frame.done();
    }
  });
}

}  // extern "C"
