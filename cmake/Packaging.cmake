# Defines what is installed where, and the Debian packages that cpack makes of it: `satnavd` for the unit, `satnavd-sim`
# with the simulators for a bench, `satnavd-dev` for those who write or debug other programs of the bus.
include(GNUInstallDirs)

set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(packaging_made ${CMAKE_BINARY_DIR}/packaging)
set(SATNAVD_UNIT_DIR /lib/systemd/system CACHE PATH "Where systemd looks for units")
set(SATNAVD_UDEV_DIR /lib/udev/rules.d CACHE PATH "Where udev looks for rules")

# satnavd_install_gzip(SOURCE DESTINATION NAME COMPONENT): a compressed file without name and time inside, so that two
# builds are the same.
function(satnavd_install_gzip source destination name component)
  set(made ${packaging_made}/${component}/${name}.gz)
  add_custom_command(OUTPUT ${made}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${packaging_made}/${component}
    COMMAND gzip -9nc ${source} > ${made}
    DEPENDS ${source} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY satnavd_packaged ${made})
  install(FILES ${made} DESTINATION ${destination} COMPONENT ${component})
endfunction()

# satnavd_install_program(TARGET FOLDER SECTION COMPONENT): a program with its man page and its completion.
function(satnavd_install_program target folder section component)
  install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT ${component})
  satnavd_install_gzip(${packaging}/man/${target}.${section} ${CMAKE_INSTALL_MANDIR}/man${section} ${target}.${section}
                       ${component})
  install(FILES ${packaging}/completion/${target} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          COMPONENT ${component})
endfunction()

satnavd_install_program(satnavd ${CMAKE_INSTALL_SBINDIR} 8 satnavd)
satnavd_install_program(satnav-tap ${CMAKE_INSTALL_BINDIR} 1 satnavd)
satnavd_install_program(satnav-check ${CMAKE_INSTALL_BINDIR} 1 satnavd)
satnavd_install_program(gnss-sim ${CMAKE_INSTALL_BINDIR} 1 sim)
satnavd_install_program(ecu-sim ${CMAKE_INSTALL_BINDIR} 1 sim)
satnavd_install_program(satnavd-replay ${CMAKE_INSTALL_BINDIR} 1 sim)

# The service looks here, not below the prefix.
install(FILES ${packaging}/satnavd.conf DESTINATION /etc/satnavd COMPONENT satnavd)
satnavd_install_gzip(${packaging}/man/satnavd.conf.5 ${CMAKE_INSTALL_MANDIR}/man5 satnavd.conf.5 satnavd)
install(FILES ${CMAKE_SOURCE_DIR}/signals/satnavd.dbc DESTINATION ${CMAKE_INSTALL_DATADIR}/satnavd COMPONENT satnavd)
install(FILES ${packaging}/satnavd.service DESTINATION ${SATNAVD_UNIT_DIR} COMPONENT satnavd)
install(FILES ${packaging}/satnavd.udev DESTINATION ${SATNAVD_UDEV_DIR} RENAME 60-satnavd.rules COMPONENT satnavd)
install(FILES ${packaging}/satnavd.sysusers DESTINATION lib/sysusers.d RENAME satnavd.conf COMPONENT satnavd)
install(DIRECTORY ${packaging}/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/satnavd COMPONENT satnavd)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/satnavd COMPONENT satnavd
        FILES_MATCHING PATTERN "*.md")

satnavd_install_gzip(${packaging}/man/satnavd-bus.7 ${CMAKE_INSTALL_MANDIR}/man7 satnavd-bus.7 dev)
install(FILES ${CMAKE_SOURCE_DIR}/src/proto/nvxproto.proto ${CMAKE_SOURCE_DIR}/signals/satnavd.dbc
        DESTINATION ${CMAKE_INSTALL_DATADIR}/satnavd-dev COMPONENT dev)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${packaging_made}/satnavdConfigVersion.cmake COMPATIBILITY SameMajorVersion
                                 ARCH_INDEPENDENT)
install(FILES ${packaging}/dev/satnavdConfig.cmake ${packaging_made}/satnavdConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/satnavd COMPONENT dev)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/satnavd-dev COMPONENT dev
        USE_SOURCE_PERMISSIONS PATTERN ".*" EXCLUDE PATTERN "__pycache__" EXCLUDE)

# Wireshark looks for scripts in this folder, which has the architecture in its name.
set(plugin ${packaging_made}/dev/satnavd.lua)
set(descriptors ${packaging_made}/dev/nvxproto.desc)
add_custom_command(OUTPUT ${plugin}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${packaging_made}/dev
  COMMAND protobuf::protoc -I ${CMAKE_SOURCE_DIR}/src/proto --descriptor_set_out=${descriptors} nvxproto.proto
  COMMAND ${CMAKE_COMMAND} -D DESCRIPTORS_FILE=${descriptors} -D DATABASE_FILE=${CMAKE_SOURCE_DIR}/signals/satnavd.dbc
          -D TEMPLATE=${packaging}/wireshark/satnavd.lua.in -D OUTPUT=${plugin}
          -P ${CMAKE_SOURCE_DIR}/cmake/WiresharkPlugin.cmake
  DEPENDS ${packaging}/wireshark/satnavd.lua.in ${CMAKE_SOURCE_DIR}/cmake/WiresharkPlugin.cmake
          ${CMAKE_SOURCE_DIR}/src/proto/nvxproto.proto ${CMAKE_SOURCE_DIR}/signals/satnavd.dbc
  VERBATIM)
