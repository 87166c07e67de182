// Thread-specific slots. What a slot holds belongs to the caller: nothing is destroyed when a thread ends.
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

#include "platform/supkern.h"

struct support_tskey {
  pthread_key_t key;
};

extern "C" {

int support_load_library(support_tskey** key) {
  if (!key) return EINVAL;
  *key = nullptr;
  return 0;
}

int support_tskey_create(support_tskey** key) {
  if (!key) return EINVAL;
  std::unique_ptr<support_tskey> created(new (std::nothrow) support_tskey{});
  if (!created) return ENOMEM;
  if (const int error = pthread_key_create(&created->key, nullptr)) return error;
  *key = created.release();
  return 0;
}

int support_tskey_delete(support_tskey** key) {
  if (!key || !*key) return EINVAL;
  const std::unique_ptr<support_tskey> owned(*key);
  *key = nullptr;
  return pthread_key_delete(owned->key);
}

void* support_get_thread_specific(support_tskey* key) {
  return key ? pthread_getspecific(key->key) : nullptr;
}

int support_set_thread_specific(support_tskey* key, const void* value) {
  return key ? pthread_setspecific(key->key, value) : EINVAL;
}

}  // extern "C"
