# Cross-builds for the Mac with the Zig toolchain: KIOSKD_ZIG is its program, KIOSKD_MACOS_ARCH the
# architecture (aarch64 or x86_64). The oldest macOS that the result runs on is part of the target.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${KIOSKD_MACOS_ARCH})
# That the compiler links is found out by linking the daemon.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KIOSKD_ZIG KIOSKD_MACOS_ARCH)
set(CMAKE_CXX_COMPILER ${KIOSKD_ZIG} c++)
set(CMAKE_OBJCXX_COMPILER ${KIOSKD_ZIG} c++)
set(CMAKE_AR llvm-ar CACHE FILEPATH "")
set(CMAKE_RANLIB llvm-ranlib CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool CACHE FILEPATH "")

# What the toolchain does not bring, in the place where Xcode would look for it.
cmake_path(SET sdk NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../packaging/macos-sdk)
string(CONCAT CMAKE_CXX_FLAGS_INIT "-target ${KIOSKD_MACOS_ARCH}-macos.13.0 "
                                   "-isystem ${sdk}/include -iframework ${sdk}/Frameworks")
# Zig and CMake both name the language.
set(CMAKE_OBJCXX_FLAGS_INIT "${CMAKE_CXX_FLAGS_INIT} -Wno-unused-command-line-argument")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-s -F ${sdk}/Frameworks -L ${sdk}/lib")

# Packages of the building machine are not the Mac's.
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
