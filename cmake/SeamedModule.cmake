# The module with a seam: kvf_seamed_module(target source) makes the static library `target` from the
# finished static library `source` by redirecting its calls of every function X that the seam knows
# to the wrapper seam_X. Only the module's own calls are redirected, and its sources and objects stay
# as they are.
#
# The source's objects are compiled without link-time optimisation, whatever the user's flags ask for:
# objcopy redirects machine code only, and says nothing where an object holds the other form as well,
# which the linker would then prefer, and call past the seam.

# Writes what is redirected, from the seam's table.
function(kvf_write_redirections table output)
  file(STRINGS ${table} rows REGEX "^SEAM_(CALL|CALL_VIA|VARIADIC)\\(")
  set(lines "")
  foreach(row IN LISTS rows)
    string(REGEX REPLACE "^[A-Z_]+\\(([A-Za-z0-9_]+),.*" "\\1" symbol "${row}")
    string(APPEND lines "${symbol} seam_${symbol}\n")
  endforeach()
  file(CONFIGURE OUTPUT ${output} CONTENT "${lines}" @ONLY)
endfunction()

set(KVF_SEAM_DIR ${CMAKE_CURRENT_LIST_DIR}/../standalone/seam)
set(KVF_SEAM_TABLE ${KVF_SEAM_DIR}/functions.def)
set(KVF_SEAM_REDIRECTIONS ${PROJECT_BINARY_DIR}/seam_redirections.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${KVF_SEAM_TABLE})
kvf_write_redirections(${KVF_SEAM_TABLE} ${KVF_SEAM_REDIRECTIONS})

function(kvf_seamed_module target source)
  target_compile_options(${source} PRIVATE ${KVF_COMPILE_WITHOUT_LTO})
  set(archive ${PROJECT_BINARY_DIR}/lib/lib${target}.a)
  add_custom_command(
    OUTPUT ${archive}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/lib
    COMMAND ${CMAKE_OBJCOPY} --redefine-syms=${KVF_SEAM_REDIRECTIONS} $<TARGET_FILE:${source}>
            ${archive}
    DEPENDS ${source} ${KVF_SEAM_REDIRECTIONS}
    COMMENT "Redirecting the calls of ${source} to the seam"
    VERBATIM)
  add_custom_target(${target}_archive ALL DEPENDS ${archive})

  add_library(${target} STATIC IMPORTED GLOBAL)
  add_dependencies(${target} ${target}_archive)
  set_target_properties(${target} PROPERTIES IMPORTED_LOCATION ${archive} SYSTEM OFF)
  target_include_directories(${target}
    INTERFACE $<TARGET_PROPERTY:${source},INTERFACE_INCLUDE_DIRECTORIES>)
  target_link_libraries(${target} INTERFACE kvfile_seam ZLIB::ZLIB)
  # Handed on to every program that is linked with it: kvf_list_seamed_programs asks for it.
  set_target_properties(${target} PROPERTIES INTERFACE_KVF_SEAMED ON
    COMPATIBLE_INTERFACE_BOOL KVF_SEAMED)
endfunction()

function(kvf_programs_below folder output)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  set(programs "")
  foreach(target IN LISTS targets)
    get_target_property(kind ${target} TYPE)
    if(kind STREQUAL "EXECUTABLE")
      list(APPEND programs ${target})
    endif()
  endforeach()
  get_property(subfolders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS subfolders)
    get_property(built_on_demand DIRECTORY ${subfolder} PROPERTY EXCLUDE_FROM_ALL)
    if(NOT built_on_demand)
      kvf_programs_below(${subfolder} more)
      list(APPEND programs ${more})
    endif()
  endforeach()
  set(${output} ${programs} PARENT_SCOPE)
endfunction()

# kvf_list_seamed_programs(OUTPUT): writes where the programs are that are linked with a seamed module,
# one a line. For the end of the outermost CMakeLists.txt.
function(kvf_list_seamed_programs output)
  kvf_programs_below(${PROJECT_SOURCE_DIR} programs)
  set(lines "")
  foreach(program IN LISTS programs)
    string(APPEND lines
      "$<$<BOOL:$<TARGET_PROPERTY:${program},KVF_SEAMED>>:$<TARGET_FILE:${program}>\n>")
  endforeach()
  file(GENERATE OUTPUT ${output} CONTENT "${lines}")
endfunction()
