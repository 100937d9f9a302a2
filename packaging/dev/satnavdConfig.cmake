# find_package(satnavd) gives the messages of the bus and the layout of its CAN signal groups:
#   satnavd_PROTO_DIR           the folder for protoc's -I
#   satnavd_PROTO               nvxproto.proto, in that folder
#   satnavd_DBC                 the signal database, a DBC file
#   satnavd_add_messages(NAME)  adds the static library NAME with the messages' classes, for #include <nvxproto.pb.h>
get_filename_component(satnavd_PROTO_DIR ${CMAKE_CURRENT_LIST_DIR}/../../satnavd-dev ABSOLUTE)
set(satnavd_PROTO ${satnavd_PROTO_DIR}/nvxproto.proto)
set(satnavd_DBC ${satnavd_PROTO_DIR}/satnavd.dbc)

function(satnavd_add_messages name)
  get_filename_component(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../../satnavd-dev ABSOLUTE)
  find_package(Threads REQUIRED)
  find_package(Protobuf REQUIRED)
  set(made ${CMAKE_CURRENT_BINARY_DIR}/${name}_made)
  file(MAKE_DIRECTORY ${made})
  add_custom_command(OUTPUT ${made}/nvxproto.pb.cc ${made}/nvxproto.pb.h
    COMMAND protobuf::protoc -I ${folder} --cpp_out=${made} nvxproto.proto
    DEPENDS ${folder}/nvxproto.proto)
  add_library(${name} STATIC ${made}/nvxproto.pb.cc)
  target_include_directories(${name} SYSTEM PUBLIC ${made})
  target_link_libraries(${name} PUBLIC protobuf::libprotobuf-lite Threads::Threads)
endfunction()
