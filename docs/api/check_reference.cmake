# Builds the API reference from the configured Doxyfile and checks it:
#   - Doxygen runs without a single warning (an undocumented export,
#     parameter or return value is one);
#   - every function the public headers export appears in the generated
#     index of functions;
#   - the usage example of the main page compiles as C99.
# cmake -DDOXYGEN=... -DDOXYFILE=... -DOUTPUT_DIR=... -DHEADERS=a.h|b.hpp
#       -DMAINPAGE=... -DINCLUDE_DIR=... [-DC_COMPILER=...] -P check_reference.cmake

foreach(var DOXYGEN DOXYFILE OUTPUT_DIR HEADERS MAINPAGE INCLUDE_DIR)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "check_reference: ${var} is not set")
  endif()
endforeach()

file(REMOVE_RECURSE "${OUTPUT_DIR}")
file(MAKE_DIRECTORY "${OUTPUT_DIR}")

execute_process(COMMAND "${DOXYGEN}" "${DOXYFILE}"
  RESULT_VARIABLE doxygen_result
  OUTPUT_VARIABLE doxygen_output
  ERROR_VARIABLE doxygen_warnings
  TIMEOUT 90)
string(STRIP "${doxygen_warnings}" doxygen_warnings)
if(NOT doxygen_result EQUAL 0 OR NOT doxygen_warnings STREQUAL "")
  message(FATAL_ERROR "Doxygen failed (${doxygen_result}) or warned:\n${doxygen_warnings}")
endif()

# The exported functions: every declaration that starts a line with SSO_API.
string(REPLACE "|" ";" header_list "${HEADERS}")
set(exported "")
foreach(header IN LISTS header_list)
  file(READ "${header}" text)
  string(REGEX MATCHALL "\nSSO_API [^(]*\\(" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE ".*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*) *\\($" "\\1" name
      "${declaration}")
    list(APPEND exported "${name}")
  endforeach()
endforeach()
list(LENGTH exported exported_count)
if(exported_count EQUAL 0)
  message(FATAL_ERROR "No exported function found in ${HEADERS}")
endif()

# Doxygen lists every documented function of the headers here, with a link
# to its documentation.
file(GLOB index_pages "${OUTPUT_DIR}/html/globals_func*.html")
if(NOT index_pages)
  message(FATAL_ERROR "No index of functions under ${OUTPUT_DIR}/html")
endif()
set(index "")
foreach(page IN LISTS index_pages)
  file(READ "${page}" page_text)
  string(APPEND index "${page_text}")
endforeach()
set(missing "")
foreach(name IN LISTS exported)
  string(FIND "${index}" "<li>${name}()" position)
  if(position EQUAL -1)
    list(APPEND missing "${name}")
  endif()
endforeach()
if(missing)
  string(REPLACE ";" "\n  " missing_text "${missing}")
  message(FATAL_ERROR "Exported but missing from the API reference:\n  ${missing_text}")
endif()
message(STATUS "${exported_count} exported functions, all in the API reference")

# The usage example must stay a program that compiles against the header.
if(C_COMPILER)
  file(READ "${MAINPAGE}" mainpage)
  string(FIND "${mainpage}" "```c\n" start)
  if(start EQUAL -1)
    message(FATAL_ERROR "No ```c example in ${MAINPAGE}")
  endif()
  math(EXPR start "${start} + 5")
  string(SUBSTRING "${mainpage}" ${start} -1 example)
  string(FIND "${example}" "```" end)
  string(SUBSTRING "${example}" 0 ${end} example)
  file(WRITE "${OUTPUT_DIR}/example.c" "${example}")
  execute_process(COMMAND "${C_COMPILER}" -std=c99 -pedantic -Wall -Wextra -Werror -fsyntax-only
      -I "${INCLUDE_DIR}" "${OUTPUT_DIR}/example.c"
    RESULT_VARIABLE compile_result
    ERROR_VARIABLE compile_errors
    TIMEOUT 60)
  if(NOT compile_result EQUAL 0)
    message(FATAL_ERROR "The main page's example does not compile:\n${compile_errors}")
  endif()
  message(STATUS "The main page's example compiles as C99")
endif()
