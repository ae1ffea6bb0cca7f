# The libraries that are linked into the program or needed by it, and their suppliers.

# One of each package; libcrypto.a names what it was built to need itself.
set(QUORVANE_LIBRARIES stdc++ c ssl)
if(QUORVANE_STATIC)
    list(APPEND QUORVANE_LIBRARIES ${QUORVANE_OPENSSL_STATIC_LIBRARIES})
    list(REMOVE_ITEM QUORVANE_LIBRARIES crypto dl pthread)
    list(REMOVE_DUPLICATES QUORVANE_LIBRARIES)
endif()

# name, supplier and licence of each.
set(QUORVANE_LIBRARY_stdc++ libstdc++ "Organization: Free Software Foundation"
    "GPL-3.0-or-later WITH GCC-exception-3.1")
set(QUORVANE_LIBRARY_c glibc "Organization: Free Software Foundation" LGPL-2.1-or-later)
set(QUORVANE_LIBRARY_ssl openssl "Organization: OpenSSL Software Foundation" Apache-2.0)
set(QUORVANE_LIBRARY_z zlib NOASSERTION Zlib)
set(QUORVANE_LIBRARY_zstd zstd NOASSERTION BSD-3-Clause)
foreach(library IN LISTS QUORVANE_LIBRARIES)
    if(NOT DEFINED QUORVANE_LIBRARY_${library})
        message(FATAL_ERROR "OpenSSL needs ${library} here: packaging/libraries.cmake lacks its licence")
    endif()
endforeach()

# The Debian package whose file the compiler takes for `file`, with its architecture where it has
# several; "" where no package has it.
function(quorvane_owner file result)
    separate_arguments(flags UNIX_COMMAND "${CMAKE_EXE_LINKER_FLAGS}")
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${flags} -print-file-name=${file}
        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(REAL_PATH "${path}" path)
    execute_process(COMMAND dpkg-query -S ${path} OUTPUT_VARIABLE owner ERROR_QUIET)
    string(REGEX MATCH "^[^:]+(:[^: ]+)?" owner "${owner}")
    set(${result} "${owner}" PARENT_SCOPE)
endfunction()

# Its version, which says more than the library's own; NOASSERTION where no package has it.
function(quorvane_library_version file result)
    quorvane_owner(${file} package)
    execute_process(COMMAND dpkg-query -W -f "\${Version}" ${package}
        OUTPUT_VARIABLE version RESULT_VARIABLE status ERROR_QUIET)
    if(package STREQUAL "" OR status)
        set(version NOASSERTION)
    endif()
    set(${result} ${version} PARENT_SCOPE)
endfunction()
