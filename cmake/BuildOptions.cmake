# The warnings for all our own code; generated code is compiled without them.
add_library(satnavd_options INTERFACE)
target_compile_options(satnavd_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>)  # GCC's -Wconversion does not bring it
target_include_directories(satnavd_options INTERFACE ${CMAKE_SOURCE_DIR}/src)
# GCC 12 takes "text" + std::string for overlapping copies (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 AND NOT SATNAVD_SANITIZE)
  target_compile_options(satnavd_options INTERFACE -Wno-restrict)
endif()

# The service is optimized as a whole when it is linked. The folders that call satnavd_fast_links() link the same objects
# without that, because it would take most of the build.
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  add_compile_options(-ffat-lto-objects)
endif()
macro(satnavd_fast_links)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)
  add_link_options(-fno-lto)
endmacro()

# These make a memory fault end the process instead of taking it over; scripts/check-package looks for them in the
# programs. The sanitizers have their own.
if(NOT SATNAVD_SANITIZE)
  include(CheckCXXCompilerFlag)
  foreach(flag stack-protector-strong stack-clash-protection cf-protection)
    check_cxx_compiler_flag(-f${flag} SATNAVD_HAS_${flag})  # the last one is for x86
    if(SATNAVD_HAS_${flag})
      add_compile_options(-f${flag})
    endif()
  endforeach()
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)  # needs optimization
  set(shared $<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>)
  set(shareable $<OR:${shared},$<BOOL:$<TARGET_PROPERTY:POSITION_INDEPENDENT_CODE>>>)
  add_compile_options($<$<NOT:${shareable}>:-fPIE>)
  add_link_options($<$<NOT:${shared}>:-pie> LINKER:-z,relro,-z,now,-z,noexecstack)
endif()

if(SATNAVD_SANITIZE)
  add_compile_options(-fsanitize=${SATNAVD_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SATNAVD_SANITIZE})
endif()

# satnavd_room(NAME SOURCES ... LINKS ...): one static library for one folder of src/.
function(satnavd_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ROOM_SOURCES})
  target_link_libraries(${name} PUBLIC ${ROOM_LINKS} PRIVATE satnavd_options)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
endfunction()

# satnavd_program(NAME SOURCES ... LINKS ...): a program in bin/.
function(satnavd_program name)
  cmake_parse_arguments(PROGRAM "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${PROGRAM_SOURCES})
  target_link_libraries(${name} PRIVATE ${PROGRAM_LINKS} satnavd_options)
endfunction()
