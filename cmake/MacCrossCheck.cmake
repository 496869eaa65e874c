# Toolchain for tools/check-macos-build.sh: the macOS configuration of this project compiled on another host
# by Clang for one Mac architecture, against Apple's SDK and its libc++, with the host's Qt headers and Qt
# tools (moc, rcc). The script links the results itself, against the SDK's stubs, so nothing here links.
#
#   ORVANTA_CHECK_SDK     the unpacked SDK (MacOSX*.sdk)
#   ORVANTA_CHECK_ARCH    arm64 or x86_64
#   ORVANTA_CHECK_CLANG, ORVANTA_CHECK_AR, ORVANTA_CHECK_RANLIB    clang++, llvm-ar and llvm-ranlib

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
    ORVANTA_CHECK_SDK ORVANTA_CHECK_ARCH ORVANTA_CHECK_CLANG ORVANTA_CHECK_AR ORVANTA_CHECK_RANLIB)
foreach(variable IN LISTS CMAKE_TRY_COMPILE_PLATFORM_VARIABLES)
    if(NOT ${variable})
        message(FATAL_ERROR "${variable} is not set")
    endif()
endforeach()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${ORVANTA_CHECK_ARCH})
set(CMAKE_OSX_SYSROOT ${ORVANTA_CHECK_SDK})
set(CMAKE_OSX_ARCHITECTURES ${ORVANTA_CHECK_ARCH})

foreach(language CXX OBJCXX)
    set(CMAKE_${language}_COMPILER ${ORVANTA_CHECK_CLANG})
    set(CMAKE_${language}_COMPILER_TARGET ${ORVANTA_CHECK_ARCH}-apple-macos)
    # Apple's Clang uses libc++ for macOS by itself; Debian's must be told. Every warning fails the check,
    # a call into an API newer than the deployment target without an availability guard too.
    set(CMAKE_${language}_FLAGS_INIT "-stdlib=libc++ -Werror -Werror=unguarded-availability-new")
endforeach()
set(CMAKE_AR ${ORVANTA_CHECK_AR})
set(CMAKE_RANLIB ${ORVANTA_CHECK_RANLIB})
# Asked for by CMake's Darwin platform files, never run: nothing is installed.
set(CMAKE_INSTALL_NAME_TOOL /bin/true)
# Compiler checks compile only: there is no libSystem to link against.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# The host's Qt is found outside the SDK; every other package, header and library only inside it.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# Qt's Vulkan support would add the host's /usr/include to every include path.
set(CMAKE_DISABLE_FIND_PACKAGE_WrapVulkanHeaders ON)
