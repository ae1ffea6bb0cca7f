#include "main/run_cli.h"
#include "support/process.h"
#include "support/standard_streams.h"

int main(int argc, char** argv) {
    quorvane::set_process_vectors(argc, argv);
    quorvane::secure_standard_streams();
    return quorvane::run_cli();
}
