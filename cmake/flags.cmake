# Compiler and linker flags of every target of this project.
find_package(Threads REQUIRED)

add_compile_options(
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wconversion -Wno-sign-conversion -Wold-style-cast -Wcast-qual
  -Wformat=2 -Wformat-nonliteral -Wnon-virtual-dtor -Woverloaded-virtual
  # __FILE__ goes into every trace line: the path as in the tree, not as on the build machine.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
)

# Hardening: what Debian's own packages are built with, plus the library's assertions.
add_compile_options(-fPIE -fstack-protector-strong -fstack-clash-protection)
add_compile_definitions(_GNU_SOURCE _GLIBCXX_ASSERTIONS)
add_link_options(-pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

if(DUNRA_SANITIZE)
  add_compile_options(-fsanitize=${DUNRA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${DUNRA_SANITIZE})
  # The sanitizers' own wrappers make this one warn about sound code.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-D_FORTIFY_SOURCE=2)
endif()
if(DUNRA_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
