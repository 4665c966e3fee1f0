# Cross-compiles for 64-bit Windows with Debian's mingw-w64 (package
# g++-mingw-w64-x86-64). The posix-threads variant of the compiler is used
# because the library relies on std::thread and std::mutex.
#
#   cmake -S . -B build/windows -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake
#
# Produces libaostore.dll with its import library libaostore.dll.a, the static
# library, the tool and the test programs. The C and C++ runtimes and
# winpthread are linked statically, so every .exe and the .dll run without
# the compiler's runtime DLLs beside them (under Wine as on Windows).

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(AOSTORE_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${AOSTORE_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${AOSTORE_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${AOSTORE_MINGW_TRIPLE}-windres)

# Headers and libraries come from the mingw sysroot only; programs (cmake's
# helpers, the compiler) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${AOSTORE_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

# Programs built here run under Wine on the build machine.
find_program(AOSTORE_WINE NAMES wine64 wine)
if(AOSTORE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${AOSTORE_WINE})
endif()

# Debian ships GoogleTest as sources only for other targets; build them here.
set(AOSTORE_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build the tests against")
# List the test cases when ctest runs rather than at build time, so that a
# build never has to start Wine.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
