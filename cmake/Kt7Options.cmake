# Warnings, hardening and sanitizers, carried by one interface target that every target of ours links.
add_library(kt7_options INTERFACE)
target_include_directories(kt7_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(kt7_options INTERFACE
  -Wall -Wextra -Wshadow -Wdouble-promotion -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion -Wold-style-cast -Wnon-virtual-dtor>
  # Truncating paths must give the same result on every CPU; kernels that gain from multiply-add
  # stand in files of their own (see Kt7Kernels.cmake).
  -ffp-contract=off -fno-math-errno -fno-trapping-math
  $<$<BOOL:${KT7_WERROR}>:-Werror>)
if(NOT KT7_SANITIZE AND NOT EMSCRIPTEN)
  # A host's process deserves a stop instead of a corrupted stack. Fortify needs optimised code.
  target_compile_options(kt7_options INTERFACE -fstack-protector-strong
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
elseif(KT7_SANITIZE)
  target_compile_options(kt7_options INTERFACE
    -fsanitize=${KT7_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kt7_options INTERFACE -fsanitize=${KT7_SANITIZE})
  string(REGEX MATCH "address" address "${KT7_SANITIZE}")
  # Said by name, as not every compiler tells which sanitizer it builds with.
  target_compile_definitions(kt7_options INTERFACE _GLIBCXX_ASSERTIONS KT7_SANITIZED
    $<$<BOOL:${address}>:KT7_SANITIZED_ADDRESS>)
endif()
