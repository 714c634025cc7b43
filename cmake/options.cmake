# Compiler and linker flags for everything built here, as a target to link: yinet_options.
# Test programs, fuzzers and benchmarks link yinet_test_options, which asks for less.

add_library(yinet_common_options INTERFACE)
target_compile_options(yinet_common_options INTERFACE
  -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wvla
  -Wno-missing-field-initializers  # designated initializers leave out what has its default
  # g++ 12 sees overlapping copies in plain std::string concatenation, and reads of empty std::optional values.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict -Wno-maybe-uninitialized>
  $<$<BOOL:${YINET_WERROR}>:-Werror>
  -fstack-protector-strong
  -fstack-clash-protection
  # Unique symbols would pin the shared library in memory: a host must be able to unload it.
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
target_link_options(yinet_common_options INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

if(YINET_SANITIZE)
  list(JOIN YINET_SANITIZE "," sanitizers)
  target_compile_options(yinet_common_options INTERFACE
    -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(yinet_common_options INTERFACE -fsanitize=${sanitizers})
endif()

add_library(yinet_options INTERFACE)
target_link_libraries(yinet_options INTERFACE yinet_common_options)
target_compile_options(yinet_options INTERFACE
  -Wshadow -Wconversion -Wold-style-cast -Wcast-qual -Wformat=2 -Wimplicit-fallthrough)
# Fortify needs an optimised build, and a sanitizer sees more without it.
if(NOT YINET_SANITIZE)
  target_compile_definitions(yinet_options INTERFACE $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)
endif()

add_library(yinet_test_options INTERFACE)
target_link_libraries(yinet_test_options INTERFACE yinet_common_options)
