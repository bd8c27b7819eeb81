# What the library brings into a host's process: only the libraries it needs, all addresses bound at
# load and then read only, no code rewritten, no stack that runs code, stacks guarded.
#   cmake -DREADELF=readelf -DLIBRARY=kt7lib.so -P hardening.cmake
execute_process(COMMAND ${READELF} -dlW ${LIBRARY} OUTPUT_VARIABLE table
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${READELF} --dyn-syms -W ${LIBRARY} OUTPUT_VARIABLE symbols
  COMMAND_ERROR_IS_FATAL ANY)
set(faults "")
string(REGEX MATCHALL "Shared library: [^\n]*" needed "${table}")
foreach(library IN LISTS needed)
  if(NOT library MATCHES "\\[(libgomp|libstdc\\+\\+|libm|libgcc_s|liblcms2|libc|ld-linux[-_0-9a-z]*)\\.so\\.[0-9]+\\]")
    list(APPEND faults "${library}")
  endif()
endforeach()
if(table MATCHES "TEXTREL")
  list(APPEND faults "text relocations")
endif()
if(NOT table MATCHES "GNU_STACK[^\n]* RW ")
  list(APPEND faults "executable stack")
endif()
if(NOT table MATCHES "GNU_RELRO" OR NOT table MATCHES "BIND_NOW|FLAGS_1[^\n]*NOW")
  list(APPEND faults "addresses bound late")
endif()
if(NOT symbols MATCHES "__stack_chk_fail")
  list(APPEND faults "no stack protector")
endif()
if(faults)
  message(FATAL_ERROR "${faults}")
endif()
