# With TARN_LIBC=musl, everything is compiled by tarn-cc, as scripts are: included before project().
if(CMAKE_HOST_SYSTEM_PROCESSOR)
  set(TARN_MUSL_ARCHITECTURE ${CMAKE_HOST_SYSTEM_PROCESSOR})
else()
  cmake_host_system_information(RESULT TARN_MUSL_ARCHITECTURE QUERY OS_PLATFORM)
endif()
set(TARN_MUSL_TRIPLE ${TARN_MUSL_ARCHITECTURE}-linux-musl)
if(NOT EXISTS /usr/lib/${TARN_MUSL_TRIPLE}/libc.a)
  message(FATAL_ERROR "musl is not installed: run \"scripts/setup musl\"")
endif()

configure_file(tools/tarn-cc.in tools/tarn-cc @ONLY)
set(CMAKE_C_COMPILER ${CMAKE_BINARY_DIR}/tools/tarn-cc)
set(CMAKE_CXX_COMPILER ${CMAKE_BINARY_DIR}/tools/tarn-cc)

# Headers and libraries of different C libraries have folders of their own.
set(CMAKE_INSTALL_INCLUDEDIR include/${TARN_MUSL_TRIPLE} CACHE PATH "")
set(CMAKE_INSTALL_LIBDIR lib/${TARN_MUSL_TRIPLE} CACHE PATH "")

# The kernel's headers, which musl does not contain. The rest of /usr/include is for glibc.
set(TARN_KERNEL_HEADERS ${CMAKE_BINARY_DIR}/kernel)
file(MAKE_DIRECTORY ${TARN_KERNEL_HEADERS})
foreach(folder linux asm-generic asm)
  foreach(place /usr/include/${TARN_MUSL_ARCHITECTURE}-linux-gnu /usr/include)
    if(EXISTS ${place}/${folder})
      file(CREATE_LINK ${place}/${folder} ${TARN_KERNEL_HEADERS}/${folder} SYMBOLIC)
      break()
    endif()
  endforeach()
endforeach()
