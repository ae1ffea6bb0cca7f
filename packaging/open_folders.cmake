# Runs before CPack packs, because folders were made under the mask of the user who builds.
file(GLOB_RECURSE paths LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(path IN LISTS paths)
    if(IS_DIRECTORY "${path}")
        file(CHMOD "${path}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
