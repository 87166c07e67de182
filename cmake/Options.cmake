# One interface target carries what every target of the tree is compiled with.
find_package(Threads REQUIRED)

add_library(certkern_options INTERFACE)
target_compile_features(certkern_options INTERFACE cxx_std_20)
target_compile_options(certkern_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-align -Wformat=2 -Wno-format-nonliteral -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<BOOL:${CERTKERN_WERROR}>:-Werror>)
target_compile_definitions(certkern_options INTERFACE
  OPENSSL_NO_DEPRECATED OPENSSL_API_COMPAT=30000
  $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
target_include_directories(certkern_options INTERFACE ${PROJECT_SOURCE_DIR}/include)
target_link_options(certkern_options INTERFACE -Wl,--as-needed -Wl,-z,relro,-z,now)
target_link_libraries(certkern_options INTERFACE Threads::Threads)

if(CERTKERN_SANITIZE)
  add_compile_options(-fsanitize=${CERTKERN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CERTKERN_SANITIZE})
endif()
if(CERTKERN_FUZZ)
  # Every object is instrumented for coverage; only the fuzz targets get libFuzzer's main.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
