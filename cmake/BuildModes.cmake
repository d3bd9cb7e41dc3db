# What the presets switch: warnings, sanitizers, coverage, hardening. Linked privately into everything built here, so that
# none of it reaches a host.
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

if(KELP_COVERAGE)
  # Only in its own dialect does the compiler save the counters of a child before it calls execv.
  set(CMAKE_CXX_EXTENSIONS ON)
  target_compile_options(kelp_build_modes INTERFACE --coverage -fprofile-update=atomic)
  target_compile_definitions(kelp_build_modes INTERFACE KELP_COVERAGE)
  target_link_options(kelp_build_modes INTERFACE --coverage)
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_definitions(kelp_build_modes INTERFACE _GLIBCXX_ASSERTIONS)
endif()

if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT KELP_SANITIZE)
  target_compile_options(kelp_build_modes INTERFACE
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  target_link_options(kelp_build_modes INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
