// Texts for people: the message catalogue, the language of dialogs, error texts.
#include <nl_types.h>

#include <array>
#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/supkern.h"
#include "supkern/environment.h"
#include "supkern/guard.h"
#include "supkern/text_result.h"

namespace certkern::support {

namespace {

// Languages that dialogs have, by the published language identifiers.
struct Language {
  std::string_view code;  // ISO 639
  unsigned identifier;
};
constexpr Language kLanguages[] = {
    {"en", 0x0409},
    {"ru", 0x0419},
};
constinit std::atomic<unsigned> dialogLanguage = 0;  // 0: not looked at yet

bool IsUnsetLocale(const std::string& name) { return name.empty() || name == "C" || name == "POSIX"; }

// The locale of messages: the program's where it has chosen one, else the environment's. The program's choice
// is never changed: setlocale is not safe beside other threads, and a library has no say in it.
std::string MessageLocale() {
  const char* chosen = setlocale(LC_MESSAGES, nullptr);
  std::string name = chosen ? chosen : "";
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (!IsUnsetLocale(name)) break;
    name = Variable(variable);
    if (!name.empty()) break;  // even "C" decides here, as everywhere
  }
  return name;
}

unsigned LanguageOf(std::string_view locale) {
  const std::string_view code = locale.substr(0, locale.find_first_of("_.@"));
  for (const Language& language : kLanguages) {
    if (language.code == code) return language.identifier;
  }
  return kLanguages[0].identifier;
}

int UpdateLanguage() {
  return Guarded<int>(ERROR_NOT_ENOUGH_MEMORY, [] {
    dialogLanguage.store(LanguageOf(MessageLocale()));
    return 0;
  });
}

const auto kNoCatalogue = reinterpret_cast<nl_catd>(-1);

// Opens the catalogue on first use. A failed attempt is made again next time: it may have been short of
// descriptors.
int OpenCatalogue(support_resource& resource) {
  static constinit std::mutex mutex;
  const std::lock_guard lock(mutex);
  if (resource.catalogue != kNoCatalogue) return 0;
  if (!resource.initialise) return ERROR_FILE_NOT_FOUND;
  if (const int code = resource.initialise(&resource)) return code;
  return resource.catalogue != kNoCatalogue ? 0 : ERROR_FILE_NOT_FOUND;
}

}  // namespace

}  // namespace certkern::support

using namespace certkern::support;  // NOLINT(google-build-using-namespace): only exported C functions follow

extern "C" {

int support_init_locale(void) { return UpdateLanguage(); }

int support_wnd_language_update(void) { return UpdateLanguage(); }

unsigned support_wnd_language_get(void) {
  if (!dialogLanguage.load()) UpdateLanguage();
  const unsigned language = dialogLanguage.load();
  return language ? language : kLanguages[0].identifier;
}

int support_resource_string(support_resource* resource, unsigned id, char* buffer, size_t* size) {
  if (!resource || !size) return ERROR_INVALID_PARAMETER;
  return Guarded<int>(ERROR_INTERNAL_ERROR, [&]() -> int {
    if (const int code = OpenCatalogue(*resource)) return code;
    static constexpr char kMissing[] = "";  // told from an empty message by its address
    const char* text = catgets(resource->catalogue, NL_SETD, static_cast<int>(id), kMissing);
    return text == kMissing ? kMessageNotFound : CopyText(text, size, buffer);
  });
}

const char* support_strerror(int error) {
  if (const char* text = strerrordesc_np(error)) return text;
  static thread_local std::array<char, 32> unknown;
  std::snprintf(unknown.data(), unknown.size(), "Unknown error %d", error);
  return unknown.data();
}

}  // extern "C"
