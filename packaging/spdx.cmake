# Installs an SPDX 2.3 document beside the program: the files as they were installed, with their
# digests, and the libraries in the program and under it, with the versions that it was built with.
# The form is SPDX 2.3 (ISO/IEC 5962).

set(QUORVANE_SPDX_PACKAGES "")
set(QUORVANE_SPDX_RELATIONSHIPS "")
foreach(library IN LISTS QUORVANE_LIBRARIES)
    list(GET QUORVANE_LIBRARY_${library} 0 name)
    list(GET QUORVANE_LIBRARY_${library} 1 supplier)
    list(GET QUORVANE_LIBRARY_${library} 2 license)
    set(relationship DYNAMIC_LINK)
    set(suffix so)
    if(QUORVANE_STATIC OR library STREQUAL "stdc++")
        set(relationship STATIC_LINK)
        set(suffix a)
    elseif(library STREQUAL "ssl" AND NOT QUORVANE_LINK_OPENSSL)
        set(relationship DEPENDS_ON)
    endif()
    quorvane_library_version(lib${library}.${suffix} version)
    string(APPEND QUORVANE_SPDX_PACKAGES ",
    { \"SPDXID\": \"SPDXRef-${name}\", \"name\": \"${name}\", \"versionInfo\": \"${version}\",
      \"supplier\": \"${supplier}\", \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false, \"licenseConcluded\": \"${license}\",
      \"licenseDeclared\": \"${license}\", \"copyrightText\": \"NOASSERTION\" }")
    string(APPEND QUORVANE_SPDX_RELATIONSHIPS ",
    { \"spdxElementId\": \"SPDXRef-quorvane\", \"relationshipType\": \"${relationship}\",
      \"relatedSpdxElement\": \"SPDXRef-${name}\" }")
endforeach()

set(QUORVANE_SPDX_CREATED "1970-01-01T00:00:00Z")
if(NOT QUORVANE_EPOCH STREQUAL "")
    string(TIMESTAMP QUORVANE_SPDX_CREATED "%Y-%m-%dT%H:%M:%SZ" UTC)
endif()
# The parts known at configuration; the files are added when they are installed.
configure_file(packaging/quorvane.spdx.json.in install/quorvane.spdx.json.in @ONLY)
install(CODE "set(spdx_template \"${PROJECT_BINARY_DIR}/install/quorvane.spdx.json.in\")
    set(spdx_document \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}/quorvane.spdx.json\")")
install(SCRIPT packaging/write_spdx.cmake)
