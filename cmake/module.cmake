# The module. Its objects are compiled once; the shared object, the unit tests and the benchmarks link the same ones.
file(GLOB module_sources CONFIGURE_DEPENDS
     core/*.cpp sources/*.cpp tables/*/*.cpp refresh/*.cpp threads/*.cpp)

add_library(module_objects OBJECT ${module_sources} module/start_up.cpp)
set_target_properties(module_objects PROPERTIES CXX_VISIBILITY_PRESET hidden
                                                VISIBILITY_INLINES_HIDDEN ON)
target_compile_options(module_objects PRIVATE -ffunction-sections -fdata-sections)
# All names are bound at loading, so a call needs no stub that might bind it later. Elsewhere the longer call outweighs
# the stub.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  target_compile_options(module_objects PRIVATE $<$<NOT:$<CONFIG:Debug>>:-fno-plt>)
endif()
# A controller has little flash, and a varbind's instructions are net-snmp's for the most part: compiled for speed, the
# module would save 0.9 % of them at most.
target_compile_options(module_objects PRIVATE $<$<NOT:$<CONFIG:Debug>>:-Oz>)
# Nothing in the module throws, and a thread leaves from its start routine, where nothing is left to unwind. Without
# tables for unwinding, the module is a tenth smaller.
target_compile_options(
  module_objects PRIVATE
  "$<$<NOT:$<CONFIG:Debug>>:-fno-exceptions;-fno-unwind-tables;-fno-asynchronous-unwind-tables;-fno-sized-deallocation>")
# Where time_t has 32 bits, this file alone knows the times beyond 2038.
set_source_files_properties(core/calendar.cpp PROPERTIES COMPILE_DEFINITIONS _TIME_BITS=64
                                                         SKIP_PRECOMPILE_HEADERS ON)
precompile_headers(module_objects)
target_link_libraries(module_objects PUBLIC netsnmpagent netsnmp Threads::Threads)

# module/exports.txt is the one list of what the module exports: the linker's version script is written from it.
set(exports_list ${CMAKE_SOURCE_DIR}/module/exports.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports_list})
file(READ ${exports_list} exports)
string(REGEX REPLACE "[DF] ([^\n]+)\n" "    \\1;\n" exports "${exports}")
file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/module.map
     CONTENT "{\n  global:\n@exports@  local:\n    *;\n};\n" @ONLY)

add_library(snmpextmibmodule MODULE)
target_link_libraries(snmpextmibmodule PRIVATE module_objects)
set_property(TARGET snmpextmibmodule APPEND PROPERTY LINK_DEPENDS ${CMAKE_BINARY_DIR}/module.map)
# The map says what each object adds (bench/module_size.py).
# -Bsymbolic: libnetsnmpagent, loaded earlier, exports a trap_version_id as well; the module must use its own.
# --gc-sections drops the columns' names, which only describe_tables reads.
target_link_options(snmpextmibmodule PRIVATE
                    -Wl,--version-script=${CMAKE_BINARY_DIR}/module.map -Wl,-Bsymbolic -Wl,--gc-sections
                    LINKER:-Map=${CMAKE_BINARY_DIR}/module.link-map)
harden(snmpextmibmodule)

# Relative relocations, most of them of pointers to texts, take 11 KiB (4 KiB with 32 bits), or a quarter of one when
# packed. glibc applies packed ones from 2.36 on, and an older one refuses the module. A linker that cannot pack them only
# says so. Debian 12's for Arm is one: there lld links the module, from version 16 on, if it is installed. What lld 14
# packs lacks the mark without which glibc refuses it.
include(CheckCXXSourceCompiles)
function(check_packing result)
  set(CMAKE_REQUIRED_LINK_OPTIONS LINKER:--fatal-warnings LINKER:-z,pack-relative-relocs ${ARGN})
  check_cxx_source_compiles("
    #include <features.h>
    #if !__GLIBC_PREREQ(2, 36)
    #error too old
    #endif
    int main() {}" ${result})
endfunction()
check_packing(TAVO_LINKER_PACKS_RELOCATIONS)
if(TAVO_LINKER_PACKS_RELOCATIONS)
  target_link_options(snmpextmibmodule PRIVATE LINKER:-z,pack-relative-relocs)
  message(STATUS "The module's linker: the compiler's, which packs relocations")
else()
  # A plain ld.lld may be of any version, and the check above does not see the mark.
  find_program(TAVO_LLD NAMES ld.lld-19 ld.lld-18 ld.lld-17 ld.lld-16 NO_CMAKE_FIND_ROOT_PATH)
  # A cross compiler looks for lld under a name that no package has, unless it is told the directory.
  get_filename_component(lld_directory "${TAVO_LLD}" REALPATH)
  get_filename_component(lld_directory "${lld_directory}" DIRECTORY)
  set(with_lld -fuse-ld=lld -B${lld_directory} LINKER:-O2)
  # One that is installed later, or named, may do what the one before could not.
  if(NOT "${TAVO_LLD}" STREQUAL "${TAVO_LLD_CHECKED}")
    unset(TAVO_LLD_PACKS_RELOCATIONS CACHE)
    set(TAVO_LLD_CHECKED "${TAVO_LLD}" CACHE INTERNAL "The lld that TAVO_LLD_PACKS_RELOCATIONS is about")
  endif()
  # The compiler would find one by itself where TAVO_LLD is OFF.
  if(TAVO_LLD)
    check_packing(TAVO_LLD_PACKS_RELOCATIONS ${with_lld})
  endif()
  if(TAVO_LLD AND TAVO_LLD_PACKS_RELOCATIONS)
    target_link_options(snmpextmibmodule PRIVATE ${with_lld} LINKER:-z,pack-relative-relocs)
    message(STATUS "The module's linker: ${TAVO_LLD}, which packs relocations")
  else()
    message(STATUS "The module's linker: the compiler's, relocations stay unpacked (TAVO_LLD: ${TAVO_LLD})")
  endif()
endif()

# A name with default visibility that the list lacks would be hidden without a word, and so would one that the list has
# and no object defines.
add_custom_command(
  OUTPUT ${CMAKE_BINARY_DIR}/exports.checked
  COMMAND ${CMAKE_SOURCE_DIR}/module/check-exports ${exports_list}
          $<FILTER:$<TARGET_OBJECTS:module_objects>,EXCLUDE,[.]pch$>
  COMMAND ${CMAKE_COMMAND} -E touch ${CMAKE_BINARY_DIR}/exports.checked
  DEPENDS $<TARGET_OBJECTS:module_objects> ${exports_list} ${CMAKE_SOURCE_DIR}/module/check-exports
  COMMAND_EXPAND_LISTS VERBATIM)

# What the tables are, as JSON, for the tools, tests and documents that need to know: build/PRESET/tables.json. The
# program never calls the platform, so it links without the platform's libraries.
add_executable(describe_tables module/describe_tables.cpp)
target_link_libraries(describe_tables PRIVATE module_objects)
set_target_properties(describe_tables PROPERTIES POSITION_INDEPENDENT_CODE OFF)
target_link_options(describe_tables PRIVATE -Wl,--unresolved-symbols=ignore-in-object-files)
set(tables_json ${CMAKE_BINARY_DIR}/tables.json)
add_custom_command(
  OUTPUT ${tables_json}
  COMMAND describe_tables ${tables_json}
  DEPENDS describe_tables
  VERBATIM)
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  message(STATUS "The tables are not checked: CMAKE_CROSSCOMPILING_EMULATOR names no program that runs describe_tables")
  set(tables_json)
  set_target_properties(describe_tables PROPERTIES EXCLUDE_FROM_ALL ON)
endif()
add_custom_target(module_descriptions ALL DEPENDS ${tables_json} ${CMAKE_BINARY_DIR}/exports.checked)
# No module without these checks, whichever target is built.
add_dependencies(snmpextmibmodule module_descriptions)
