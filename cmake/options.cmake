# Every compiler and linker option is on one of these interface targets; none is global.
#   quorvane_warnings   for everything that is compiled
#   quorvane_sanitize   for everything that is compiled, empty unless QUORVANE_SANITIZE is set
#   quorvane_openssl    for the programs: OpenSSL, or what loads it
#   quorvane_product    for the layers and the program: no exceptions, hardened
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

add_library(quorvane_warnings INTERFACE)
target_compile_options(quorvane_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast)
if(QUORVANE_WERROR)
    target_compile_options(quorvane_warnings INTERFACE -Werror)
endif()

add_library(quorvane_sanitize INTERFACE)
if(QUORVANE_SANITIZE)
    target_compile_options(quorvane_sanitize INTERFACE
        -fsanitize=${QUORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(quorvane_sanitize INTERFACE -fsanitize=${QUORVANE_SANITIZE})
endif()

# For every program that contains the http layer.
add_library(quorvane_openssl INTERFACE)
if(QUORVANE_STATIC)
    # What libcrypto.a itself was built to need differs: nothing more on Debian 12, z and zstd on 13.
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(QUORVANE_OPENSSL REQUIRED libssl)
    foreach(library IN LISTS QUORVANE_OPENSSL_STATIC_LIBRARIES)
        find_library(QUORVANE_STATIC_${library} lib${library}.a)
        if(NOT QUORVANE_STATIC_${library})
            message(FATAL_ERROR "OpenSSL's libcrypto.a needs lib${library}.a, which is not here "
                "(Debian: zlib1g-dev, libzstd-dev).")
        endif()
    endforeach()
endif()
set(OPENSSL_USE_STATIC_LIBS ${QUORVANE_STATIC})
find_package(OpenSSL 3 REQUIRED)  # Its headers are needed in any case.
# The library contains what `openssl version -d` prints, for another architecture, too.
set(openssl_folder /usr/lib/ssl)
file(STRINGS "${OPENSSL_CRYPTO_LIBRARY}" line REGEX "OPENSSLDIR: \"/" LIMIT_COUNT 1)
if(line MATCHES "OPENSSLDIR: \"(/[^\"]*)\"")
    set(openssl_folder "${CMAKE_MATCH_1}")
endif()
set(QUORVANE_OPENSSL_FOLDER "${openssl_folder}" CACHE STRING
    "The folder in which OpenSSL looks for cert.pem and certs")
if(QUORVANE_LINK_OPENSSL)
    target_link_libraries(quorvane_openssl INTERFACE OpenSSL::SSL)
    if(QUORVANE_STATIC)
        target_link_libraries(quorvane_openssl INTERFACE ${QUORVANE_OPENSSL_STATIC_LIBRARIES})
        # packaging/static_openssl.cpp has their replacements.
        foreach(function dlopen getaddrinfo freeaddrinfo gethostbyname)
            target_link_options(quorvane_openssl INTERFACE -Wl,--wrap=${function})
        endforeach()
    endif()
else()
    target_link_libraries(quorvane_openssl INTERFACE ${CMAKE_DL_LIBS})
endif()

add_library(quorvane_product INTERFACE)
target_link_libraries(quorvane_product INTERFACE quorvane_warnings quorvane_sanitize)
target_include_directories(quorvane_product INTERFACE ${PROJECT_SOURCE_DIR}/src)
# There is one thread; a guarded static would link what throws and prints exceptions, 130 kB.
target_compile_options(quorvane_product INTERFACE -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
target_compile_definitions(quorvane_product INTERFACE _GLIBCXX_ASSERTIONS)

# An option that the compiler does not know is left out here; the hardening check looks at the
# built program, so that a silent loss is noticed.  -fno-strict-overflow is not among them: it makes
# signed overflow wrap instead of trap.
if(NOT QUORVANE_SANITIZE)
    set(hardening -fstack-protector-strong -fstack-clash-protection -ftrivial-auto-var-init=zero
        -fno-delete-null-pointer-checks)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        list(APPEND hardening -fcf-protection=full)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
        list(APPEND hardening -mbranch-protection=standard)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 16)
        # Without this older ones refuse -ftrivial-auto-var-init=zero.
        set(CMAKE_REQUIRED_FLAGS
            -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang)
        target_compile_options(quorvane_product INTERFACE ${CMAKE_REQUIRED_FLAGS})
    endif()
    foreach(flag IN LISTS hardening)
        string(MAKE_C_IDENTIFIER "HAVE${flag}" known)
        check_cxx_compiler_flag("${flag}" ${known})
        if(${known})
            target_compile_options(quorvane_product INTERFACE ${flag})
        endif()
    endforeach()
    unset(CMAKE_REQUIRED_FLAGS)
    target_compile_options(quorvane_product INTERFACE
        -fsanitize=signed-integer-overflow,bounds -fsanitize-undefined-trap-on-error
        $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
        $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=3>)
    target_link_options(quorvane_product INTERFACE
        $<IF:$<BOOL:${QUORVANE_STATIC}>,-static-pie,-pie>
        -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,separate-code -Wl,--as-needed)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        # Debian's start-up objects are not marked for shadow stacks, so the linker would leave the
        # mark out; nothing in them or in ours touches a return address.
        check_linker_flag(CXX -Wl,-z,shstk HAVE_shadow_stack_mark)
        if(HAVE_shadow_stack_mark)
            target_link_options(quorvane_product INTERFACE -Wl,-z,shstk)
        endif()
    endif()
endif()
