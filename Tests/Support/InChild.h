// A piece of a test in a process of its own.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace Support
{

// What a child ends with in which this runs.
template <typename F>
int InChild(F run)
{
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        _exit(run());
    }
    int nStatus = 0;
    EXPECT_EQ(nChild, waitpid(nChild, &nStatus, 0));
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

} // namespace Support
