# Cross-building for the unit: Debian's armhf (ARMv7, hard float, Thumb) with Debian's cross compiler, against the
# sysroot that scripts/armhf-sysroot makes. The programs run here through qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(SATNAVD_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot CACHE PATH "Debian's armhf packages, unpacked")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SATNAVD_SYSROOT)
file(REAL_PATH ${SATNAVD_SYSROOT} CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
  message(FATAL_ERROR "There is no sysroot in ${CMAKE_SYSROOT}: scripts/armhf-sysroot makes it")
endif()

set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# The baseline that every machine of Debian's armhf has. time_t and off_t have 64 bits, so dates do not end in 2038. The
# sysroot's libraries differ in this. Of their interfaces used here only libpcap's and cpp-httplib's have such types: files
# that include them get these options.
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard -mthumb -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
set(SATNAVD_LIBRARY_TIME -U_TIME_BITS)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
