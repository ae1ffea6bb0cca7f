#include "main/run_cli.h"
#include "support/process.h"
#include "support/syscall.h"

int main(int argc, char** argv) {
    quorvane::set_process_vectors(argc, argv);
    quorvane::prepare_process();
    // All output is written.  Exit handlers, OpenSSL's above all, would only free memory.
    quorvane::kernel::exit(quorvane::run_cli());
}
