# Row kernels: one source, compiled once per CPU target, chosen once at load (prim/kernels/select.cpp).
#
# EXACT sources give the same bits on every target. FUSED sources may contract a*b+c into one rounding
# and are compared with the generic target within a bound.
set(KT7_CPU_TARGETS generic)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  list(APPEND KT7_CPU_TARGETS avx2 avx512)
endif()
set(KT7_FLAGS_generic "")
set(KT7_FLAGS_avx2 -mavx2 -mfma -mbmi2)
set(KT7_FLAGS_avx512 -mavx512f -mavx512bw -mavx512dq -mavx512vl -mfma -mbmi2
    -mprefer-vector-width=512)

function(kt7_add_kernels name)
  cmake_parse_arguments(ARG "" "" "EXACT;FUSED" ${ARGN})
  # A source's own options come behind those of kt7_options, which turn contraction off.
  if(ARG_FUSED)
    set_source_files_properties(${ARG_FUSED} PROPERTIES COMPILE_OPTIONS -ffp-contract=fast)
  endif()
  foreach(target IN LISTS KT7_CPU_TARGETS)
    foreach(kind EXACT FUSED)
      if(NOT ARG_${kind})
        continue()
      endif()
      string(TOLOWER ${kind} suffix)
      set(object ${name}_${target}_${suffix})
      add_library(${object} OBJECT ${ARG_${kind}})
      target_link_libraries(${object} PRIVATE kt7_options)
      target_compile_definitions(${object} PRIVATE KT7_TARGET=${target})
      target_compile_options(${object} PRIVATE ${KT7_FLAGS_${target}} -fno-exceptions -fno-rtti
        $<$<CONFIG:Release,RelWithDebInfo>:-O3>)
      target_sources(${name} PRIVATE $<TARGET_OBJECTS:${object}>)
      set_property(GLOBAL APPEND PROPERTY KT7_KERNEL_OBJECTS $<TARGET_OBJECTS:${object}>)
    endforeach()
  endforeach()
endfunction()
