// For the program without shared libraries: replaces the functions of the C library with which
// OpenSSL resolves names and loads modules.  In a static program they would load shared libraries
// of the C library that it was built with, and the linker warns about that.  This client resolves
// names itself and loads no modules, so no sign-in and no transfer calls these functions; a module
// that openssl.cnf names is not found.
#include <netdb.h>

// The linker uses these for the names after __wrap_ (cmake/options.cmake).
extern "C" {

void* __wrap_dlopen(const char*, int) { return nullptr; }

int __wrap_getaddrinfo(const char*, const char*, const addrinfo*, addrinfo**) { return EAI_FAIL; }

void __wrap_freeaddrinfo(addrinfo*) {}

hostent* __wrap_gethostbyname(const char*) { return nullptr; }

}  // extern "C"
