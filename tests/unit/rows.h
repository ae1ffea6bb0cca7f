#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quorvane {

/// Expects that `answer` gives the second part of each row for its first.  Each row is answered in
/// a process of its own, so that one that ends by a signal takes no other with it.
template <typename Rows, typename Answer> void expect_rows(const Rows& rows, const Answer& answer) {
    const auto& failures = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (const auto& row : rows) {
        std::fflush(stdout);
        const int before = failures.total_part_count();
        const pid_t child = fork();
        if (child == 0) {
            EXPECT_EQ(answer(row.first), row.second);
            std::exit(failures.total_part_count() == before ? EXIT_SUCCESS : EXIT_FAILURE);
        }
        int status = -1;
        waitpid(child, &status, 0);
        const char* const ended_by = WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "";
        if (status != 0) {
            ADD_FAILURE() << "row " << testing::PrintToString(row.first) << " " << ended_by;
        }
    }
}

}  // namespace quorvane
