// The operations of the support library, libsupkern. A site may install another library of the same soname, so
// nothing beyond these declarations may be relied on.
#ifndef CERTKERN_PLATFORM_SUPKERN_H
#define CERTKERN_PLATFORM_SUPKERN_H

#include <certkern/types.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <sys/time.h>

extern "C" {

// --- tracing ---
// A context is an opaque 64-bit handle; 0 is "none".
using support_db_ctx = uint64_t;

// Makes a context for a module; 0 when tracing cannot be had.
CERTKERN_API support_db_ctx support_print_init2(const char* parameters, const char* module, int reserved, unsigned level_limit);
CERTKERN_API support_db_ctx support_print_init(const char* parameters, const char* module, int reserved, unsigned level_limit);
CERTKERN_API void support_print_done(support_db_ctx context);
// Non-zero when any bit of the mask is enabled.
CERTKERN_API int support_print_is(support_db_ctx context, unsigned mask);
// Writes one record. The format is printf's, with %S for wide text; arguments are read, never kept.
CERTKERN_API void support_print(support_db_ctx context, unsigned level, const char* format, int reserved1, int reserved2,
                                const char* file, int line, const char* function, va_list arguments);
CERTKERN_API void support_dprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                                        const char* function, ...);
CERTKERN_API void support_elprint_print_(support_db_ctx context, const char* format, const char* file, int line,
                                         const char* function, ...);

// --- configuration; 0 on success, else an error code, and the value is left alone ---
CERTKERN_API int support_registry_get_long(const char* path, int64_t* value);
CERTKERN_API int support_registry_get_bool(const char* path, int* value);
// size: in, bytes at buffer; out, bytes of the text with its NUL. A null buffer asks for the size.
CERTKERN_API int support_registry_get_string(const char* path, size_t* size, char* buffer);

// --- directories; size as above. The text ends with a separator. ---
CERTKERN_API int support_path2dir(const char* path, size_t* size, char* buffer);
struct csp_paths {
  const char* entry[16];
};
// A table of directories; entry[10], the eleventh, is where message catalogues are.
CERTKERN_API const csp_paths* csp_get_paths(void);

// --- optional libraries ---
// The name is a library name, or a configuration path that begins with a backslash and names one.
CERTKERN_API void* support_load_library_registry(const char* name, int flags);
CERTKERN_API void* support_load_library_getaddr(void* library, const char* symbol);
CERTKERN_API void support_unload_library_registry(void* library);

// --- thread-specific slots; 0 on success ---
struct support_tskey;  // opaque, owned by the library
CERTKERN_API int support_load_library(support_tskey** key);
CERTKERN_API int support_tskey_create(support_tskey** key);
CERTKERN_API int support_tskey_delete(support_tskey** key);
CERTKERN_API void* support_get_thread_specific(support_tskey* key);
CERTKERN_API int support_set_thread_specific(support_tskey* key, const void* value);

// --- effective ids; 0 on success. Calls nest per thread. ---
CERTKERN_API int support_thread_actualize_uids(void);
CERTKERN_API int support_thread_deactualize_uids(void);

// --- time; a - b for the second ---
CERTKERN_API int support_gettimeofday(struct timeval* now);
CERTKERN_API void support_time_sub(const struct timeval* a, const struct timeval* b, struct timeval* difference);

// --- messages ---
CERTKERN_API int support_init_locale(void);
struct support_resource {
  int (*initialise)(support_resource* resource);  // called on first use; 0 on success
  void* catalogue;                                // nl_catd; (void*)-1 while there is none
};
CERTKERN_API int support_resource_string(support_resource* resource, unsigned id, char* buffer, size_t* size);
CERTKERN_API int support_wnd_language_update(void);
CERTKERN_API unsigned support_wnd_language_get(void);
CERTKERN_API const char* support_strerror(int error);

// --- named cross-process mutex; 0 on success, else an errno value. Not recursive. ---
struct ubi_mutex;
CERTKERN_API int ubi_mutex_open(ubi_mutex** mutex, const char* name, int flags);
CERTKERN_API int ubi_mutex_lock(ubi_mutex* mutex);
CERTKERN_API int ubi_mutex_unlock(ubi_mutex* mutex);
CERTKERN_API int ubi_mutex_close(ubi_mutex* mutex);

}  // extern "C"

#endif
