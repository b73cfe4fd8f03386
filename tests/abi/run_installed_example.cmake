# Installs the build into a scratch prefix and builds examples/ (a plain C project) against
# it as an outside project would: the shared and the static library through find_package,
# the shared one through pkg-config and the static one through pkg-config --static, and the
# source tree through FetchContent (add_subdirectory) with its own build type and nothing of
# lumivex installed. Every program stitches the same simulated sweep to the same panorama.
# Then the installed program runs its demo from a copy of the installation, the build tree
# out of its reach.
set(prefix ${WORK}/install)
set(frames ${WORK}/example-sweep)
file(REMOVE_RECURSE ${prefix} ${WORK}/example-build ${WORK}/fetch-build ${WORK}/fetch-install
     ${WORK}/moved)
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${SOURCE}/examples -B ${WORK}/example-build -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/example-build)
run(${LUMIVEX} simulate ${PHOTO} -o ${frames}.y4m --model slide --size 320x240 -y)
run(${FFMPEG} -loglevel error -y -i ${frames}.y4m -f rawvideo -pix_fmt nv21 ${frames}.nv21)
set(ENV{LD_LIBRARY_PATH} ${prefix}/${LIBDIR})
run(${WORK}/example-build/stitch_raw 320 240 ${frames}.nv21 ${WORK}/pano-cmake.nv21)
message("${last_output}")
if(NOT last_output MATCHES "angle 180: panorama 960 x 2")
  message(FATAL_ERROR "the example did not complete the sweep")
endif()
set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
run(${PKG_CONFIG} --cflags --libs lumivex)
separate_arguments(flags UNIX_COMMAND "${last_output}")
run(${CC} -std=c99 -Wall -Wextra -Werror ${SOURCE}/examples/stitch_raw.c ${flags}
    -o ${WORK}/stitch_raw_pc)
run(${WORK}/stitch_raw_pc 320 240 ${frames}.nv21 ${WORK}/pano-pc.nv21)
run(${CMAKE_COMMAND} -E compare_files ${WORK}/pano-cmake.nv21 ${WORK}/pano-pc.nv21)

# The static library from C: the C driver links, so the package must name the C++ runtime.
unset(ENV{LD_LIBRARY_PATH})
run(${WORK}/example-build/stitch_raw_static 320 240 ${frames}.nv21 ${WORK}/pano-static.nv21)
run(${CMAKE_COMMAND} -E compare_files ${WORK}/pano-cmake.nv21 ${WORK}/pano-static.nv21)
run(${PKG_CONFIG} --static --libs lumivex)
separate_arguments(static_libs UNIX_COMMAND "${last_output}")
run(${PKG_CONFIG} --cflags lumivex)
separate_arguments(cflags UNIX_COMMAND "${last_output}")
# liblumivex.a itself, the libraries it needs as the system has them.
list(TRANSFORM static_libs REPLACE "^-llumivex$" "-Wl,-Bstatic;-llumivex;-Wl,-Bdynamic")
run(${CC} -std=c99 ${SOURCE}/examples/stitch_raw.c ${cflags} ${static_libs}
    -o ${WORK}/stitch_raw_pc_static)
run(${WORK}/stitch_raw_pc_static 320 240 ${frames}.nv21 ${WORK}/pano-pc-static.nv21)
run(${CMAKE_COMMAND} -E compare_files ${WORK}/pano-cmake.nv21 ${WORK}/pano-pc-static.nv21)

# The source tree inside a parent project: the parent's build type stays unset, and its
# install holds its own programs only.
run(${CMAKE_COMMAND} -S ${SOURCE}/examples -B ${WORK}/fetch-build -G Ninja
    -DLUMIVEX_SOURCE_DIR=${SOURCE})
file(STRINGS ${WORK}/fetch-build/CMakeCache.txt build_type REGEX "^CMAKE_BUILD_TYPE:")
if(NOT build_type STREQUAL "" AND NOT build_type MATCHES "=$")
  message(FATAL_ERROR "lumivex set the parent's build type: ${build_type}")
endif()
run(${CMAKE_COMMAND} --build ${WORK}/fetch-build --target stitch_raw_static)
run(${WORK}/fetch-build/stitch_raw_static 320 240 ${frames}.nv21 ${WORK}/pano-fetch.nv21)
run(${CMAKE_COMMAND} -E compare_files ${WORK}/pano-cmake.nv21 ${WORK}/pano-fetch.nv21)
run(${CMAKE_COMMAND} --build ${WORK}/fetch-build)
run(${CMAKE_COMMAND} --install ${WORK}/fetch-build --prefix ${WORK}/fetch-install)
file(GLOB_RECURSE installed RELATIVE ${WORK}/fetch-install ${WORK}/fetch-install/*)
list(SORT installed)
if(NOT installed STREQUAL "bin/stitch_raw;bin/stitch_raw_static")
  message(FATAL_ERROR "the parent's install holds more than its programs: ${installed}")
endif()

# The package's documents, and the program with its demo from the installation alone.
foreach(doc LICENSE CHANGELOG.md)
  if(NOT EXISTS ${prefix}/share/doc/lumivex/${doc})
    message(FATAL_ERROR "${doc} is not installed")
  endif()
endforeach()
file(COPY ${prefix}/ DESTINATION ${WORK}/moved)
run(${CMAKE_COMMAND} -E env --unset=LUMIVEX_ASSETS
    ${WORK}/moved/bin/lumivex demo -o ${WORK}/moved-demo)
if(NOT last_output MATCHES "${WORK}/moved/share/lumivex/assets")
  message(FATAL_ERROR "the installed demo did not use its installed photograph:\n${last_output}")
endif()
