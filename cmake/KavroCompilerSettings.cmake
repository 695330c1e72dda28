# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Compiler settings shared by every target of the project.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

add_compile_options(-Wall -Wextra)
option(KAVRO_WERROR "Treat compiler warnings as errors" OFF)
if(KAVRO_WERROR)
    add_compile_options(-Werror)
endif()

# The strict Qt string and keyword settings used across KDE Frameworks.
add_compile_definitions(
    QT_NO_KEYWORDS
    QT_NO_URL_CAST_FROM_STRING
    QT_USE_QSTRINGBUILDER
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_FOREACH
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_STRICT_ITERATORS
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

# KAVRO_SANITIZE takes a list of sanitizers: "address;undefined" or "thread".
set(KAVRO_SANITIZE "" CACHE STRING "Sanitizers to build with: empty, 'address;undefined' or 'thread'")
if(KAVRO_SANITIZE)
    if("thread" IN_LIST KAVRO_SANITIZE AND "address" IN_LIST KAVRO_SANITIZE)
        message(FATAL_ERROR "ThreadSanitizer cannot be combined with AddressSanitizer")
    endif()
    list(JOIN KAVRO_SANITIZE "," _kavro_sanitizers)
    add_compile_options(-fsanitize=${_kavro_sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=${_kavro_sanitizers})
endif()
