# First step of the installation: creates the folders it needs, readable by everyone regardless of
# root's umask, and records which ones it created.
set(TARN_MADE "")
foreach(folder IN LISTS TARN_FOLDERS)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  set(folder "$ENV{DESTDIR}${folder}")
  set(missing "")
  while(NOT IS_DIRECTORY "${folder}")
    list(PREPEND missing "${folder}")
    cmake_path(GET folder PARENT_PATH folder)
  endwhile()
  foreach(folder IN LISTS missing)
    file(MAKE_DIRECTORY "${folder}")
    file(CHMOD "${folder}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                       WORLD_READ WORLD_EXECUTE)
  endforeach()
  list(APPEND TARN_MADE ${missing})
endforeach()
