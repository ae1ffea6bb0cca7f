# Runs at the end of an installation: fills the template with the files that were installed.
set(sha1s "")
set(files "")
set(contains "")
set(separator "")
set(number 0)
set(installed ${CMAKE_INSTALL_MANIFEST_FILES})
list(REMOVE_ITEM installed "${spdx_document}")
list(SORT installed)
foreach(path IN LISTS installed)
    file(RELATIVE_PATH name "${CMAKE_INSTALL_PREFIX}" "${path}")
    file(SHA1 "$ENV{DESTDIR}${path}" sha1)
    file(SHA256 "$ENV{DESTDIR}${path}" sha256)
    list(APPEND sha1s ${sha1})
    math(EXPR number "${number} + 1")
    set(license "\"LicenseRef-all-rights-reserved\"")
    set(copyright "the Quorvane project")
    if(name MATCHES "/licenses/")
        set(license "\"NOASSERTION\"")
        set(copyright "NOASSERTION")
    endif()
    string(APPEND files "${separator}
    { \"SPDXID\": \"SPDXRef-File-${number}\", \"fileName\": \"./${name}\", \"checksums\": [
        { \"algorithm\": \"SHA1\", \"checksumValue\": \"${sha1}\" },
        { \"algorithm\": \"SHA256\", \"checksumValue\": \"${sha256}\" } ],
      \"licenseConcluded\": ${license}, \"licenseInfoInFiles\": [${license}],
      \"copyrightText\": \"${copyright}\" }")
    string(APPEND contains ",
    { \"spdxElementId\": \"SPDXRef-quorvane\", \"relationshipType\": \"CONTAINS\",
      \"relatedSpdxElement\": \"SPDXRef-File-${number}\" }")
    set(separator ",")
endforeach()
# SPDX 2.3, 7.9: the SHA-1 of all files' SHA-1s in ascending order, put together.
list(SORT sha1s)
string(JOIN "" sha1s ${sha1s})
string(SHA1 verification_code "${sha1s}")
file(RELATIVE_PATH own_name "${CMAKE_INSTALL_PREFIX}" "${spdx_document}")
configure_file("${spdx_template}" "$ENV{DESTDIR}${spdx_document}"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${spdx_document}")
