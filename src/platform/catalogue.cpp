#include "platform/catalogue.h"

#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <limits.h>
#include <nl_types.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace certkern {
namespace {

constexpr char kFile[] = "libcertkern.cat";
constexpr size_t kDirectoryEntry = 10;  // of csp_get_paths(): where catalogues are

void* const kNoCatalogue = reinterpret_cast<void*>(-1);

// A catalogue at a path of ours; a path that does not fit is not there.
template <class... Parts>
nl_catd OpenAt(const char* format, Parts... parts) {
  char path[PATH_MAX];
  const int size = std::snprintf(path, sizeof path, format, parts...);
  if (size < 0 || static_cast<size_t>(size) >= sizeof path) return kNoCatalogue;
  return catopen(path, NL_CAT_LOCALE);
}

nl_catd OpenBesideDirectory(const char* locale) {
  const csp_paths* paths = csp_get_paths();
  const char* directory = paths ? paths->entry[kDirectoryEntry] : nullptr;
  if (!directory || !*directory) return kNoCatalogue;
  nl_catd catalogue = kNoCatalogue;
  if (*locale && !std::strchr(locale, '/')) {  // a locale is a name here, never a way to somewhere else
    catalogue = OpenAt("%s/../../%s/libcertkern.cat", directory, locale);
    if (catalogue == kNoCatalogue)
      catalogue = OpenAt("%s/../../%s/LC_MESSAGES/libcertkern.cat", directory, locale);
  }
  if (catalogue == kNoCatalogue) catalogue = OpenAt("%s/libcertkern.cat", directory);
  return catalogue;
}

}  // namespace

int InitMessageCatalogue(support_resource* resource) {
  char locale[128] = "";
  // a copy: the name is the C library's, and setting the locale up may replace it
  if (const char* name = std::setlocale(LC_MESSAGES, nullptr))
    std::snprintf(locale, sizeof locale, "%s", name);
  support_init_locale();
  nl_catd catalogue = catopen(kFile, NL_CAT_LOCALE);
  if (catalogue == kNoCatalogue) catalogue = OpenBesideDirectory(locale);
  if (catalogue == kNoCatalogue) return ERROR_FILE_NOT_FOUND;
  resource->catalogue = catalogue;
  return 0;
}

ByteText ReadMessage(support_resource& resource, unsigned id) {
  size_t size = 0;
  int code = support_resource_string(&resource, id, nullptr, &size);
  ByteText text;
  if (code == 0) {
    text.reset(static_cast<CHAR*>(std::malloc(size + 1)));
    code = text ? support_resource_string(&resource, id, text.get(), &size) : ERROR_NOT_ENOUGH_MEMORY;
  }
  if (code != 0) {
    SetLastError(static_cast<DWORD>(code));
    return {};
  }
  text.get()[size] = 0;
  return text;
}

ByteText ReadMessage(unsigned id) {
  static std::mutex mutex;  // the first reader opens the catalogue
  static support_resource resource = {InitMessageCatalogue, kNoCatalogue};
  const std::lock_guard lock(mutex);
  return ReadMessage(resource, id);
}

}  // namespace certkern
