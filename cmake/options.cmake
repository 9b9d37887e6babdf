# Language levels, warnings, sanitizers and output folders, for every target of the tree.
option(BUILD_TESTING "Build the tests" ON)
option(VANTRO_WERROR "Treat warnings as errors" ON)
option(VANTRO_SERVICE "Build the service and the tools that need its libraries" ON)
option(VANTRO_PACKAGES "Prepare the Debian packages, as scripts/package does" OFF)
set(VANTRO_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wvla -Wundef -Wformat=2)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>)
# Only Clang reads the annotations of common/locks.h.
add_compile_options(
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety-beta>)
if(VANTRO_WERROR)
  add_compile_options(-Werror)
endif()

if(VANTRO_SANITIZE)
  add_compile_options(-fsanitize=${VANTRO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VANTRO_SANITIZE})
  # This check uses a pipe to ask the kernel whether an object exists. If a test leaves no free
  # descriptor, it reports every object as invalid.
  if(VANTRO_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()

# Code that processes bytes from untrusted programs is built so that a fault ends the process and
# cannot be exploited. The sanitizers have their own checks.
if(NOT VANTRO_SANITIZE)
  add_compile_options(-fstack-protector-strong)
  if(CMAKE_BUILD_TYPE MATCHES "Rel")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

find_package(Threads REQUIRED)
