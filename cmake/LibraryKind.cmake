# What the libraries of this tree share, each thing in one place.

# The headers that a product includes: <kvfile/...>, in the tree as installed.
add_library(kvfile_headers INTERFACE)
target_include_directories(kvfile_headers INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(kvfile_headers PROPERTIES EXPORT_NAME headers)

# kvf_add_module(TARGET KIND READ_BUF_SIZE): the module as a library. It neither throws nor catches,
# but a raise of the host may pass through by a throw; a FORTIFY'd longjmp would refuse jumps between
# stacks that a host may make.
function(kvf_add_module target kind read_buf_size)
  add_library(${target} ${kind} ${KVFILE_SOURCES})
  target_compile_definitions(${target} PRIVATE KVF_READ_BUF_SIZE=${read_buf_size}
    $<$<CONFIG:Debug>:KVF_ASSERTIONS>)
  target_compile_options(${target} PRIVATE
    -fvisibility=hidden -fexceptions -fno-rtti -fno-threadsafe-statics -U_FORTIFY_SOURCE)
  # Of its own code also what the language allows and what is nearly always a mistake: an unsigned
  # value that wraps, a conversion that changes the value. What wraps on purpose says so.
  if(KVFILE_SANITIZE MATCHES "undefined" AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -fsanitize=integer,implicit-conversion
      -fno-sanitize-recover=all)
  endif()
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${target} PUBLIC kvfile_headers ZLIB::ZLIB
    PRIVATE $<BUILD_INTERFACE:kvf_options>)
endfunction()
