# The files that `cmake --install` installs.  Their folders are those of GNUInstallDirs and can be
# changed through its variables; nothing is installed outside them.
include(GNUInstallDirs)

option(QUORVANE_DEBIAN_LAYOUT "Install completions and changelog where Debian wants them" OFF)
set(zsh_folder site-functions)
if(QUORVANE_DEBIAN_LAYOUT)
    set(zsh_folder vendor-completions)
endif()
set(QUORVANE_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder} CACHE STRING
    "Where zsh finds the completions of programs")

# One moment for everything that carries a date: two builds of one commit give the same bytes.
# https://reproducible-builds.org/specs/source-date-epoch/
set(QUORVANE_EPOCH "$ENV{SOURCE_DATE_EPOCH}")
if(QUORVANE_EPOCH STREQUAL "")
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE QUORVANE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
if(NOT QUORVANE_EPOCH STREQUAL "")
    set(ENV{SOURCE_DATE_EPOCH} ${QUORVANE_EPOCH})
endif()

# Adds `source`, compressed, to the files that are built and installed.
find_program(QUORVANE_GZIP gzip REQUIRED)
set(made ${PROJECT_BINARY_DIR}/install)
file(MAKE_DIRECTORY ${made})
function(quorvane_install_compressed source folder)
    cmake_path(GET source FILENAME name)
    # -n: neither name nor time go into the file.
    add_custom_command(OUTPUT ${made}/${name}.gz DEPENDS ${source} VERBATIM
        COMMAND ${QUORVANE_GZIP} -9nc ${source} > ${made}/${name}.gz)
    add_custom_target(compress_${name} ALL DEPENDS ${made}/${name}.gz)
    install(FILES ${made}/${name}.gz DESTINATION ${folder})
endfunction()

# The completions and the manual page with the words of the command tree, which a program for the
# machine that builds prints.
find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)
set(native_compiler $<IF:$<BOOL:${CMAKE_CROSSCOMPILING}>,c++,${CMAKE_CXX_COMPILER}>)
set(filled ${made}/quorvane.1 ${made}/quorvane.bash ${made}/quorvane.fish ${made}/_quorvane)
set(templates docs/quorvane.1.in packaging/completions/quorvane.bash.in
    packaging/completions/quorvane.fish.in packaging/completions/_quorvane.in)
add_custom_command(OUTPUT ${filled} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM
    DEPENDS ${templates} docs/messages.md packaging/fill-templates packaging/words.cpp
        src/main/command_tree.h src/cli/command_model.h
    COMMAND ${native_compiler} -std=c++20 -Isrc "-DQUORVANE_VERSION=\"${PROJECT_VERSION}\""
        "-DQUORVANE_DEFAULT_ORIGIN=\"${QUORVANE_DEFAULT_ORIGIN}\""
        packaging/words.cpp -o ${made}/words
    COMMAND ${made}/words > ${made}/words.txt
    COMMAND ${Python3_EXECUTABLE} packaging/fill-templates ${made}/words.txt docs/messages.md
        ${templates} ${made})
add_custom_target(fill_templates ALL DEPENDS ${filled})

install(TARGETS quorvane)
install(PROGRAMS packaging/quorvane-doctor DESTINATION ${CMAKE_INSTALL_BINDIR})
quorvane_install_compressed(${made}/quorvane.1 ${CMAKE_INSTALL_MANDIR}/man1)
quorvane_install_compressed(
    ${PROJECT_SOURCE_DIR}/docs/quorvane-doctor.1 ${CMAKE_INSTALL_MANDIR}/man1)
# bash and fish look for a file of the command's name.
foreach(command quorvane quorvane-doctor)
    install(FILES ${made}/quorvane.bash RENAME ${command}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${made}/quorvane.fish RENAME ${command}.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()
install(FILES ${made}/_quorvane DESTINATION ${QUORVANE_ZSH_DIR})
install(DIRECTORY docs/guides DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(FILES packaging/copyright CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

if(QUORVANE_DEBIAN_LAYOUT)
    string(TIMESTAMP QUORVANE_DEBIAN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
    configure_file(packaging/debian-changelog.in install/changelog @ONLY)
    quorvane_install_compressed(${PROJECT_BINARY_DIR}/install/changelog ${CMAKE_INSTALL_DOCDIR})
endif()

# A program contains nothing that it does not need to run, not even the compiler's name.
install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND \"${CMAKE_STRIP}\" --strip-all
            --remove-section=.comment --remove-section=.note
            \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/quorvane\")
    endif()")

# The list of parts comes last, because it has the digests of the files as they were installed.
set(linking $<IF:$<BOOL:${QUORVANE_LINK_OPENSSL}>,linked,loaded>)
set(libraries stdc++ c ssl)
if(QUORVANE_STATIC)
    set(linking static)
    # libcrypto.a names what it was built to need itself.
    list(APPEND libraries ${QUORVANE_OPENSSL_STATIC_LIBRARIES})
    list(REMOVE_ITEM libraries crypto dl pthread)
    list(REMOVE_DUPLICATES libraries)
endif()
list(JOIN libraries , libraries)
install(CODE "
    execute_process(COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE added COMMAND
        \"${Python3_EXECUTABLE}\" \"${PROJECT_SOURCE_DIR}/packaging/list-parts\"
        \"${PROJECT_VERSION}\" \"${QUORVANE_EPOCH}\" ${linking} ${libraries}
        \"${CMAKE_CXX_COMPILER} ${CMAKE_EXE_LINKER_FLAGS}\"
        \"\${CMAKE_INSTALL_PREFIX}\" ${CMAKE_INSTALL_DOCDIR} \${CMAKE_INSTALL_MANIFEST_FILES})
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \${added})")
