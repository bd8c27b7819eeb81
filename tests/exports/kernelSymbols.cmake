# Objects compiled per CPU target hold no weak symbols: of several copies the linker keeps one for
# everybody, and that of a newer CPU would stop on an older one.
#   cmake -DNM=nm -DOBJECTS=LIST -P kernelSymbols.cmake
if(NOT OBJECTS)
  message(FATAL_ERROR "no objects")
endif()
execute_process(COMMAND ${NM} -A --defined-only ${OBJECTS} OUTPUT_VARIABLE table
  COMMAND_ERROR_IS_FATAL ANY)
if(NOT table MATCHES "Kernels_generic")
  message(FATAL_ERROR "no kernel table among the symbols")
endif()
string(REGEX MATCHALL "[^\n]* [WVu] [^\n]*" weak "${table}")
if(weak)
  list(JOIN weak "\n" weak)
  message(FATAL_ERROR "weak symbols:\n${weak}")
endif()
