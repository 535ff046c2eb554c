# snmp.so, which is loaded by the sinks of its kind alone and is packaged alone. C++ passes between it and the program, so both
# must be of one build: the same version, header and compiler. Another header is another build though the version has stayed.
set(snmp_header agent/snmp/sender.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${snmp_header})
file(SHA256 ${CMAKE_SOURCE_DIR}/${snmp_header} snmp_interface)
string(SUBSTRING ${snmp_interface} 0 12 snmp_interface)
set(SNMP_BUILD "${PROJECT_VERSION} ${snmp_interface} ${CMAKE_CXX_COMPILER_ID}-${CMAKE_CXX_COMPILER_VERSION}")

add_library(snmp SHARED agent/snmp/sender.cc)
set_target_properties(snmp PROPERTIES PREFIX "" SUFFIX ".so" CXX_VISIBILITY_PRESET hidden
                      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib)
target_include_directories(snmp PRIVATE ${CMAKE_SOURCE_DIR})
target_link_libraries(snmp PRIVATE ${NETSNMP})
target_compile_definitions(snmp PRIVATE SNMP_BUILD="${SNMP_BUILD}")
target_compile_definitions(agent_sinks PRIVATE SNMP_BUILD="${SNMP_BUILD}")