set_property(GLOBAL APPEND PROPERTY satnavd_packaged ${plugin})
install(FILES ${plugin} DESTINATION lib/${CMAKE_LIBRARY_ARCHITECTURE}/wireshark/plugins COMPONENT dev)

set(CPACK_COMPONENTS_ALL satnavd sim dev)
set(package_of_satnavd satnavd)
set(package_of_sim satnavd-sim)
set(package_of_dev satnavd-dev)
foreach(component ${CPACK_COMPONENTS_ALL})
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${package_of_${component}})
  install(FILES ${packaging}/deb/copyright DESTINATION ${doc} COMPONENT ${component})
  satnavd_install_gzip(${packaging}/deb/changelog ${doc} changelog ${component})
endforeach()

get_property(packaged GLOBAL PROPERTY satnavd_packaged)
add_custom_target(satnavd_packaging ALL DEPENDS ${packaged})

# Sets `result` to Debian's name of the architecture that the compiler builds for.
function(debian_architecture result)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine OUTPUT_VARIABLE triplet OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(CMAKE_CXX_COMPILER_TARGET)
    set(triplet ${CMAKE_CXX_COMPILER_TARGET})
  endif()
  set(names x86_64 amd64 aarch64 arm64 arm.*gnueabihf armhf i.86 i386 riscv64 riscv64)
  while(names)
    list(POP_FRONT names pattern name)
    if(triplet MATCHES "^${pattern}")
      set(${result} ${name} PARENT_SCOPE)
      return()
    endif()
  endwhile()
  message(FATAL_ERROR "No Debian architecture is known for ${triplet}")
endfunction()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME satnavd)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "satnavd maintainers <maintainers@satnavd.example>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
debian_architecture(CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_SATNAVD_PACKAGE_NAME satnavd)
set(CPACK_DEBIAN_SATNAVD_PACKAGE_CONTROL_EXTRA ${packaging}/deb/conffiles ${packaging}/deb/postinst
    ${packaging}/deb/prerm ${packaging}/deb/postrm)
set(CPACK_DEBIAN_SATNAVD_PACKAGE_RECOMMENDS "libpcap0.8")  # loaded if a recording is asked for
set(CPACK_DEBIAN_SATNAVD_PACKAGE_SUGGESTS "mosquitto, satnavd-dev, satnavd-sim")
set(CPACK_DEBIAN_SATNAVD_DESCRIPTION "satellite-navigation service of an in-vehicle control unit
Reads a u-blox receiver on a serial port, assembles one fix per navigation
epoch and publishes it over MQTT and as CAN signal groups. Configures and
supervises the receiver.

satnav-tap, the viewer of the bus, and satnav-check, which looks for mistakes
in the configuration and on the unit, are included.")

set(CPACK_DEBIAN_SIM_PACKAGE_NAME satnavd-sim)
set(CPACK_DEBIAN_SIM_DESCRIPTION "simulated receiver and control unit for satnavd
gnss-sim is a satellite receiver behind a pseudo-terminal, with faults on
request; ecu-sim publishes what the rest of the unit would and joins two
units as the vehicle's CAN does; satnavd-replay runs the service over a
recording of its receiver's link. For a bench, not for the vehicle.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME satnavd-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "protobuf-compiler")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "cmake, g++, libmosquitto-dev, libprotobuf-dev, pkg-config, python3-paho-mqtt, python3-protobuf, tshark | wireshark")
set(CPACK_DEBIAN_DEV_DESCRIPTION "messages of satnavd for other programs on its bus
The contract of the bus as a man page, the protobuf messages, the signal
database (DBC), a CMake package, examples in C++ and Python that read the
fixes, and a dissector for Wireshark.")

# The libraries for a cross build: dpkg-shlibdeps looks them up in the package database of the build machine, which
# knows none of the target's. scripts/check-package checks that this list names the same ones.
set(libraries "libc6 (>= 2.36), libcpp-httplib0.11 (>= 0.11.4+ds), libgcc-s1 (>= 12), libmosquitto1 (>= 2.0.11), libmosquittopp1 (>= 2.0.11), libncursesw6 (>= 6), libpcap0.8 (>= 1.5.1), libprotobuf-lite32 (>= 3.21.12), libssl3 (>= 3.0.0), libstdc++6 (>= 12), libtinfo6 (>= 6)")
set(CPACK_DEBIAN_SATNAVD_PACKAGE_DEPENDS "adduser, init-system-helpers (>= 1.54~)")
if(CMAKE_CROSSCOMPILING)
  string(APPEND CPACK_DEBIAN_SATNAVD_PACKAGE_DEPENDS ", ${libraries}")
  string(REGEX REPLACE ", lib(ncursesw|tinfo)6 [^,]*" "" CPACK_DEBIAN_SIM_PACKAGE_DEPENDS "${libraries}")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

include(CPack)
