# What the presets switch: warnings, sanitizers, coverage, hardening. Linked privately into everything built here, so
# that none of it reaches a host.
add_library(kelp_build_modes INTERFACE)
target_compile_options(kelp_build_modes INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KELP_WERROR)
  target_compile_options(kelp_build_modes INTERFACE -Werror)
endif()

if(KELP_SANITIZE)
  # The vptr check itself calls pipe(), which tests make fail.
  set(sanitizers -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(kelp_build_modes INTERFACE ${sanitizers})
  target_link_options(kelp_build_modes INTERFACE ${sanitizers})
endif()

if(KELP_SANITIZE_THREADS)
  target_compile_options(kelp_build_modes INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_compile_definitions(kelp_build_modes INTERFACE KELP_SANITIZE_THREADS)
  target_link_options(kelp_build_modes INTERFACE -fsanitize=thread)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND
    (KELP_SANITIZE OR KELP_SANITIZE_THREADS OR KELP_BUILD_FUZZERS))
  # Its runtime is in the program, and a library takes it from there.
  target_link_options(kelp_build_modes INTERFACE -Wl,-z,undefs)
endif()
if(KELP_BUILD_FUZZERS)
  target_compile_options(kelp_build_modes INTERFACE -fsanitize=fuzzer-no-link)
endif()

if(KELP_COVERAGE)
  # The counters are the mapped profile itself (%c), which every process of a program shares (%m): so those count, too,
  # that a child leaves by execv, _exit or a signal.
  target_compile_options(kelp_build_modes INTERFACE
    -fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%c%m.profraw -fcoverage-mapping -fprofile-update=atomic
    "SHELL:-mllvm -runtime-counter-relocation")
  target_link_options(kelp_build_modes INTERFACE -fprofile-instr-generate)
endif()

# By the configuration that is built, however it is spelt: a host's generator may have several.
target_compile_definitions(kelp_build_modes INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(NOT KELP_SANITIZE)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  set(protections
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  target_compile_options(kelp_build_modes INTERFACE "$<${optimised}:${protections}>")
  target_link_options(kelp_build_modes INTERFACE "$<${optimised}:-Wl,-z,relro;-Wl,-z,now;-Wl,-z,noexecstack>")
endif()
