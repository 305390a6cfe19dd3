# What every target of this project is compiled and linked with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpointer-arith -Wformat=2
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> $<$<COMPILE_LANGUAGE:CXX>:-Wsuggest-override>)
if(HTTPPOOL_WERROR)
  add_compile_options(-Werror)
endif()

# Hardening. FORTIFY needs optimisation and is not used together with the sanitizers.
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--no-undefined)
if(HTTPPOOL_SANITIZER)
  add_compile_options(-fsanitize=${HTTPPOOL_SANITIZER} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${HTTPPOOL_SANITIZER})
  if(HTTPPOOL_FUZZING)
    add_compile_options(-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/fuzz/sanitizer.ignore)
  endif()
else()
  add_compile_options($<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
endif()

if(HTTPPOOL_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

find_package(Threads REQUIRED)
