# The shared library exports every declaration in include/tarn.h that begins with TARN_API. Its
# version is TARN_1.0 unless a comment after it names another:
#
#   TARN_API uint32_t Tarn_isComplete(TarnHandle *handle); /* since TARN_1.1 */
#
# Sets TARN_EXPORTS to the names, and writes the version script for the linker,
# TARN_VERSION_SCRIPT. Both are updated when the header changes.
set(TARN_VERSION_SCRIPT ${PROJECT_BINARY_DIR}/tarn.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                                       ${PROJECT_SOURCE_DIR}/include/tarn.h)

# Replace the semicolons, at which CMake would split the text.
string(ASCII 1 end)
file(READ ${PROJECT_SOURCE_DIR}/include/tarn.h header)
string(REPLACE ";" "${end}" header "${header}")
string(REGEX MATCHALL "\nTARN_API [^${end}]+${end}( /\\* since TARN_[0-9.]+ \\*/)?" declarations
             "${header}")

set(TARN_EXPORTS "")
set(versions "")
foreach(declaration IN LISTS declarations)
  if(NOT declaration MATCHES "[ *]([A-Za-z0-9_]+)[(${end}]")
    message(FATAL_ERROR "include/tarn.h: no name found in: ${declaration}")
  endif()
  set(name ${CMAKE_MATCH_1})
  set(version TARN_1.0)
  if(declaration MATCHES "/\\* since (TARN_[0-9.]+) \\*/$")
    set(version ${CMAKE_MATCH_1})
  endif()
  list(APPEND TARN_EXPORTS ${name})
  list(APPEND versions ${version})
  string(APPEND names_in_${version} "    ${name};\n")
endforeach()
if(NOT TARN_EXPORTS)
  message(FATAL_ERROR "include/tarn.h has no TARN_API declarations")
endif()

# Each version inherits from the previous one. Symbols that are in no version are hidden.
list(REMOVE_DUPLICATES versions)
list(SORT versions COMPARE NATURAL)
set(script "")
set(hidden "  local:\n    *;\n")
set(previous "")
foreach(version IN LISTS versions)
  string(APPEND script "${version} {\n  global:\n${names_in_${version}}${hidden}}${previous};\n")
  set(hidden "")
  set(previous " ${version}")
endforeach()
file(CONFIGURE OUTPUT ${TARN_VERSION_SCRIPT} CONTENT "${script}" @ONLY)
