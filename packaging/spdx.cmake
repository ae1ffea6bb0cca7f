# Installs an SPDX 2.3 document beside the program: the files as they were installed, with their
# digests, and the libraries in the program and under it, with the versions that it was built with.
# The form is SPDX 2.3 (ISO/IEC 5962).

# The version of a Debian package, which says more than the library's own; else `fallback`.
function(quorvane_library_version package fallback result)
    execute_process(COMMAND dpkg-query -W -f "\${Version}" ${package}
        OUTPUT_VARIABLE version RESULT_VARIABLE status ERROR_QUIET)
    if(status OR version STREQUAL "")
        set(version ${fallback})
    endif()
    set(${result} ${version} PARENT_SCOPE)
endfunction()

set(QUORVANE_SPDX_PACKAGES "")
set(QUORVANE_SPDX_RELATIONSHIPS "")
function(quorvane_spdx_library name supplier version license relationship)
    string(APPEND QUORVANE_SPDX_PACKAGES ",
    {
      \"SPDXID\": \"SPDXRef-${name}\",
      \"name\": \"${name}\",
      \"versionInfo\": \"${version}\",
      \"supplier\": \"Organization: ${supplier}\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false,
      \"licenseConcluded\": \"${license}\",
      \"licenseDeclared\": \"${license}\",
      \"copyrightText\": \"NOASSERTION\"
    }")
    string(APPEND QUORVANE_SPDX_RELATIONSHIPS ",
    {
      \"spdxElementId\": \"SPDXRef-quorvane\",
      \"relationshipType\": \"${relationship}\",
      \"relatedSpdxElement\": \"SPDXRef-${name}\"
    }")
    set(QUORVANE_SPDX_PACKAGES "${QUORVANE_SPDX_PACKAGES}" PARENT_SCOPE)
    set(QUORVANE_SPDX_RELATIONSHIPS "${QUORVANE_SPDX_RELATIONSHIPS}" PARENT_SCOPE)
endfunction()

find_package(OpenSSL 3 REQUIRED)
string(REGEX MATCH "^[0-9]+" compiler_major ${CMAKE_CXX_COMPILER_VERSION})
quorvane_library_version(libstdc++-${compiler_major}-dev ${CMAKE_CXX_COMPILER_VERSION} gcc_version)
quorvane_library_version(libc6-dev NOASSERTION libc_version)
quorvane_library_version(libssl-dev ${OPENSSL_VERSION} openssl_version)
set(system_link DYNAMIC_LINK)
set(openssl_link DEPENDS_ON)
if(QUORVANE_STATIC)
    set(system_link STATIC_LINK)
    set(openssl_link STATIC_LINK)
elseif(QUORVANE_LINK_OPENSSL)
    set(openssl_link DYNAMIC_LINK)
endif()
quorvane_spdx_library(libstdc++ "Free Software Foundation" ${gcc_version}
    "GPL-3.0-or-later WITH GCC-exception-3.1" STATIC_LINK)
quorvane_spdx_library(glibc "Free Software Foundation" ${libc_version} LGPL-2.1-or-later
    ${system_link})
quorvane_spdx_library(openssl "OpenSSL Software Foundation" ${openssl_version} Apache-2.0
    ${openssl_link})

set(QUORVANE_SPDX_CREATED "1970-01-01T00:00:00Z")
if(NOT QUORVANE_EPOCH STREQUAL "")
    string(TIMESTAMP QUORVANE_SPDX_CREATED "%Y-%m-%dT%H:%M:%SZ" UTC)
endif()
# What is known now; the files are known when they are installed.
configure_file(packaging/quorvane.spdx.json.in install/quorvane.spdx.json.in @ONLY)
install(CODE "set(spdx_template \"${PROJECT_BINARY_DIR}/install/quorvane.spdx.json.in\")
    set(spdx_document \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}/quorvane.spdx.json\")")
install(SCRIPT packaging/write_spdx.cmake)
