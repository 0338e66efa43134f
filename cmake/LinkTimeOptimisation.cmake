# Link-time optimisation: who is built with it, and who must not be.
include(CheckIPOSupported)
include(CMakeDependentOption)

check_ipo_supported(RESULT kvf_lto_works LANGUAGES CXX)
if(kvf_lto_works AND CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT KVFILE_SANITIZE AND NOT KVFILE_COVERAGE)
  set(kvf_lto_is_sensible ON)
else()
  set(kvf_lto_is_sensible OFF)
endif()
cmake_dependent_option(KVFILE_LTO "optimise at link time, in release builds: the libraries and the \
shell; with clang the shared library only, since its archives cannot hold machine code as well" ON
  kvf_lto_is_sensible OFF)

# An object for the linker has a random number in it, unless it is given one: two builds in the same
# folder would give different archives.
function(kvf_seed_objects target)
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source OUTPUT_VARIABLE seed)
    cmake_path(RELATIVE_PATH seed BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    get_property(options SOURCE ${source} TARGET_DIRECTORY ${target} PROPERTY COMPILE_OPTIONS)
    if(NOT "-frandom-seed=${seed}" IN_LIST options)
      set_property(SOURCE ${source} TARGET_DIRECTORY ${target} APPEND PROPERTY
        COMPILE_OPTIONS -frandom-seed=${seed})
    endif()
  endforeach()
endfunction()

# kvf_optimise_at_link(TARGET): with KVFILE_LTO, and once TARGET has its sources. An archive holds
# machine code as well, so that a product may link it with or without; that holds, too, where it is
# the user's flags that ask for it.
function(kvf_optimise_at_link target)
  get_target_property(kind ${target} TYPE)
  set(gnu $<CXX_COMPILER_ID:GNU>)
  if(kind STREQUAL "STATIC_LIBRARY")
    target_compile_options(${target} PRIVATE $<${gnu}:-ffat-lto-objects>)
  endif()
  if(NOT KVFILE_LTO OR (CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND NOT kind STREQUAL "SHARED_LIBRARY"))
    return()
  endif()
  set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
  kvf_seed_objects(${target})
  # What the compiler sees only when it has all of the program before it.
  target_link_options(${target} PRIVATE
    $<$<AND:${gnu},$<BOOL:${KVFILE_WERROR}>>:-Werror=odr;-Werror=lto-type-mismatch>)
endfunction()

# For compiling and linking what is never optimised at link time, whatever the user's flags ask for.
# Clang links what they made of the archives in no other way.
set(KVF_COMPILE_WITHOUT_LTO -fno-lto)
set(KVF_LINK_WITHOUT_LTO $<$<CXX_COMPILER_ID:GNU>:-fno-lto>)
