// OpenSSL's own GOST comes from its plug-in.
#ifndef CERTKERN_BENCH_GOST_PLUG_IN_H
#define CERTKERN_BENCH_GOST_PLUG_IN_H

#include <openssl/conf.h>

#include <string>

#include "platform/temporary_directory.h"

namespace certkern::bench {

// Once for the program; false when there is none.
inline bool LoadGostPlugIn() {
  static const bool loaded = [] {
    const test::TemporaryDirectory directory;
    const std::string settings =
        directory.write("engine.cnf",
                        "openssl_conf = init\n[init]\nengines = engines\n[engines]\ngost = gost\n[gost]\n"
                        "engine_id = gost\ndefault_algorithms = ALL\n");
    return CONF_modules_load_file(settings.c_str(), nullptr, 0) > 0;
  }();
  return loaded;
}

}  // namespace certkern::bench

#endif
