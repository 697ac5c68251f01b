# Last step of the installation: adds the files and folders it created to the list that
# uninstall.cmake reads. Folders end with "/". Installing a single component, as the tests do, adds
# nothing.
if(CMAKE_INSTALL_COMPONENT)
  return()
endif()
set(made "")
if(EXISTS "${TARN_INSTALLED}")
  file(STRINGS "${TARN_INSTALLED}" made)
endif()
list(TRANSFORM TARN_MADE APPEND "/")
set(files "${CMAKE_INSTALL_MANIFEST_FILES}")
list(TRANSFORM files PREPEND "$ENV{DESTDIR}")
list(APPEND made ${TARN_MADE} ${files})
list(REMOVE_DUPLICATES made)
list(JOIN made "\n" made)
file(WRITE "${TARN_INSTALLED}" "${made}\n")
