// The operations of the support library, libsupkern. A site may install another library of the same soname,
// so nothing beyond these declarations may be relied on.
#ifndef CERTKERN_PLATFORM_SUPKERN_H
#define CERTKERN_PLATFORM_SUPKERN_H

#include <certkern/types.h>

#include <sys/time.h>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

extern "C" {

// --- tracing; nothing here changes errno ---
// A context is an opaque 64-bit handle; 0 is "none". Levels are bits: 1 error, 2 expected failure, 4 call, 8
// debug, 16 result, 32 cache. A mask repeats a level's bit in five groups of six bits; a level that the
// configuration switches on for the module is on in all five.
using support_db_ctx = uint64_t;

// Makes a context for a module; 0 when tracing cannot be had. Reads no configuration: that happens when the
// context is first asked. level_limit is the mask of levels that the module may switch on; parameters and
// reserved are not used.
CERTKERN_API support_db_ctx support_print_init2(const char* parameters, const char* module, int reserved,
                                                unsigned level_limit);
CERTKERN_API support_db_ctx support_print_init(const char* parameters, const char* module, int reserved,
                                               unsigned level_limit);
CERTKERN_API void support_print_done(support_db_ctx context);
// Non-zero when any bit of the mask is enabled.
CERTKERN_API int support_print_is(support_db_ctx context, unsigned mask);
// Writes one record if its level is on. The format is printf's, with %S for wide text; arguments are read,
// never kept. file may be empty or null.
CERTKERN_API void support_print(support_db_ctx context, unsigned level, const char* format, int reserved1,
                                int reserved2, const char* file, int line, const char* function,
                                va_list arguments);
// The same at the levels 8 and 32, by a caller that has asked with either mask.
CERTKERN_API void support_dprint_print_(support_db_ctx context, const char* format, const char* file,
                                        int line, const char* function, ...);
// The same at level 1.
CERTKERN_API void support_elprint_print_(support_db_ctx context, const char* format, const char* file,
                                         int line, const char* function, ...);

// --- configuration; 0 on success, else a code as of GetLastError, and the value is left alone ---
// 2: no such setting; 1629: it is of another kind; 234: the buffer is too small; 87: a null argument. A
// setting is a number (a truth value reads as 0 or 1), a truth value (any number but 0 is true) or a text.
CERTKERN_API int support_registry_get_long(const char* path, int64_t* value);
CERTKERN_API int support_registry_get_bool(const char* path, int* value);
// size: in, bytes at buffer; out, bytes of the text with its NUL. A null buffer asks for the size.
CERTKERN_API int support_registry_get_string(const char* path, size_t* size, char* buffer);

// --- directories; size and codes as above. The text ends with a separator. ---
// \local\stores\, \global\stores\, \local\keys\ and \global\keys\, made when they are missing. 3: no such
// path, or it cannot be made; 5: not ours to use, or somebody else can write to it; 161: configured as
// something else than an absolute path.
CERTKERN_API int support_path2dir(const char* path, size_t* size, char* buffer);
struct csp_paths {
  const char* entry[16];
};
// A table of directories, which lives as long as the process; entry[10], the eleventh, is where the message
// catalogue of the fallback language is, and ../../<locale>/LC_MESSAGES beside it that of others. The others
// are empty texts.
CERTKERN_API const csp_paths* csp_get_paths(void);

// --- optional libraries ---
// The name is a library's file name or absolute path, or a configuration path, which begins with a backslash,
// of a text that is one. Null when it cannot be loaded. flags are not used.
CERTKERN_API void* support_load_library_registry(const char* name, int flags);
CERTKERN_API void* support_load_library_getaddr(void* library, const char* symbol);
CERTKERN_API void support_unload_library_registry(void* library);

// --- thread-specific slots; 0 on success, else an errno value. Nothing is destroyed when a thread ends. ---
struct support_tskey;  // opaque, owned by the library
// Makes the slots usable and clears *key, which support_tskey_create then fills.
CERTKERN_API int support_load_library(support_tskey** key);
CERTKERN_API int support_tskey_create(support_tskey** key);
// Clears *key.
CERTKERN_API int support_tskey_delete(support_tskey** key);
CERTKERN_API void* support_get_thread_specific(support_tskey* key);
CERTKERN_API int support_set_thread_specific(support_tskey* key, const void* value);

// --- effective ids; 0 on success, else an errno value, also in errno. Calls nest per thread. ---
// Between the two the calling thread opens files as the caller of the program: in a set-id program as the
// user who started it, in any other as its effective ids say. EINVAL: a deactualize without its actualize.
CERTKERN_API int support_thread_actualize_uids(void);
CERTKERN_API int support_thread_deactualize_uids(void);

// --- time; a - b for the second ---
CERTKERN_API int support_gettimeofday(struct timeval* now);
CERTKERN_API void support_time_sub(const struct timeval* a, const struct timeval* b,
                                   struct timeval* difference);

// --- messages; codes as of GetLastError ---
// Finds out the language of messages. The program's locale is not changed.
CERTKERN_API int support_init_locale(void);
struct support_resource {
  int (*initialise)(support_resource* resource);  // called on first use; 0 on success
  void* catalogue;                                // nl_catd; (void*)-1 while there is none
};
// Message id of set 1; size as above. A failure of the initialiser is its own code, and it is tried again
// next time. 2: no catalogue; 317: no such message.
CERTKERN_API int support_resource_string(support_resource* resource, unsigned id, char* buffer, size_t* size);
CERTKERN_API int support_wnd_language_update(void);
// A published language identifier: 0x409 English, 0x419 Russian.
CERTKERN_API unsigned support_wnd_language_get(void);
// English text for an errno value; never null, valid until the thread's next call.
CERTKERN_API const char* support_strerror(int error);

// --- named cross-process mutex; 0 on success, else an errno value. Not recursive. ---
// A name has 1 to 4352 bytes without separators and control characters. Handles of one name exclude each
// other in all processes and threads; the death of a process releases, and a fork leaves the lock with the
// parent. EDEADLK: this thread holds it already; EPERM: unlock by another thread or handle; EBUSY: close
// while it is held. flags are not used.
struct ubi_mutex;
CERTKERN_API int ubi_mutex_open(ubi_mutex** mutex, const char* name, int flags);
CERTKERN_API int ubi_mutex_lock(ubi_mutex* mutex);
CERTKERN_API int ubi_mutex_unlock(ubi_mutex* mutex);
CERTKERN_API int ubi_mutex_close(ubi_mutex* mutex);

}  // extern "C"

#endif
