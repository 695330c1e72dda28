# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Script mode: install, run the installed tools, check the systemd unit, then build and run the
# consumer project two ways; with WIDGETS, its Kavro::Widgets program too.

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        string(REPLACE ";" " " command "${ARGV}")
        message(FATAL_ERROR "Failed (${result}): ${command}\n${output}")
    endif()
    set(last_output "${output}" PARENT_SCOPE)
endfunction()

set(prefix "${WORK_DIR}/prefix")
file(REMOVE_RECURSE "${WORK_DIR}")
run(${CMAKE_COMMAND} --install "${KAVRO_BUILD_DIR}" --prefix "${prefix}")

# The installed tools find the installed library by themselves, as for anyone who installs to a prefix of their own.
foreach(tool kavro kavro-server)
    run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "${prefix}/bin/${tool}" --version)
    message(STATUS "installed ${last_output}")
endforeach()

# The systemd unit is installed and starts the server of this prefix, also one given only at install time.
file(STRINGS "${prefix}/lib/systemd/system/kavro-server.service" exec_start REGEX "^ExecStart=")
string(FIND "${exec_start}" "ExecStart=${prefix}/bin/kavro-server " at)
if(NOT at EQUAL 0)
    message(FATAL_ERROR "The installed unit starts \"${exec_start}\", not ${prefix}/bin/kavro-server")
endif()

set(flags "")
if(SANITIZE)
    list(JOIN SANITIZE "," sanitizers)
    set(flags "-fsanitize=${sanitizers}")
endif()

# find_package(KavroClient)
run(${CMAKE_COMMAND} -S "${CONSUMER_SOURCE_DIR}" -B "${WORK_DIR}/cmake-build" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}" "-DCMAKE_CXX_FLAGS=${flags}"
    "-DWITH_WIDGETS=${WIDGETS}")
run(${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-build")
run("${WORK_DIR}/cmake-build/consumer")
message(STATUS "find_package consumer: ${last_output}")
if(WIDGETS)
    run("${WORK_DIR}/cmake-build/widgets-consumer")
    message(STATUS "find_package widgets consumer: ${last_output}")
endif()

# pkg-config
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pc_file "${prefix}/*/kavroclient.pc")
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
run(${PKG_CONFIG} --cflags --libs kavroclient)
string(STRIP "${last_output}" pkg_flags)
separate_arguments(pkg_flags UNIX_COMMAND "${pkg_flags}")
get_filename_component(lib_dir "${pc_dir}" DIRECTORY)
run(${CXX_COMPILER} -std=c++17 -fPIC ${flags} "${CONSUMER_SOURCE_DIR}/main.cpp" ${pkg_flags}
    "-Wl,-rpath,${lib_dir}" -o "${WORK_DIR}/pkgconfig-consumer")
run("${WORK_DIR}/pkgconfig-consumer")
message(STATUS "pkg-config consumer: ${last_output}")
if(WIDGETS)
    run(${PKG_CONFIG} --cflags --libs kavrowidgets)
    string(STRIP "${last_output}" pkg_flags)
    separate_arguments(pkg_flags UNIX_COMMAND "${pkg_flags}")
    run(${CXX_COMPILER} -std=c++17 -fPIC ${flags} "${CONSUMER_SOURCE_DIR}/widgets_main.cpp" ${pkg_flags}
        "-Wl,-rpath,${lib_dir}" -o "${WORK_DIR}/pkgconfig-widgets-consumer")
    run("${WORK_DIR}/pkgconfig-widgets-consumer")
    message(STATUS "pkg-config widgets consumer: ${last_output}")
endif()
