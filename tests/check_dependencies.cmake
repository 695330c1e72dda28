# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Script mode: the core library needs no Qt Widgets or Qt Gui, so console
# programs and servers can use it; Kavro::Widgets, where built, needs both the
# core and Qt Widgets, which also shows that the check reads real entries.
#
# Expects READELF, CORE (the core library) and optionally WIDGETS.

function(needed_libraries library out)
    execute_process(COMMAND "${READELF}" --dynamic "${library}"
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${READELF} failed on ${library}:\n${output}")
    endif()
    string(REGEX MATCHALL "\\(NEEDED\\)[^[]*\\[[^]]+\\]" entries "${output}")
    set(names "")
    foreach(entry IN LISTS entries)
        string(REGEX REPLACE ".*\\[([^]]+)\\]" "\\1" name "${entry}")
        list(APPEND names "${name}")
    endforeach()
    set(${out} "${names}" PARENT_SCOPE)
endfunction()

needed_libraries("${CORE}" core)
if(NOT core MATCHES "libQt6Core")
    message(FATAL_ERROR "no Qt Core among the core library's needed libraries: ${core}")
endif()
if(core MATCHES "libQt6(Widgets|Gui)")
    message(FATAL_ERROR "the core library links Qt Widgets or Qt Gui: ${core}")
endif()
message(STATUS "core library needs: ${core}")

if(WIDGETS)
    needed_libraries("${WIDGETS}" widgets)
    if(NOT widgets MATCHES "libQt6Widgets" OR NOT widgets MATCHES "libkavroclient")
        message(FATAL_ERROR "Kavro::Widgets does not need Qt Widgets and the core library: ${widgets}")
    endif()
    message(STATUS "Kavro::Widgets needs: ${widgets}")
endif()
