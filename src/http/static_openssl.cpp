// For the program without shared libraries: stands in for the functions of the C library with which
// OpenSSL resolves names and loads modules.  In a static program they would load the shared
// libraries of the very C library that it was built with, which the linker warns of.  This client
// resolves names itself and loads no modules, so that no sign-in and no transfer calls them; a
// module that an openssl.cnf names is not found.
#include <netdb.h>

// The linker puts these in the place of the names after __wrap_ (cmake/options.cmake).
extern "C" {

void* __wrap_dlopen(const char*, int) { return nullptr; }

int __wrap_getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) { return EAI_FAIL; }

void __wrap_freeaddrinfo(addrinfo*) {}

hostent* __wrap_gethostbyname(const char*) { return nullptr; }

}  // extern "C"
