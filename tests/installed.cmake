# Installs into a fresh folder and builds the examples against it, through CMake and pkg-config.
#   cmake -DBUILD=build folder -DSOURCE=source -DWORK=scratch folder -DLIBDIR=lib -P installed.cmake
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/examples -B ${WORK}/build -G Ninja
  -DCMAKE_PREFIX_PATH=${prefix} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/build OUTPUT_QUIET
  COMMAND_ERROR_IS_FATAL ANY)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
foreach(example IN ITEMS "kt7lib host kt7host" "kt7photo photo kt7photohost")
  separate_arguments(example)
  list(GET example 0 library)
  list(GET example 1 source)
  list(GET example 2 program)
  execute_process(COMMAND ${WORK}/build/${program} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND pkg-config --define-variable=prefix=${prefix}
    --cflags --libs ${library} OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  execute_process(COMMAND cc ${SOURCE}/examples/${source}.c ${flags} -lm
    -Wl,-rpath,${prefix}/${LIBDIR} -o ${WORK}/pkg_${program} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${WORK}/pkg_${program} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
