# The libraries and the page for browsers, built by Emscripten (scripts/web.sh). Everything is linked
# statically: a page has no loader.
option(KT7_WEB_THREADS "Build for pages that may share memory between workers" OFF)

set(CMAKE_POSITION_INDEPENDENT_CODE OFF)
# WebAssembly's own exceptions are as fast and 4 % smaller, but with threads this Emscripten's library
# loses the type of an exception that is raised again out of an exception_ptr.
set(web_flags -msimd128 -fexceptions $<$<BOOL:${KT7_WEB_THREADS}>:-pthread>)
add_compile_options(${web_flags}
  $<$<COMPILE_LANGUAGE:CXX>:-include${PROJECT_SOURCE_DIR}/hosts/web/src/olderLibrary.h>)
add_link_options(${web_flags})

add_subdirectory(prim)
add_subdirectory(qxutils)
add_subdirectory(qxenhlib)
add_subdirectory(pmdll)
add_subdirectory(photo)
add_subdirectory(hosts/web)
if(NOT KT7_WEB_THREADS)
  add_subdirectory(tests/hosts)
endif()
