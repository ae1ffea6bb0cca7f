// Runs a pipeline and prints the kernel's own account of each process (wait4), which does not
// include what this program itself costs.
//
//   launch RUNS INPUT OUTPUT REMOVE COMMAND [ARGUMENT...] [:: COMMAND [ARGUMENT...]]...
//
// Runs the pipeline RUNS times from INPUT to OUTPUT, and removes the files OUTPUT and REMOVE before
// each run.  One line for each process: run, wall time of the run in us, exit status, user and
// system time in us, peak resident memory in KiB.
//
// Linked statically and kept small: a process inherits the peak memory of the one that started it.

#define _GNU_SOURCE
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { kMostStages = 8 };

extern char** environ;

static void fail(const char* what) {
    perror(what);
    exit(2);
}

static long long wall_us(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (long long)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

static int open_or_fail(const char* path, int flags) {
    const int fd = open(path, flags | O_CLOEXEC, 0666);
    if (fd < 0) fail(path);
    return fd;
}

// Devices stay.
static void remove_file(const char* path) {
    struct stat status;
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode)) unlink(path);
}

// The child shares this process's memory until its exec, so that nothing is copied for it.
static pid_t start(char** command, int input, int output) {
    const pid_t child = vfork();
    if (child < 0) fail("vfork");
    if (child == 0) {
        dup2(input, 0);
        dup2(output, 1);
        execve(command[0], command, environ);
        _exit(127);
    }
    return child;
}

static long long as_us(struct timeval time) {
    return (long long)time.tv_sec * 1000000 + time.tv_usec;
}

static void run(int number, const char* input_path, const char* output_path,
                char** stages[kMostStages], int count) {
    pid_t children[kMostStages];
    int input = open_or_fail(input_path, O_RDONLY);
    remove_file(output_path);
    const int output = open_or_fail(output_path, O_WRONLY | O_CREAT);
    const long long begin = wall_us();
    for (int i = 0; i < count; ++i) {
        int ends[2] = {-1, output};
        if (i + 1 < count && pipe2(ends, O_CLOEXEC) != 0) fail("pipe2");
        children[i] = start(stages[i], input, ends[1]);
        close(input);
        if (i + 1 < count) close(ends[1]);
        input = ends[0];
    }
    struct rusage usage[kMostStages];
    int status[kMostStages];
    for (int i = 0; i < count; ++i) {
        if (wait4(children[i], &status[i], 0, &usage[i]) < 0) fail("wait4");
    }
    const long long wall = wall_us() - begin;
    close(output);
    for (int i = 0; i < count; ++i) {
        const int code = WIFEXITED(status[i]) ? WEXITSTATUS(status[i]) : 128 + WTERMSIG(status[i]);
        printf("%d %lld %d %lld %lld %ld\n", number, wall, code, as_us(usage[i].ru_utime),
               as_us(usage[i].ru_stime), usage[i].ru_maxrss);
    }
}

int main(int argc, char** argv) {
    if (argc < 6) {
        fputs("launch RUNS INPUT OUTPUT REMOVE COMMAND [ARGUMENT...] [:: COMMAND...]\n", stderr);
        return 2;
    }
    char** stages[kMostStages];
    int count = 0;
    stages[count++] = &argv[5];
    for (int i = 5; i < argc && count < kMostStages; ++i) {
        if (strcmp(argv[i], "::") != 0) continue;
        argv[i] = NULL;
        stages[count++] = &argv[i + 1];
    }
    for (int i = 0; i < atoi(argv[1]); ++i) {
        remove_file(argv[4]);
        run(i, argv[2], argv[3], stages, count);
    }
    return 0;
}
