# A shared library exports every declaration in its header that begins with the macro API. A symbol's
# version is VERSION_1.0 unless a comment after the declaration names another:
#
#   TARN_API uint32_t Tarn_isComplete(TarnHandle *handle); /* since TARN_1.1 */
#
# tarn_exports(include/tarn.h TARN_API TARN) sets TARN_EXPORTS to the names, and writes the version
# script for the linker, TARN_VERSION_SCRIPT. Both are updated when the header changes.
function(tarn_exports header api version_prefix)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${header})

  # Replace the semicolons, at which CMake would split the text.
  string(ASCII 1 end)
  file(READ ${PROJECT_SOURCE_DIR}/${header} text)
  string(REPLACE ";" "${end}" text "${text}")
  string(REGEX MATCHALL "\n${api} [^${end}]+${end}( /\\* since ${version_prefix}_[0-9.]+ \\*/)?"
               declarations "${text}")

  set(exports "")
  set(versions "")
  foreach(declaration IN LISTS declarations)
    if(NOT declaration MATCHES "[ *]([A-Za-z0-9_]+)[(${end}]")
      message(FATAL_ERROR "${header}: no name found in: ${declaration}")
    endif()
    set(name ${CMAKE_MATCH_1})
    set(version ${version_prefix}_1.0)
    if(declaration MATCHES "/\\* since (${version_prefix}_[0-9.]+) \\*/$")
      set(version ${CMAKE_MATCH_1})
    endif()
    list(APPEND exports ${name})
    list(APPEND versions ${version})
    string(APPEND names_in_${version} "    ${name};\n")
  endforeach()
  if(NOT exports)
    message(FATAL_ERROR "${header} has no ${api} declarations")
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
  cmake_path(GET header STEM name)
  set(file ${PROJECT_BINARY_DIR}/${name}.map)
  file(CONFIGURE OUTPUT ${file} CONTENT "${script}" @ONLY)
  set(${version_prefix}_EXPORTS "${exports}" PARENT_SCOPE)
  set(${version_prefix}_VERSION_SCRIPT ${file} PARENT_SCOPE)
endfunction()
