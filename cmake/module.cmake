# The module. Its objects are compiled once; the shared object, the unit tests and the benchmarks link the same ones.
file(GLOB module_sources CONFIGURE_DEPENDS
     core/*.cpp tables/*.cpp threads/*.cpp storage/*.cpp)

add_library(module_objects OBJECT ${module_sources})
set_target_properties(module_objects PROPERTIES CXX_VISIBILITY_PRESET hidden
                                                VISIBILITY_INLINES_HIDDEN ON)
target_link_libraries(module_objects PUBLIC netsnmpagent netsnmp Threads::Threads)

# tests/exports.txt is the one list of what the module exports: the linker's version script is written from it.
set(exports_list ${CMAKE_SOURCE_DIR}/tests/exports.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports_list})
file(READ ${exports_list} exports)
string(REGEX REPLACE "[DF] ([^\n]+)\n" "    \\1;\n" exports "${exports}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/module.map
     CONTENT "{\n  global:\n@exports@  local:\n    *;\n};\n" @ONLY)

add_library(snmpextmibmodule MODULE)
target_link_libraries(snmpextmibmodule PRIVATE module_objects)
set_property(TARGET snmpextmibmodule APPEND PROPERTY LINK_DEPENDS ${CMAKE_BINARY_DIR}/module.map)
# -Bsymbolic: libnetsnmpagent, loaded earlier, exports a trap_version_id as well; the module must use its own.
target_link_options(snmpextmibmodule PRIVATE
                    -Wl,--version-script=${CMAKE_BINARY_DIR}/module.map -Wl,-Bsymbolic)
