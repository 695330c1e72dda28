# SPDX-FileCopyrightText: 2026 Kavro developers
# SPDX-License-Identifier: MIT
# Script mode: fails when a C++ file of the project differs from its clang-format form.
find_program(CLANG_FORMAT clang-format REQUIRED)
set(files "")
foreach(dir include src tests examples bench fuzz server cli)
    file(GLOB_RECURSE found "${SOURCE_DIR}/${dir}/*.cpp" "${SOURCE_DIR}/${dir}/*.h")
    list(APPEND files ${found})
endforeach()
execute_process(COMMAND "${CLANG_FORMAT}" --dry-run --Werror ${files}
    WORKING_DIRECTORY "${SOURCE_DIR}" RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "Files need clang-format (run 'make format'):\n${errors}")
endif()
